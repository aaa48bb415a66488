// Number formats of V7 design files.
//
// Words are 16-bit little-endian. 32-bit integers are stored high word
// first, each word little-endian ("middle-endian", as on the PDP-11).
// Floating point values are VAX D-float: sign, 8-bit exponent with bias 128
// and a 55-bit fraction with a hidden leading bit, laid out as four words
// of which the first holds the sign, the exponent and the top fraction bits.
#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <span>


namespace Kora::Dgn::V7 {

std::uint16_t decodeWord(std::span<const std::byte, 2> bytes);
std::array<std::byte, 2> encodeWord(std::uint16_t value);

std::int32_t decodeInt32(std::span<const std::byte, 4> bytes);
std::array<std::byte, 4> encodeInt32(std::int32_t value);

// A VAX D-float has three more fraction bits than an IEEE double: decoding
// rounds them away (to nearest, ties to even). Its exponent range is
// narrower (about 2.9e-39 to 1.7e38): encoding turns values too small to
// represent into 0 and clamps values too large (and infinities) to the
// largest VAX value of the same sign; NaN encodes as 0. The VAX bit pattern
// with exponent 0 decodes as 0 whatever its other bits.
double decodeVaxDouble(std::span<const std::byte, 8> bytes);
std::array<std::byte, 8> encodeVaxDouble(double value);

} // namespace Kora::Dgn::V7
