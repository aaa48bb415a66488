// Writing V7 design files.
//
// A Writer holds the bytes of the design being built. It starts from a
// design header (made from units, or copied from a seed file), appends
// elements one by one, and finish() ends the design with the 0xFFFF word.
//
// For every element the writer computes the words to follow, the attribute
// index and the attribute bit from the record, and the range from the
// geometry when Header::range is empty. An element read from a file
// (Element::source not empty) is written over a copy of its own bytes when
// its record still has the same size, so reserved words and padding survive
// and an unchanged element is written back byte for byte.
#pragma once

#include <cstddef>
#include <expected>
#include <filesystem>
#include <span>
#include <string>
#include <vector>

#include "kora/dgn/v7/elements.h"
#include "kora/dgn/v7/reader.h"

namespace Kora::Dgn::V7 {

// What a writer copies from a seed besides the design header (the TCB and
// the digitizer setup and level symbology elements that follow it).
enum class SeedCopy {
    Header,             // nothing more
    HeaderAndColours,   // and the colour tables (type 5, level 1)
    Everything,         // and every other element of the seed
};

// The bytes of one element in a design of the given dimension, or why it
// cannot be written (a count over its field's limit, an element over 65535
// words, an origin off the design plane...).
std::expected<std::vector<std::byte>, std::string> encodeElement(const Element& element, bool is3d);

class Writer {
public:
    // A design header made from scratch: a TCB with the dimension, units and
    // global origin, an empty digitizer setup and level symbology.
    static Writer create(bool is3d, const Units& units);
    static std::expected<Writer, ReadError> fromSeed(std::span<const std::byte> seed, SeedCopy copy = SeedCopy::Header);

    const DesignInfo& info() const { return m_info; }
    const Units& units() const { return m_info.units; }
    bool is3d() const { return m_info.is3d; }
    std::size_t elementCount() const { return m_count; }

    std::expected<void, std::string> append(const Element& element);

    // A complex element: `header` is a cell header, text node, complex chain
    // or shape, surface or solid header. Its component count and total
    // length are computed, every component gets the complex bit, and an
    // empty header range becomes the union of the components' ranges.
    std::expected<void, std::string> appendComplex(const Element& header, std::span<const Element> components);

    // Room for about `bytes` more, so that a large design is not copied as
    // it grows.
    void reserve(std::size_t bytes) { m_bytes.reserve(m_bytes.size() + bytes); }

    // The design's bytes, ended by the 0xFFFF word. The writer is empty after.
    std::vector<std::byte> finish();

private:
    Writer() = default;
    std::vector<std::byte> m_bytes;
    DesignInfo m_info;
    std::size_t m_count = 0;
};


} // namespace Kora::Dgn::V7
