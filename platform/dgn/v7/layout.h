// Bounds-checked access to the bytes of one element, shared by the decoder
// and the encoder. Offsets are bytes from the start of the element.
#pragma once

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <span>
#include <string>
#include <vector>

#include "kora/dgn/v7/elements.h"
#include "kora/dgn/v7/numbers.h"

namespace Kora::Dgn::V7::Layout {

// Fixed parts of every element.
inline constexpr std::size_t HeaderSize = 4;      // level, type, words to follow
inline constexpr std::size_t RangeOffset = 4;
inline constexpr std::size_t GraphicGroupOffset = 28;
inline constexpr std::size_t AttributeIndexOffset = 30;
inline constexpr std::size_t PropertiesOffset = 32;
inline constexpr std::size_t SymbologyOffset = 34;
inline constexpr std::size_t BodyOffset = 36;     // first byte after the display header
inline constexpr std::size_t MaxElementBytes = HeaderSize + 2 * 65535u;

// TCB fields.
inline constexpr std::size_t TcbSubPerMaster = 1112;
inline constexpr std::size_t TcbUorPerSub = 1116;
inline constexpr std::size_t TcbMasterName = 1120;
inline constexpr std::size_t TcbSubName = 1122;
inline constexpr std::size_t TcbDimensionFlags = 1214;
inline constexpr std::uint8_t TcbIs3dBit = 0x40;
inline constexpr std::size_t TcbGlobalOrigin = 1240;
inline constexpr std::size_t TcbMinimumBytes = 1264;
inline constexpr std::size_t TcbBytes = 1536;

// Level symbology: 64 symbology words after the element header and range.
inline constexpr std::size_t LevelSymbologyOffset = 28;
inline constexpr std::size_t LevelSymbologyBytes = LevelSymbologyOffset + 128;

inline constexpr std::size_t DigitizerSetupBytes = 356;

// Colour table: screen flag word, then 256 RGB triples.
inline constexpr std::size_t ColourTableScreenFlag = BodyOffset;
inline constexpr std::size_t ColourTableEntries = BodyOffset + 2;
inline constexpr std::size_t ColourTableEnd = ColourTableEntries + 768;

// Sizes that depend on the design's dimension.
inline std::size_t pointSize(bool is3d) { return is3d ? 12 : 8; }
inline std::size_t orientationSize(bool is3d) { return is3d ? 16 : 4; }
inline std::size_t doublePointSize(bool is3d) { return is3d ? 24 : 16; }

// The range values are stored offset by 2^31.
inline std::int32_t rangeFromStored(std::int32_t stored)
{
    return static_cast<std::int32_t>(static_cast<std::uint32_t>(stored) ^ 0x80000000u);
}
inline std::int32_t rangeToStored(std::int32_t value) { return rangeFromStored(value); }

// Reads never go past the element: a read out of bounds yields 0 and marks
// the reader as failed, so a decoder reads its whole record and checks once.
// `recordEnd` is where the attribute linkages start; a field that runs to the
// end of the record (group data, pixels, knots) stops there.
class In {
public:
    static constexpr bool Reading = true;

    explicit In(std::span<const std::byte> bytes, std::size_t recordEnd = SIZE_MAX)
        : m_bytes(bytes), m_recordEnd(std::min(recordEnd, bytes.size()))
    {
    }

    std::size_t size() const { return m_bytes.size(); }
    bool ok() const { return m_ok; }
    bool has(std::size_t offset, std::size_t count) const
    {
        return offset <= m_bytes.size() && count <= m_bytes.size() - offset;
    }
    std::uint8_t byte(std::size_t offset)
    {
        if (!has(offset, 1)) return fail<std::uint8_t>();
        return std::to_integer<std::uint8_t>(m_bytes[offset]);
    }
    std::uint16_t word(std::size_t offset)
    {
        if (!has(offset, 2)) return fail<std::uint16_t>();
        return decodeWord(std::span<const std::byte, 2>(m_bytes.data() + offset, 2));
    }
    std::int32_t int32(std::size_t offset)
    {
        if (!has(offset, 4)) return fail<std::int32_t>();
        return decodeInt32(std::span<const std::byte, 4>(m_bytes.data() + offset, 4));
    }
    double vax(std::size_t offset)
    {
        if (!has(offset, 8)) return fail<double>();
        return decodeVaxDouble(std::span<const std::byte, 8>(m_bytes.data() + offset, 8));
    }
    IntPoint point(std::size_t offset, bool is3d)
    {
        return {int32(offset), int32(offset + 4), is3d ? int32(offset + 8) : 0};
    }
    DoublePoint doublePoint(std::size_t offset, bool is3d)
    {
        return {vax(offset), vax(offset + 8), is3d ? vax(offset + 16) : 0.0};
    }
    std::vector<std::byte> bytes(std::size_t offset, std::size_t count)
    {
        std::vector<std::byte> out;
        bytes(offset, out, count);
        return out;
    }

    // Field-style access, the same calls as Out and Measure make.
    template <typename V> void byte(std::size_t offset, V& v) { v = static_cast<V>(byte(offset)); }
    template <typename V> void word(std::size_t offset, V& v) { v = static_cast<V>(word(offset)); }
    template <typename V> void int32(std::size_t offset, V& v) { v = static_cast<V>(int32(offset)); }
    void vax(std::size_t offset, double& v) { v = vax(offset); }
    void point(std::size_t offset, IntPoint& p, bool is3d) { p = point(offset, is3d); }
    void doublePoint(std::size_t offset, DoublePoint& p, bool is3d) { p = doublePoint(offset, is3d); }
    template <typename Bytes> void bytes(std::size_t offset, Bytes& v, std::size_t count)
    {
        if (!has(offset, count)) {
            m_ok = false;
            v.clear();
            return;
        }
        const auto* first = reinterpret_cast<const typename Bytes::value_type*>(m_bytes.data() + offset);
        v.assign(first, first + count);
    }
    // Bytes from `offset` to the end of the record.
    std::size_t toRecordEnd(std::size_t offset, std::size_t) const { return m_recordEnd > offset ? m_recordEnd - offset : 0; }
    // What the element holds at `offset` before this field is handled.
    std::uint8_t existing(std::size_t offset) { return byte(offset); }
    void require(bool, const char*) {}
    void atLeast(std::size_t) {}
    void padding(std::size_t) {}
    void even() {}

private:
    template <typename T> T fail()
    {
        m_ok = false;
        return T{};
    }
    std::span<const std::byte> m_bytes;
    std::size_t m_recordEnd;
    bool m_ok = true;
};

// Writes into a buffer sized beforehand; a write past its end is dropped
// and marks the writer as failed (an encoder that sized the buffer wrong).
// A double is left as it stands when the bytes already there decode to the
// same value, so the three fraction bits a VAX double has beyond an IEEE
// one survive in an unchanged element.
class Out {
public:
    static constexpr bool Reading = false;

    explicit Out(std::span<std::byte> bytes) : m_bytes(bytes) {}

    bool ok() const { return m_ok; }
    template <typename V> void byte(std::size_t offset, const V& value)
    {
        const std::byte b{static_cast<std::uint8_t>(value)};
        bytes(offset, std::span<const std::byte>(&b, 1));
    }
    template <typename V> void word(std::size_t offset, const V& value)
    {
        put(offset, encodeWord(static_cast<std::uint16_t>(value)));
    }
    template <typename V> void int32(std::size_t offset, const V& value)
    {
        put(offset, encodeInt32(static_cast<std::int32_t>(value)));
    }
    void vax(std::size_t offset, double value)
    {
        if (fits(offset, 8) && decodeVaxDouble(std::span<const std::byte, 8>(m_bytes.data() + offset, 8)) == value)
            return;
        put(offset, encodeVaxDouble(value));
    }
    void point(std::size_t offset, const IntPoint& p, bool is3d)
    {
        int32(offset, p.x);
        int32(offset + 4, p.y);
        if (is3d) int32(offset + 8, p.z);
    }
    void doublePoint(std::size_t offset, const DoublePoint& p, bool is3d)
    {
        vax(offset, p.x);
        vax(offset + 8, p.y);
        if (is3d) vax(offset + 16, p.z);
    }
    void bytes(std::size_t offset, std::span<const std::byte> data)
    {
        if (!fits(offset, data.size())) {
            m_ok = false;
            return;
        }
        if (!data.empty()) std::memcpy(m_bytes.data() + offset, data.data(), data.size());
    }
    template <typename Bytes> void bytes(std::size_t offset, const Bytes& v, std::size_t count)
    {
        bytes(offset, std::as_bytes(std::span(v.data(), std::min(count, v.size()))));
    }
    std::size_t toRecordEnd(std::size_t, std::size_t size) const { return size; }
    std::uint8_t existing(std::size_t offset) const
    {
        return fits(offset, 1) ? std::to_integer<std::uint8_t>(m_bytes[offset]) : 0;
    }
    void require(bool, const char*) {}
    void atLeast(std::size_t) {}
    void padding(std::size_t) {}
    void even() {}

private:
    bool fits(std::size_t offset, std::size_t count) const
    {
        return offset <= m_bytes.size() && count <= m_bytes.size() - offset;
    }
    template <std::size_t N> void put(std::size_t offset, const std::array<std::byte, N>& data)
    {
        bytes(offset, std::span<const std::byte>(data.data(), N));
    }
    std::span<std::byte> m_bytes;
    bool m_ok = true;
};

// Walks a record without bytes: where it ends, how many zero bytes follow it
// when it has no linkages, and the first reason it cannot be written.
class Measure {
public:
    static constexpr bool Reading = false;

    std::size_t end() const { return m_end; }
    std::size_t trailingPadding() const { return m_padding; }
    const std::string& problem() const { return m_problem; }

    template <typename V> void byte(std::size_t offset, const V&) { cover(offset, 1); }
    template <typename V> void word(std::size_t offset, const V&) { cover(offset, 2); }
    template <typename V> void int32(std::size_t offset, const V&) { cover(offset, 4); }
    void vax(std::size_t offset, double) { cover(offset, 8); }
    void point(std::size_t offset, const IntPoint&, bool is3d) { cover(offset, pointSize(is3d)); }
    void doublePoint(std::size_t offset, const DoublePoint&, bool is3d) { cover(offset, doublePointSize(is3d)); }
    template <typename Bytes> void bytes(std::size_t offset, const Bytes&, std::size_t count) { cover(offset, count); }
    std::size_t toRecordEnd(std::size_t, std::size_t size) const { return size; }
    std::uint8_t existing(std::size_t) const { return 0; }
    void require(bool condition, const char* problem)
    {
        if (!condition && m_problem.empty()) m_problem = problem;
    }
    void atLeast(std::size_t size) { m_end = std::max(m_end, size); }
    void padding(std::size_t count) { m_padding = count; }
    void even() { m_end += m_end % 2; }

private:
    void cover(std::size_t offset, std::size_t count) { m_end = std::max(m_end, offset + count); }
    std::size_t m_end = 0;
    std::size_t m_padding = 0;
    std::string m_problem;
};

} // namespace Kora::Dgn::V7::Layout
