// The compound-file container of V8 design files, and the errors of the V8
// reader.
//
// A V8 file is a compound document (sectors, a sector allocation table, a
// mini stream for small streams, a directory tree of storages and
// streams). CompoundFile checks every number before it uses one: sector
// numbers against the file, chains against loops, stream sizes against
// their chains and the file, the directory tree against cycles. Anything
// that does not hold is a ReadError; nothing is read past the buffer.
#pragma once

#include <cstddef>
#include <cstdint>
#include <expected>
#include <filesystem>
#include <map>
#include <span>
#include <string>
#include <string_view>
#include <vector>

namespace Kora::Dgn::V8 {

struct ReadError {
    enum class Code {
        NotDgn,         // no compound-document signature, or a compound document without DGN streams
        FileAccess,     // the file could not be opened or read
        TooLong,        // a pipe or device gave more than MaxUnsizedFileBytes
        Truncated,      // the file ends inside its header or a sector a chain names
        BadContainer,   // a header field, directory entry or sector number that cannot be
        ChainLoop,      // a sector chain (or the directory tree) comes back on itself
        StreamPastEnd,  // a stream is longer than its sectors or the file
        MissingStream,  // a stream the format requires is not there
        InflateFailed,  // compressed data that does not inflate or does not end cleanly
        TooLarge,       // inflated data beyond the bound (InflateBound)
        ElementOverrun, // an element longer than what is left of its page
        NoSuchModel,    // the model asked for is not in the file
    };
    Code code = Code::NotDgn;
    std::string message;       // says what went wrong, in English
    std::size_t offset = 0;    // byte offset in the file, or in the inflated page for elements
    std::size_t elementIndex = 0;

    // "<message> (element <index> at byte offset <offset>)"
    std::string describe() const;
};

// The first bytes of every compound document.
inline constexpr std::size_t SignatureBytes = 8;
bool hasCompoundSignature(std::span<const std::byte> firstBytes);

class CompoundFile {
public:
    // Checks the header, loads the allocation tables and the directory.
    static std::expected<CompoundFile, ReadError> open(std::vector<std::byte> bytes);

    bool hasStream(std::string_view path) const;
    bool hasStorage(std::string_view path) const;
    // The names directly inside a storage ("/Dgn-Md" -> "#000000", ...),
    // in name order.
    std::vector<std::string> children(std::string_view storage) const;
    // A stream's bytes by path ("/Dgn~H", "/Dgn-Md/#000000/Dgn~Mh").
    std::expected<std::vector<std::byte>, ReadError> read(std::string_view path) const;

    std::size_t fileSize() const { return m_bytes.size(); }

private:
    struct Entry {
        bool storage = false;
        std::uint32_t start = 0;
        std::uint64_t size = 0;
    };
    std::expected<std::vector<std::uint32_t>, ReadError> chain(std::uint32_t start,
                                                               const std::vector<std::uint32_t>& table,
                                                               const char* what) const;
    std::expected<std::vector<std::byte>, ReadError> readRegular(std::uint32_t start, std::uint64_t size) const;

    std::vector<std::byte> m_bytes;
    std::size_t m_sectorSize = 512;
    std::size_t m_sectorCount = 0;
    std::uint32_t m_miniCutoff = 4096;
    std::vector<std::uint32_t> m_fat;
    std::vector<std::uint32_t> m_miniFat;
    std::vector<std::byte> m_miniStream;
    std::map<std::string, Entry, std::less<>> m_entries; // by full path, "/Dgn~H"
};

// zlib data inflated, all of it: it must end cleanly, and the result may not
// exceed `bound` bytes (the caller's InflateBound).
std::expected<std::vector<std::byte>, ReadError> inflate(std::span<const std::byte> data, std::size_t bound);

// Inflated data never exceeds 64 times the file's size plus 1 MiB, and never
// 512 MiB: a small file cannot make the reader allocate without limit.
std::size_t inflateBound(std::size_t fileSize);

// The bytes of a file whose first bytes are a compound document's; other
// files are refused (NotDgn) before the rest is read. A file that is not a
// regular file (a pipe, a device) is read up to MaxUnsizedFileBytes.
inline constexpr std::size_t MaxUnsizedFileBytes = std::size_t{1} << 30;
std::expected<std::vector<std::byte>, ReadError> readFileBytes(const std::filesystem::path& path);

} // namespace Kora::Dgn::V8
