// The V8 reader's own helpers: little-endian reads from a byte span (a
// read past the span's end gives 0: callers check lengths first, this keeps
// a missed check from reading outside the buffer), UTF-16 to UTF-8, and
// ReadError records.
#pragma once

#include <bit>
#include <cstddef>
#include <cstdint>
#include <span>
#include <string>
#include <type_traits>

#include "kora/dgn/v8/container.h"

namespace Kora::Dgn::V8 {

inline ReadError readError(ReadError::Code code, std::string message, std::size_t offset = 0, std::size_t index = 0)
{
    return ReadError{code, std::move(message), offset, index};
}

template <typename T>
T readLittle(std::span<const std::byte> bytes, std::size_t offset)
{
    if (offset > bytes.size() || bytes.size() - offset < sizeof(T)) return T{};
    std::uint64_t value = 0;
    for (std::size_t i = 0; i < sizeof(T); ++i)
        value |= std::uint64_t{static_cast<std::uint8_t>(bytes[offset + i])} << (8 * i);
    if constexpr (sizeof(T) == 8 && std::is_floating_point_v<T>) return std::bit_cast<T>(value);
    else return static_cast<T>(value);
}

inline std::uint16_t readU16(std::span<const std::byte> b, std::size_t o) { return readLittle<std::uint16_t>(b, o); }
inline std::uint32_t readU32(std::span<const std::byte> b, std::size_t o) { return readLittle<std::uint32_t>(b, o); }
inline std::int32_t readI32(std::span<const std::byte> b, std::size_t o) { return static_cast<std::int32_t>(readU32(b, o)); }
inline std::uint64_t readU64(std::span<const std::byte> b, std::size_t o) { return readLittle<std::uint64_t>(b, o); }
inline double readDouble(std::span<const std::byte> b, std::size_t o) { return readLittle<double>(b, o); }

// Code point to UTF-8.
inline void appendUtf8(std::string& out, char32_t c)
{
    if (c < 0x80) {
        out += static_cast<char>(c);
    } else if (c < 0x800) {
        out += static_cast<char>(0xC0 | (c >> 6));
        out += static_cast<char>(0x80 | (c & 0x3F));
    } else if (c < 0x10000) {
        out += static_cast<char>(0xE0 | (c >> 12));
        out += static_cast<char>(0x80 | ((c >> 6) & 0x3F));
        out += static_cast<char>(0x80 | (c & 0x3F));
    } else {
        out += static_cast<char>(0xF0 | (c >> 18));
        out += static_cast<char>(0x80 | ((c >> 12) & 0x3F));
        out += static_cast<char>(0x80 | ((c >> 6) & 0x3F));
        out += static_cast<char>(0x80 | (c & 0x3F));
    }
}

// UTF-16 to UTF-8; a lone surrogate becomes U+FFFD.
inline std::string utf16ToUtf8(std::u16string_view units)
{
    std::string out;
    for (std::size_t i = 0; i < units.size(); ++i) {
        char32_t c = units[i];
        if (c >= 0xD800 && c < 0xDC00 && i + 1 < units.size() && units[i + 1] >= 0xDC00 && units[i + 1] < 0xE000)
            c = 0x10000 + ((c - 0xD800) << 10) + (units[++i] - 0xDC00);
        else if (c >= 0xD800 && c < 0xE000)
            c = 0xFFFD;
        appendUtf8(out, c);
    }
    return out;
}

} // namespace Kora::Dgn::V8
