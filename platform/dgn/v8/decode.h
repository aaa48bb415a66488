// Decoding one element of an inflated page, for the reader's own use.
#pragma once

#include <span>
#include <string>

#include "kora/dgn/v8/reader.h"

namespace Kora::Dgn::V8 {

// The common header's offsets and flags, as observed.
inline constexpr std::size_t DisplayHeaderSize = 0x68;
inline constexpr std::uint32_t ComplexHeaderFlag = 0x20000000;
inline constexpr std::uint32_t ComponentFlag = 0x40000000;

// Decodes an element's bytes (type word first) in a model's units. An
// element too short for its type comes back UnknownBody with its bytes and
// the reason in `problem`'s code, severity and message.
Element decodeElement(std::span<const std::byte> bytes, const Model& model, Diagnostic& problem);

// The string of a string linkage (id 22226) with the given string id in
// the element's linkages, UTF-8; empty when there is none.
std::string linkageString(std::span<const std::byte> element, std::uint32_t stringId);

// Components name their complex header; the poles of a B-spline curve are
// copied into its header's record. A component with no header waiting for
// it is reported in `diagnostics`.
void linkComponents(std::vector<Element>& elements, std::vector<Diagnostic>& diagnostics);

} // namespace Kora::Dgn::V8
