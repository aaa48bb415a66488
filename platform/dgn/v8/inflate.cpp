#include <zlib.h>

#include <algorithm>

#include "bytes.h"

namespace Kora::Dgn::V8 {

std::size_t inflateBound(std::size_t fileSize)
{
    constexpr std::size_t Cap = std::size_t{512} << 20;
    return std::min(Cap, fileSize * 64 + (std::size_t{1} << 20));
}

std::expected<std::vector<std::byte>, ReadError> inflate(std::span<const std::byte> data, std::size_t bound)
{
    z_stream stream{};
    if (inflateInit(&stream) != Z_OK)
        return std::unexpected(readError(ReadError::Code::InflateFailed, "zlib could not start"));
    std::vector<std::byte> out;
    std::byte chunk[16384];
    stream.next_in = reinterpret_cast<Bytef*>(const_cast<std::byte*>(data.data()));
    stream.avail_in = static_cast<uInt>(data.size());
    int status = Z_OK;
    while (status == Z_OK) {
        stream.next_out = reinterpret_cast<Bytef*>(chunk);
        stream.avail_out = sizeof chunk;
        status = ::inflate(&stream, Z_NO_FLUSH);
        const std::size_t got = sizeof chunk - stream.avail_out;
        if (out.size() + got > bound) {
            inflateEnd(&stream);
            return std::unexpected(readError(ReadError::Code::TooLarge,
                                             "compressed data inflates beyond " + std::to_string(bound) + " bytes"));
        }
        out.insert(out.end(), chunk, chunk + got);
    }
    // Z_BUF_ERROR: no progress was possible, the data is cut short.
    const std::size_t consumed = data.size() - stream.avail_in;
    inflateEnd(&stream);
    if (status != Z_STREAM_END)
        return std::unexpected(readError(ReadError::Code::InflateFailed,
                                         std::string("compressed data does not inflate: ")
                                             + (status == Z_BUF_ERROR ? "it ends early" : "it is damaged"),
                                         consumed));
    return out;
}

} // namespace Kora::Dgn::V8
