// Reading a design file whole, for the V7 and V8 codecs alike: the
// standard library only, so that each codec keeps to it.
#pragma once

#include <cerrno>
#include <cstddef>
#include <cstdio>
#include <cstring>
#include <expected>
#include <filesystem>
#include <memory>
#include <optional>
#include <string>
#include <vector>

namespace Kora::Dgn {

enum class WholeFileProblem {
    Access,   // the file cannot be opened or read
    TooLong,  // not a regular file and longer than the bound
};

// Reads `path` whole. Its first `signatureBytes` bytes go to `refuse`
// first, whose error (an optional of the codec's error) stops the read
// before the rest is read, however long or endless it is. A regular file is
// read with its size reserved, so the buffer does not grow by doubling (the
// loop still reads to the real end, in case the file grew in between);
// anything else (a pipe, a device) has no size to trust and is read up to
// `unsizedLimit` bytes. `problem` turns this function's own problems into
// the codec's error.
template <class Error, class Refuse, class Problem>
std::expected<std::vector<std::byte>, Error> readWholeFile(const std::filesystem::path& path, std::size_t signatureBytes,
                                                           std::size_t unsizedLimit, Refuse refuse, Problem problem)
{
    struct Closer {
        void operator()(std::FILE* f) const { std::fclose(f); }
    };
    std::unique_ptr<std::FILE, Closer> file(std::fopen(path.c_str(), "rb"));
    if (!file)
        return std::unexpected(problem(WholeFileProblem::Access, "cannot open " + path.string() + ": " + std::strerror(errno)));
    std::vector<std::byte> bytes(signatureBytes);
    bytes.resize(std::fread(bytes.data(), 1, bytes.size(), file.get()));
    if (std::ferror(file.get())) return std::unexpected(problem(WholeFileProblem::Access, "cannot read " + path.string()));
    if (std::optional<Error> refused = refuse(bytes)) return std::unexpected(std::move(*refused));

    std::error_code ec;
    const bool regular = std::filesystem::is_regular_file(path, ec);
    if (const auto size = std::filesystem::file_size(path, ec); regular && !ec) bytes.reserve(size);
    std::byte chunk[65536];
    std::size_t got = 0;
    while ((got = std::fread(chunk, 1, sizeof chunk, file.get())) > 0) {
        bytes.insert(bytes.end(), chunk, chunk + got);
        if (!regular && bytes.size() > unsizedLimit)
            return std::unexpected(problem(WholeFileProblem::TooLong, path.string() + ": not a regular file and longer than "
                                                                          + std::to_string(unsizedLimit) + " bytes"));
    }
    if (std::ferror(file.get())) return std::unexpected(problem(WholeFileProblem::Access, "cannot read " + path.string()));
    return bytes;
}

} // namespace Kora::Dgn
