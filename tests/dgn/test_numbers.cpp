#include <gtest/gtest.h>

#include <cmath>
#include <limits>
#include <random>

#include "kora/dgn/v7/numbers.h"

using namespace Kora::Dgn::V7;

namespace {

// VAX doubles written as their four 16-bit words, first word first (the
// word holding sign, exponent and the top fraction bits).
std::array<std::byte, 8> vaxWords(std::uint16_t w0, std::uint16_t w1, std::uint16_t w2, std::uint16_t w3)
{
    std::array<std::byte, 8> b{};
    const std::uint16_t words[4] = {w0, w1, w2, w3};
    for (int i = 0; i < 4; ++i) {
        b[2 * i] = std::byte(words[i] & 0xFF);
        b[2 * i + 1] = std::byte(words[i] >> 8);
    }
    return b;
}

std::array<std::byte, 4> bytes4(unsigned a, unsigned b, unsigned c, unsigned d)
{
    return {std::byte(a), std::byte(b), std::byte(c), std::byte(d)};
}

} // namespace

TEST(DgnNumbers, MiddleEndianIntegersPutTheHighWordFirst)
{
    const struct {
        std::int32_t value;
        std::array<std::byte, 4> stored;
    } table[] = {
        {0, bytes4(0x00, 0x00, 0x00, 0x00)},
        {1, bytes4(0x00, 0x00, 0x01, 0x00)},
        {-1, bytes4(0xFF, 0xFF, 0xFF, 0xFF)},
        {0x12345678, bytes4(0x34, 0x12, 0x78, 0x56)},
        {65536, bytes4(0x01, 0x00, 0x00, 0x00)},
        {std::numeric_limits<std::int32_t>::min(), bytes4(0x00, 0x80, 0x00, 0x00)},
        {std::numeric_limits<std::int32_t>::max(), bytes4(0xFF, 0x7F, 0xFF, 0xFF)},
    };
    for (const auto& row : table) {
        EXPECT_EQ(encodeInt32(row.value), row.stored) << row.value;
        EXPECT_EQ(decodeInt32(row.stored), row.value) << row.value;
    }
    EXPECT_EQ(decodeWord(std::array{std::byte{0x34}, std::byte{0x12}}), 0x1234);
    EXPECT_EQ(encodeWord(0xFFFE), (std::array{std::byte{0xFE}, std::byte{0xFF}}));
}

TEST(DgnNumbers, VaxDoublesDecodeAndEncodeByTable)
{
    const struct {
        double value;
        std::array<std::byte, 8> stored;
    } exact[] = {
        {0.0, vaxWords(0, 0, 0, 0)},
        {1.0, vaxWords(0x4080, 0, 0, 0)},
        {-1.0, vaxWords(0xC080, 0, 0, 0)},
        {0.5, vaxWords(0x4000, 0, 0, 0)},
        {2.0, vaxWords(0x4100, 0, 0, 0)},
        {1e10, vaxWords(0x5115, 0x02F9, 0, 0)},
        {-1000.0, vaxWords(0xC57A, 0, 0, 0)},
        {std::ldexp(1.0, -128), vaxWords(0x0080, 0, 0, 0)}, // the smallest VAX value
    };
    for (const auto& row : exact) {
        EXPECT_EQ(encodeVaxDouble(row.value), row.stored) << row.value;
        EXPECT_EQ(decodeVaxDouble(row.stored), row.value) << row.value;
    }

    // 0.1 as a VAX machine stores it has three more fraction bits than an
    // IEEE double; decoding rounds them to the nearest double.
    EXPECT_EQ(decodeVaxDouble(vaxWords(0x3ECC, 0xCCCC, 0xCCCC, 0xCCCD)), 0.1);
    EXPECT_EQ(encodeVaxDouble(0.1), vaxWords(0x3ECC, 0xCCCC, 0xCCCC, 0xCCD0));

    // Out of the VAX range: too small becomes 0, too large the largest value.
    EXPECT_EQ(encodeVaxDouble(1e-40), vaxWords(0, 0, 0, 0));
    EXPECT_EQ(encodeVaxDouble(-1e-300), vaxWords(0, 0, 0, 0));
    EXPECT_EQ(encodeVaxDouble(1e39), vaxWords(0x7FFF, 0xFFFF, 0xFFFF, 0xFFFF));
    EXPECT_EQ(encodeVaxDouble(-std::numeric_limits<double>::infinity()), vaxWords(0xFFFF, 0xFFFF, 0xFFFF, 0xFFFF));
    EXPECT_EQ(encodeVaxDouble(std::numeric_limits<double>::quiet_NaN()), vaxWords(0, 0, 0, 0));
    EXPECT_EQ(encodeVaxDouble(-0.0), vaxWords(0, 0, 0, 0));
    // The largest VAX value rounds up to 2^127 in IEEE.
    EXPECT_EQ(decodeVaxDouble(vaxWords(0x7FFF, 0xFFFF, 0xFFFF, 0xFFFF)), std::ldexp(1.0, 127));
    // Exponent 0 is zero whatever the other bits (the sign-only pattern is a
    // VAX "reserved operand"; it must not turn into a NaN or a denormal).
    EXPECT_EQ(decodeVaxDouble(vaxWords(0x8000, 0, 0, 0)), 0.0);
    EXPECT_EQ(decodeVaxDouble(vaxWords(0x007F, 0xFFFF, 0xFFFF, 0xFFFF)), 0.0);
}

TEST(DgnNumbers, VaxDoublesRoundTripEveryValueInRange)
{
    std::mt19937_64 random(7);
    std::uniform_real_distribution<double> mantissa(-1.0, 1.0);
    std::uniform_int_distribution<int> exponent(-120, 120);
    for (int i = 0; i < 20000; ++i) {
        const double v = std::ldexp(mantissa(random), exponent(random));
        EXPECT_EQ(decodeVaxDouble(encodeVaxDouble(v)), v) << v;
    }
    for (const double v : {1e-38, -1e-38, 1.7e38, -1.7e38, 123456789.123, -0.000123})
        EXPECT_EQ(decodeVaxDouble(encodeVaxDouble(v)), v) << v;
}
