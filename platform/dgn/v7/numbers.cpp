#include "kora/dgn/v7/numbers.h"

#include <bit>
#include <cmath>

namespace Kora::Dgn::V7 {

namespace {

constexpr std::uint64_t VaxFractionMask = (std::uint64_t{1} << 55) - 1;
constexpr std::uint64_t IeeeFractionMask = (std::uint64_t{1} << 52) - 1;
// A VAX exponent E means 0.1f x 2^(E-128) = 1.f x 2^(E-129); an IEEE
// exponent e means 1.f x 2^(e-1023). So e = E + 894.
constexpr int ExponentShift = 894;

} // namespace

std::uint16_t decodeWord(std::span<const std::byte, 2> bytes)
{
    return static_cast<std::uint16_t>(std::to_integer<unsigned>(bytes[0]) | (std::to_integer<unsigned>(bytes[1]) << 8));
}

std::array<std::byte, 2> encodeWord(std::uint16_t value)
{
    return {std::byte(value & 0xFF), std::byte(value >> 8)};
}

std::int32_t decodeInt32(std::span<const std::byte, 4> bytes)
{
    const std::uint32_t high = decodeWord(bytes.first<2>());
    const std::uint32_t low = decodeWord(bytes.last<2>());
    return static_cast<std::int32_t>((high << 16) | low);
}

std::array<std::byte, 4> encodeInt32(std::int32_t value)
{
    const auto u = static_cast<std::uint32_t>(value);
    const auto high = encodeWord(static_cast<std::uint16_t>(u >> 16));
    const auto low = encodeWord(static_cast<std::uint16_t>(u & 0xFFFF));
    return {high[0], high[1], low[0], low[1]};
}

double decodeVaxDouble(std::span<const std::byte, 8> bytes)
{
    std::uint64_t v = 0;
    for (int i = 0; i < 4; ++i)
        v = (v << 16) | decodeWord(std::span<const std::byte, 2>(bytes.data() + 2 * i, 2));
    const std::uint64_t sign = v >> 63;
    const int exponent = static_cast<int>((v >> 55) & 0xFF);
    if (exponent == 0) return 0.0;
    std::uint64_t fraction = v & VaxFractionMask;
    // Drop three fraction bits, rounding to nearest, ties to even.
    const std::uint64_t dropped = fraction & 7;
    fraction >>= 3;
    if (dropped > 4 || (dropped == 4 && (fraction & 1))) ++fraction;
    std::uint64_t ieeeExponent = static_cast<std::uint64_t>(exponent + ExponentShift);
    if (fraction > IeeeFractionMask) { // rounding carried into the exponent
        fraction = 0;
        ++ieeeExponent;
    }
    return std::bit_cast<double>((sign << 63) | (ieeeExponent << 52) | fraction);
}

std::array<std::byte, 8> encodeVaxDouble(double value)
{
    std::uint64_t v = 0;
    if (!std::isnan(value) && value != 0.0) {
        const std::uint64_t ieee = std::bit_cast<std::uint64_t>(value);
        const std::uint64_t sign = ieee >> 63;
        const int exponent = static_cast<int>((ieee >> 52) & 0x7FF) - ExponentShift;
        if (exponent > 255 || std::isinf(value))
            v = (sign << 63) | (std::uint64_t{255} << 55) | VaxFractionMask;
        else if (exponent >= 1)
            v = (sign << 63) | (static_cast<std::uint64_t>(exponent) << 55) | ((ieee & IeeeFractionMask) << 3);
        // else: below the VAX range, written as 0
    }
    std::array<std::byte, 8> out{};
    for (int i = 0; i < 4; ++i) {
        const auto word = encodeWord(static_cast<std::uint16_t>(v >> (48 - 16 * i)));
        out[2 * i] = word[0];
        out[2 * i + 1] = word[1];
    }
    return out;
}

} // namespace Kora::Dgn::V7
