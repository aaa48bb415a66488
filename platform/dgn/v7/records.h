// The field layout of every element record, written once. Each `fields`
// overload walks its record with an Io that is the reader (Layout::In, the
// record non-const), the writer (Layout::Out) or the measurer
// (Layout::Measure, which finds where the record ends and why it cannot be
// written). Offsets are bytes from the start of the element.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <type_traits>

#include "layout.h"

namespace Kora::Dgn::V7::Records {

using namespace Layout;

// Sizes that depend on the design's dimension.
struct Dims {
    explicit Dims(bool is3dDesign)
        : is3d(is3dDesign), point(pointSize(is3dDesign)), orientation(orientationSize(is3dDesign))
    {
    }
    bool is3d;
    std::size_t point;
    std::size_t orientation;
};

inline constexpr std::size_t B = BodyOffset;

// --- Encodings shared by several records -------------------------------

inline Symbology symbologyFromWord(std::uint16_t word)
{
    return {static_cast<std::uint8_t>(word >> 8), static_cast<std::uint8_t>((word >> 3) & 0x1F),
            static_cast<std::uint8_t>(word & 0x7)};
}

inline std::uint16_t symbologyWord(const Symbology& s)
{
    return static_cast<std::uint16_t>((s.colour << 8) | ((s.weight & 0x1F) << 3) | (s.style & 0x7));
}

// Colour, weight and style packed in one word.
template <class Io, class S> void symbology(Io& io, std::size_t at, S& s)
{
    std::uint16_t word = 0;
    if constexpr (!Io::Reading) word = symbologyWord(s);
    io.word(at, word);
    if constexpr (Io::Reading) s = symbologyFromWord(word);
}

inline std::int32_t fromSignMagnitude(std::uint32_t stored)
{
    return (stored & 0x80000000u) ? -static_cast<std::int32_t>(stored & 0x7FFFFFFFu) : static_cast<std::int32_t>(stored);
}

inline std::uint32_t toSignMagnitude(std::int32_t value)
{
    const std::uint32_t magnitude = value < 0 ? 0u - static_cast<std::uint32_t>(value) : static_cast<std::uint32_t>(value);
    return (magnitude & 0x7FFFFFFFu) | (value < 0 ? 0x80000000u : 0u);
}

// A 32-bit angle stored as sign and magnitude (the arc's sweep).
template <class Io, class V> void signMagnitude(Io& io, std::size_t at, V& value)
{
    std::uint32_t stored = 0;
    if constexpr (!Io::Reading) stored = toSignMagnitude(value);
    io.int32(at, stored);
    if constexpr (Io::Reading) value = fromSignMagnitude(stored);
}

// A 2D rotation angle or a 3D quaternion.
template <class Io, class O> void orientation(Io& io, std::size_t at, O& o, const Dims& d)
{
    if (d.is3d)
        for (std::size_t i = 0; i < 4; ++i) io.int32(at + 4 * i, o.quaternion[i]);
    else
        io.int32(at, o.angle);
}

// The count word in front of a list; the list's own size when writing.
template <class Io, class List> std::size_t count(Io& io, std::size_t at, List& list, const char* tooMany)
{
    io.require(list.size() <= 65535, tooMany);
    std::uint16_t n = static_cast<std::uint16_t>(list.size());
    io.word(at, n);
    return n;
}

// `n` items when reading (the list is sized to them), the list's items otherwise.
template <class Io, class List, class Item> void each(Io&, List& list, std::size_t n, Item item)
{
    if constexpr (Io::Reading) list.resize(n);
    for (std::size_t i = 0; i < list.size(); ++i) item(list[i], i);
}

template <class Io, class List> void points(Io& io, std::size_t at, List& list, std::size_t n, const Dims& d)
{
    each(io, list, n, [&](auto& p, std::size_t i) { io.point(at + i * d.point, p, d.is3d); });
}

// Bytes from `at` to where the linkages start.
template <class Io, class Bytes> void toRecordEnd(Io& io, std::size_t at, Bytes& data)
{
    io.bytes(at, data, io.toRecordEnd(at, data.size()));
}

// A TCB unit name: two characters, ended early by a NUL. The bytes after
// the NUL are left as they stand unless the name changed.
template <class Io, class S> void unitName(Io& io, std::size_t at, S& name)
{
    std::string stored;
    for (std::size_t i = 0; i < 2; ++i) {
        const auto c = static_cast<char>(io.existing(at + i));
        if (c == '\0') break;
        stored += c;
    }
    if constexpr (Io::Reading) {
        name = stored;
    } else if (stored != name) {
        for (std::size_t i = 0; i < 2; ++i) io.byte(at + i, i < name.size() ? static_cast<std::uint8_t>(name[i]) : 0);
    }
}

// The TCB's 3D bit, in a flags byte whose other bits are kept.
template <class Io, class Flag> void dimensionBit(Io& io, Flag& is3d)
{
    std::uint8_t flags = io.existing(TcbDimensionFlags);
    if constexpr (!Io::Reading) flags = static_cast<std::uint8_t>(is3d ? flags | TcbIs3dBit : flags & ~TcbIs3dBit);
    io.byte(TcbDimensionFlags, flags);
    if constexpr (Io::Reading) is3d = (flags & TcbIs3dBit) != 0;
}

// --- One overload per record --------------------------------------------

template <class Io, class R> requires std::is_same_v<std::remove_const_t<R>, Tcb>
void fields(Io& io, R& t, const Dims&)
{
    // The whole block first: the named fields are written over it.
    toRecordEnd(io, HeaderSize, t.block);
    io.int32(TcbSubPerMaster, t.subPerMaster);
    io.int32(TcbUorPerSub, t.uorPerSub);
    unitName(io, TcbMasterName, t.masterName);
    unitName(io, TcbSubName, t.subName);
    io.doublePoint(TcbGlobalOrigin, t.globalOrigin, true);
    dimensionBit(io, t.is3d);
    io.atLeast(TcbBytes);
}

template <class Io, class R> requires std::is_same_v<std::remove_const_t<R>, DigitizerSetup>
void fields(Io& io, R& s, const Dims&)
{
    toRecordEnd(io, HeaderSize, s.block);
    io.atLeast(DigitizerSetupBytes);
}

template <class Io, class R> requires std::is_same_v<std::remove_const_t<R>, LevelSymbology>
void fields(Io& io, R& l, const Dims&)
{
    constexpr std::size_t blockBytes = LevelSymbologyOffset - HeaderSize;
    io.bytes(HeaderSize, l.block, blockBytes);
    for (std::size_t i = 0; i < l.levels.size(); ++i) symbology(io, LevelSymbologyOffset + 2 * i, l.levels[i]);
}

template <class Io, class R> requires std::is_same_v<std::remove_const_t<R>, ColourTable>
void fields(Io& io, R& c, const Dims&)
{
    io.word(ColourTableScreenFlag, c.screenFlag);
    for (std::size_t i = 0; i < c.stored.size(); ++i) {
        const std::size_t at = ColourTableEntries + 3 * i;
        io.byte(at, c.stored[i].r);
        io.byte(at + 1, c.stored[i].g);
        io.byte(at + 2, c.stored[i].b);
    }
}

template <class Io, class R> requires std::is_same_v<std::remove_const_t<R>, GroupData>
void fields(Io& io, R& g, const Dims&)
{
    toRecordEnd(io, B, g.data);
}

template <class Io, class R> requires std::is_same_v<std::remove_const_t<R>, CellHeader>
void fields(Io& io, R& c, const Dims& d)
{
    io.word(B, c.totalWords);
    io.int32(B + 2, c.name);
    io.word(B + 6, c.classMap);
    for (std::size_t i = 0; i < 4; ++i) io.word(B + 8 + 2 * i, c.levels[i]);
    io.point(B + 16, c.rangeLow, d.is3d);
    io.point(B + 16 + d.point, c.rangeHigh, d.is3d);
    const std::size_t transformCount = d.is3d ? 9 : 4;
    const std::size_t transformAt = B + 16 + 2 * d.point;
    for (std::size_t i = 0; i < transformCount; ++i) io.int32(transformAt + 4 * i, c.transform[i]);
    io.point(transformAt + 4 * transformCount, c.origin, d.is3d);
}

template <class Io, class R> requires std::is_same_v<std::remove_const_t<R>, Line>
void fields(Io& io, R& l, const Dims& d)
{
    io.point(B, l.start, d.is3d);
    io.point(B + d.point, l.end, d.is3d);
}

template <class Io, class R> requires std::is_same_v<std::remove_const_t<R>, Vertices>
void fields(Io& io, R& v, const Dims& d)
{
    points(io, B + 2, v.points, count(io, B, v.points, "too many vertices"), d);
}

template <class Io, class R> requires std::is_same_v<std::remove_const_t<R>, TextNode>
void fields(Io& io, R& t, const Dims& d)
{
    io.word(B, t.totalWords);
    io.word(B + 2, t.stringCount);
    io.word(B + 4, t.nodeNumber);
    io.byte(B + 6, t.maxLength);
    io.byte(B + 7, t.maxUsed);
    io.byte(B + 8, t.font);
    io.byte(B + 9, t.justification);
    io.int32(B + 10, t.lineSpacing);
    io.int32(B + 14, t.lengthMultiplier);
    io.int32(B + 18, t.heightMultiplier);
    orientation(io, B + 22, t.orientation, d);
    io.point(B + 22 + d.orientation, t.origin, d.is3d);
}

template <class Io, class R> requires std::is_same_v<std::remove_const_t<R>, ComplexHeader>
void fields(Io& io, R& c, const Dims&)
{
    io.word(B, c.totalWords);
    io.word(B + 2, c.componentCount);
    io.padding(8); // four attribute words bring the header to its minimum size
}

template <class Io, class R> requires std::is_same_v<std::remove_const_t<R>, SurfaceHeader>
void fields(Io& io, R& s, const Dims&)
{
    io.word(B, s.totalWords);
    io.word(B + 2, s.componentCount);
    io.byte(B + 4, s.surfaceType);
    io.byte(B + 5, s.boundaryCountMinusOne);
    io.padding(8);
}

template <class Io, class R> requires std::is_same_v<std::remove_const_t<R>, Ellipse>
void fields(Io& io, R& e, const Dims& d)
{
    io.vax(B, e.primaryAxis);
    io.vax(B + 8, e.secondaryAxis);
    orientation(io, B + 16, e.orientation, d);
    io.doublePoint(B + 16 + d.orientation, e.origin, d.is3d);
}

template <class Io, class R> requires std::is_same_v<std::remove_const_t<R>, Arc>
void fields(Io& io, R& a, const Dims& d)
{
    io.int32(B, a.startAngle);
    signMagnitude(io, B + 4, a.sweepAngle);
    io.vax(B + 8, a.primaryAxis);
    io.vax(B + 16, a.secondaryAxis);
    orientation(io, B + 24, a.orientation, d);
    io.doublePoint(B + 24 + d.orientation, a.origin, d.is3d);
}

template <class Io, class R> requires std::is_same_v<std::remove_const_t<R>, Text>
void fields(Io& io, R& t, const Dims& d)
{
    io.byte(B, t.font);
    io.byte(B + 1, t.justification);
    io.int32(B + 2, t.lengthMultiplier);
    io.int32(B + 6, t.heightMultiplier);
    orientation(io, B + 10, t.orientation, d);
    io.point(B + 10 + d.orientation, t.origin, d.is3d);
    const std::size_t at = B + 10 + d.orientation + d.point;
    io.require(t.text.size() <= 255, "text longer than 255 bytes");
    io.require(t.editFields.size() % 3 == 0 && t.editFields.size() / 3 <= 255,
               "enter-data fields must be groups of three bytes, at most 255");
    std::uint8_t chars = static_cast<std::uint8_t>(t.text.size());
    std::uint8_t fieldCount = static_cast<std::uint8_t>(t.editFields.size() / 3);
    io.byte(at, chars);
    io.byte(at + 1, fieldCount);
    io.bytes(at + 2, t.text, chars);
    const std::size_t fieldsAt = at + 2 + t.text.size();
    each(io, t.editFields, 3 * std::size_t{fieldCount}, [&](auto& b, std::size_t i) { io.byte(fieldsAt + i, b); });
    io.even();
}

template <class Io, class R> requires std::is_same_v<std::remove_const_t<R>, PointString>
void fields(Io& io, R& p, const Dims& d)
{
    io.require(p.orientations.size() == p.points.size(), "a point string needs one orientation per point");
    const std::size_t n = count(io, B, p.points, "too many points");
    points(io, B + 2, p.points, n, d);
    const std::size_t at = B + 2 + n * d.point;
    each(io, p.orientations, n, [&](auto& o, std::size_t i) {
        for (std::size_t k = 0; k < 4; ++k) io.int32(at + 16 * i + 4 * k, o[k]);
    });
}

template <class Io, class R> requires std::is_same_v<std::remove_const_t<R>, Cone>
void fields(Io& io, R& c, const Dims& d)
{
    io.require(d.is3d, "cones exist only in 3D designs");
    io.word(B, c.coneType);
    for (std::size_t i = 0; i < 4; ++i) io.int32(B + 2 + 4 * i, c.quaternion[i]);
    io.doublePoint(B + 18, c.centre1, true);
    io.vax(B + 42, c.radius1);
    io.doublePoint(B + 50, c.centre2, true);
    io.vax(B + 74, c.radius2);
}

template <class Io, class R> requires std::is_same_v<std::remove_const_t<R>, BSplineCurveHeader>
void fields(Io& io, R& h, const Dims&)
{
    io.int32(B, h.descriptionWords);
    io.word(B + 4, h.flags);
    io.word(B + 6, h.poleCount);
    io.word(B + 8, h.knotCount);
}

template <class Io, class R> requires std::is_same_v<std::remove_const_t<R>, BSplineSurfaceHeader>
void fields(Io& io, R& s, const Dims&)
{
    io.int32(B, s.descriptionWords);
    io.word(B + 4, s.uFlags);
    io.word(B + 6, s.uPoleCount);
    io.word(B + 8, s.uKnotCount);
    io.word(B + 10, s.uRuleCount);
    io.word(B + 12, s.vFlags);
    io.word(B + 14, s.vPoleCount);
    io.word(B + 16, s.vKnotCount);
    io.word(B + 18, s.vRuleCount);
    io.word(B + 20, s.boundaryCount);
}

template <class Io, class R> requires std::is_same_v<std::remove_const_t<R>, BSplineBoundary>
void fields(Io& io, R& b, const Dims&)
{
    io.word(B, b.number);
    const std::size_t n = count(io, B + 2, b.points, "too many boundary points");
    each(io, b.points, n, [&](auto& p, std::size_t i) {
        io.int32(B + 4 + 8 * i, p[0]);
        io.int32(B + 8 + 8 * i, p[1]);
    });
}

template <class Io, class R> requires std::is_same_v<std::remove_const_t<R>, BSplineValues>
void fields(Io& io, R& v, const Dims&)
{
    // The count follows from the element's length, not from the curve
    // header, so a knot element never reads past itself.
    const std::size_t n = io.toRecordEnd(B, 4 * v.values.size()) / 4;
    each(io, v.values, n, [&](auto& value, std::size_t i) { io.int32(B + 4 * i, value); });
}

template <class Io, class R> requires std::is_same_v<std::remove_const_t<R>, RasterHeader>
void fields(Io& io, R& r, const Dims& d)
{
    io.int32(B, r.totalWords);
    io.word(B + 4, r.flags);
    io.byte(B + 6, r.foreground);
    io.byte(B + 7, r.background);
    io.word(B + 8, r.xExtent);
    io.word(B + 10, r.yExtent);
    io.word(B + 12, r.reserved[0]);
    io.word(B + 14, r.reserved[1]);
    io.vax(B + 16, r.resolution);
    io.vax(B + 24, r.scale);
    io.point(B + 32, r.origin, true);
    points(io, B + 46, r.clip, count(io, B + 44, r.clip, "too many clip vertices"), d);
}

template <class Io, class R> requires std::is_same_v<std::remove_const_t<R>, RasterData>
void fields(Io& io, R& r, const Dims&)
{
    io.word(B, r.flags);
    io.byte(B + 2, r.foreground);
    io.byte(B + 3, r.background);
    io.word(B + 4, r.xOffset);
    io.word(B + 6, r.yOffset);
    io.word(B + 8, r.pixelCount);
    toRecordEnd(io, B + 10, r.pixels);
    io.even();
}

} // namespace Kora::Dgn::V7::Records
