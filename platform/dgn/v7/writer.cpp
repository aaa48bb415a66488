#include "kora/dgn/v7/writer.h"

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <cstring>
#include <limits>

#include "layout.h"

namespace Kora::Dgn::V7 {

namespace {

using namespace Layout;

constexpr std::int32_t PlaneMin = std::numeric_limits<std::int32_t>::min();
constexpr std::int32_t PlaneMax = std::numeric_limits<std::int32_t>::max();

std::uint16_t symbologyWord(const Symbology& s)
{
    return static_cast<std::uint16_t>((s.colour << 8) | ((s.weight & 0x1F) << 3) | (s.style & 0x7));
}

// Bounding box in UOR, grown point by point, rounded outwards.
struct Box {
    double low[3] = {std::numeric_limits<double>::max(), std::numeric_limits<double>::max(), std::numeric_limits<double>::max()};
    double high[3] = {std::numeric_limits<double>::lowest(), std::numeric_limits<double>::lowest(), std::numeric_limits<double>::lowest()};
    bool empty = true;

    void add(double x, double y, double z)
    {
        const double v[3] = {x, y, z};
        for (int i = 0; i < 3; ++i) {
            low[i] = std::min(low[i], v[i]);
            high[i] = std::max(high[i], v[i]);
        }
        empty = false;
    }
    void add(const IntPoint& p) { add(p.x, p.y, p.z); }
    void add(const Range& r)
    {
        add(r.low);
        add(r.high);
    }
    static std::int32_t clamp(double v)
    {
        if (!(v > PlaneMin)) return PlaneMin;
        if (!(v < PlaneMax)) return PlaneMax;
        return static_cast<std::int32_t>(v);
    }
    Range range(bool is3d) const
    {
        if (empty) return {};
        Range r{{clamp(std::floor(low[0])), clamp(std::floor(low[1])), clamp(std::floor(low[2]))},
                {clamp(std::ceil(high[0])), clamp(std::ceil(high[1])), clamp(std::ceil(high[2]))}};
        if (!is3d) { // 2D elements span the whole z axis
            r.low.z = PlaneMin;
            r.high.z = PlaneMax;
        }
        return r;
    }
};

// Direction of an element's local x and y axes in the design.
void axes(const Orientation& o, bool is3d, double ax[3], double ay[3])
{
    if (is3d) {
        const auto m = quaternionMatrix(o.quaternion);
        for (int i = 0; i < 3; ++i) {
            ax[i] = m[i][0];
            ay[i] = m[i][1];
        }
    } else {
        const double a = angleDegrees(o.angle) * M_PI / 180.0;
        ax[0] = std::cos(a), ax[1] = std::sin(a), ax[2] = 0;
        ay[0] = -std::sin(a), ay[1] = std::cos(a), ay[2] = 0;
    }
}

void addConic(Box& box, const DoublePoint& origin, double primary, double secondary, const Orientation& o, bool is3d)
{
    // The box of the whole ellipse: exact for its extreme points along each axis.
    double ax[3], ay[3];
    axes(o, is3d, ax, ay);
    double half[3];
    for (int i = 0; i < 3; ++i) half[i] = std::hypot(primary * ax[i], secondary * ay[i]);
    box.add(origin.x - half[0], origin.y - half[1], origin.z - half[2]);
    box.add(origin.x + half[0], origin.y + half[1], origin.z + half[2]);
}

std::optional<Range> computedRange(const Element& e, bool is3d)
{
    Box box;
    std::visit(
        [&](const auto& body) {
            using T = std::decay_t<decltype(body)>;
            if constexpr (std::is_same_v<T, Line>) {
                box.add(body.start);
                box.add(body.end);
            } else if constexpr (std::is_same_v<T, Vertices> || std::is_same_v<T, PointString>) {
                for (const auto& p : body.points) box.add(p);
            } else if constexpr (std::is_same_v<T, Ellipse> || std::is_same_v<T, Arc>) {
                addConic(box, body.origin, std::abs(body.primaryAxis), std::abs(body.secondaryAxis), body.orientation, is3d);
            } else if constexpr (std::is_same_v<T, Text>) {
                double ax[3], ay[3];
                axes(body.orientation, is3d, ax, ay);
                const double w = textSizeUor(body.lengthMultiplier) * static_cast<double>(body.text.size());
                const double h = textSizeUor(body.heightMultiplier);
                for (const double u : {0.0, w})
                    for (const double v : {0.0, h})
                        box.add(body.origin.x + u * ax[0] + v * ay[0], body.origin.y + u * ax[1] + v * ay[1],
                                body.origin.z + u * ax[2] + v * ay[2]);
            } else if constexpr (std::is_same_v<T, TextNode>) {
                box.add(body.origin);
            } else if constexpr (std::is_same_v<T, CellHeader>) {
                box.add(body.rangeLow);
                box.add(body.rangeHigh);
            } else if constexpr (std::is_same_v<T, Cone>) {
                const double r = std::max(std::abs(body.radius1), std::abs(body.radius2));
                for (const auto& c : {body.centre1, body.centre2}) {
                    box.add(c.x - r, c.y - r, c.z - r);
                    box.add(c.x + r, c.y + r, c.z + r);
                }
            } else if constexpr (std::is_same_v<T, RasterHeader>) {
                box.add(body.origin);
                box.add(body.origin.x + body.xExtent * body.scale, body.origin.y - body.yExtent * body.scale, body.origin.z);
            }
        },
        e.body);
    if (box.empty) return std::nullopt;
    return box.range(is3d);
}

// Size of the record in bytes, from the start of the element to where the
// attribute linkages begin; 0 for a record that cannot be written.
struct Sizing {
    std::size_t bodyEnd = 0;
    std::size_t padding = 0; // zero bytes after the record that are not linkage
    std::string problem;
};

Sizing sizeOf(const Element& e, bool is3d)
{
    constexpr std::size_t B = BodyOffset;
    const std::size_t ps = pointSize(is3d);
    const std::size_t os = orientationSize(is3d);
    Sizing s;
    std::visit(
        [&](const auto& body) {
            using T = std::decay_t<decltype(body)>;
            if constexpr (std::is_same_v<T, RawBody>) {
                if (e.source.size() < HeaderSize) s.problem = "an element without a record needs its source bytes";
                s.bodyEnd = e.source.size();
            } else if constexpr (std::is_same_v<T, Tcb>) {
                s.bodyEnd = std::max(TcbBytes, HeaderSize + body.block.size());
            } else if constexpr (std::is_same_v<T, DigitizerSetup>) {
                s.bodyEnd = std::max(DigitizerSetupBytes, HeaderSize + body.block.size());
            } else if constexpr (std::is_same_v<T, LevelSymbology>) {
                s.bodyEnd = LevelSymbologyBytes;
            } else if constexpr (std::is_same_v<T, ColourTable>) {
                s.bodyEnd = ColourTableEnd;
            } else if constexpr (std::is_same_v<T, GroupData>) {
                s.bodyEnd = B + body.data.size();
            } else if constexpr (std::is_same_v<T, CellHeader>) {
                s.bodyEnd = B + 16 + 3 * ps + (is3d ? 36 : 16);
            } else if constexpr (std::is_same_v<T, Line>) {
                s.bodyEnd = B + 2 * ps;
            } else if constexpr (std::is_same_v<T, Vertices>) {
                if (body.points.size() > 65535) s.problem = "too many vertices";
                s.bodyEnd = B + 2 + body.points.size() * ps;
            } else if constexpr (std::is_same_v<T, TextNode>) {
                s.bodyEnd = B + 22 + os + ps;
            } else if constexpr (std::is_same_v<T, ComplexHeader>) {
                s.bodyEnd = B + 4;
                s.padding = 8; // four attribute words bring the header to its minimum size
            } else if constexpr (std::is_same_v<T, SurfaceHeader>) {
                s.bodyEnd = B + 6;
                s.padding = 8;
            } else if constexpr (std::is_same_v<T, Ellipse>) {
                s.bodyEnd = B + 16 + os + doublePointSize(is3d);
            } else if constexpr (std::is_same_v<T, Arc>) {
                s.bodyEnd = B + 24 + os + doublePointSize(is3d);
            } else if constexpr (std::is_same_v<T, Text>) {
                if (body.text.size() > 255) s.problem = "text longer than 255 bytes";
                if (body.editFields.size() % 3 != 0 || body.editFields.size() / 3 > 255)
                    s.problem = "enter-data fields must be groups of three bytes, at most 255";
                const std::size_t end = B + 10 + os + ps + 2 + body.text.size() + body.editFields.size();
                s.bodyEnd = end + (end % 2);
            } else if constexpr (std::is_same_v<T, PointString>) {
                if (body.orientations.size() != body.points.size()) s.problem = "a point string needs one orientation per point";
                if (body.points.size() > 65535) s.problem = "too many points";
                s.bodyEnd = B + 2 + body.points.size() * (ps + 16);
            } else if constexpr (std::is_same_v<T, Cone>) {
                if (!is3d) s.problem = "cones exist only in 3D designs";
                s.bodyEnd = B + 82;
            } else if constexpr (std::is_same_v<T, BSplineCurveHeader>) {
                s.bodyEnd = B + 10;
            } else if constexpr (std::is_same_v<T, BSplineSurfaceHeader>) {
                s.bodyEnd = B + 22;
            } else if constexpr (std::is_same_v<T, BSplineBoundary>) {
                if (body.points.size() > 65535) s.problem = "too many boundary points";
                s.bodyEnd = B + 4 + 8 * body.points.size();
            } else if constexpr (std::is_same_v<T, BSplineValues>) {
                s.bodyEnd = B + 4 * body.values.size();
            } else if constexpr (std::is_same_v<T, RasterHeader>) {
                if (body.clip.size() > 65535) s.problem = "too many clip vertices";
                s.bodyEnd = B + 46 + body.clip.size() * ps;
            } else if constexpr (std::is_same_v<T, RasterData>) {
                s.bodyEnd = B + 10 + body.pixels.size() + (body.pixels.size() % 2);
            }
        },
        e.body);
    return s;
}

// A unit name ends at its first NUL; the bytes after it are left as the
// block has them unless the name changed.
void writeUnitName(Out& out, std::size_t offset, const std::string& name, const std::vector<std::byte>& block)
{
    std::string stored;
    for (std::size_t i = 0; i < 2 && offset - HeaderSize + i < block.size(); ++i) {
        const auto c = std::to_integer<char>(block[offset - HeaderSize + i]);
        if (c == '\0') break;
        stored += c;
    }
    if (stored == name) return;
    for (std::size_t i = 0; i < 2; ++i) out.byte(offset + i, i < name.size() ? static_cast<std::uint8_t>(name[i]) : 0);
}

void writeOrientation(Out& out, std::size_t offset, const Orientation& o, bool is3d)
{
    if (is3d)
        for (std::size_t i = 0; i < 4; ++i) out.int32(offset + 4 * i, o.quaternion[i]);
    else
        out.int32(offset, o.angle);
}

void writeBody(Out& out, const Element& e, bool is3d)
{
    constexpr std::size_t B = BodyOffset;
    const std::size_t ps = pointSize(is3d);
    const std::size_t os = orientationSize(is3d);
    std::visit(
        [&](const auto& body) {
            using T = std::decay_t<decltype(body)>;
            if constexpr (std::is_same_v<T, Tcb>) {
                out.bytes(HeaderSize, body.block);
                out.int32(TcbSubPerMaster, body.subPerMaster);
                out.int32(TcbUorPerSub, body.uorPerSub);
                writeUnitName(out, TcbMasterName, body.masterName, body.block);
                writeUnitName(out, TcbSubName, body.subName, body.block);
                out.doublePoint(TcbGlobalOrigin, body.globalOrigin, true);
                std::uint8_t flags = std::to_integer<std::uint8_t>(body.block.size() > TcbDimensionFlags - HeaderSize
                                                                       ? body.block[TcbDimensionFlags - HeaderSize]
                                                                       : std::byte{0});
                flags = static_cast<std::uint8_t>(body.is3d ? flags | TcbIs3dBit : flags & ~TcbIs3dBit);
                out.byte(TcbDimensionFlags, flags);
            } else if constexpr (std::is_same_v<T, DigitizerSetup>) {
                out.bytes(HeaderSize, body.block);
            } else if constexpr (std::is_same_v<T, LevelSymbology>) {
                out.bytes(HeaderSize, std::span(body.block).first(std::min(body.block.size(), LevelSymbologyOffset - HeaderSize)));
                for (std::size_t i = 0; i < body.levels.size(); ++i)
                    out.word(LevelSymbologyOffset + 2 * i, symbologyWord(body.levels[i]));
            } else if constexpr (std::is_same_v<T, ColourTable>) {
                out.word(ColourTableScreenFlag, body.screenFlag);
                for (std::size_t i = 0; i < body.stored.size(); ++i) {
                    const std::size_t at = ColourTableEntries + 3 * i;
                    out.byte(at, body.stored[i].r);
                    out.byte(at + 1, body.stored[i].g);
                    out.byte(at + 2, body.stored[i].b);
                }
            } else if constexpr (std::is_same_v<T, GroupData>) {
                out.bytes(B, body.data);
            } else if constexpr (std::is_same_v<T, CellHeader>) {
                out.word(B, body.totalWords);
                out.int32(B + 2, static_cast<std::int32_t>(body.name));
                out.word(B + 6, body.classMap);
                for (std::size_t i = 0; i < 4; ++i) out.word(B + 8 + 2 * i, body.levels[i]);
                out.point(B + 16, body.rangeLow, is3d);
                out.point(B + 16 + ps, body.rangeHigh, is3d);
                const std::size_t count = is3d ? 9 : 4;
                const std::size_t at = B + 16 + 2 * ps;
                for (std::size_t i = 0; i < count; ++i) out.int32(at + 4 * i, body.transform[i]);
                out.point(at + 4 * count, body.origin, is3d);
            } else if constexpr (std::is_same_v<T, Line>) {
                out.point(B, body.start, is3d);
                out.point(B + ps, body.end, is3d);
            } else if constexpr (std::is_same_v<T, Vertices>) {
                out.word(B, static_cast<std::uint16_t>(body.points.size()));
                for (std::size_t i = 0; i < body.points.size(); ++i) out.point(B + 2 + i * ps, body.points[i], is3d);
            } else if constexpr (std::is_same_v<T, TextNode>) {
                out.word(B, body.totalWords);
                out.word(B + 2, body.stringCount);
                out.word(B + 4, body.nodeNumber);
                out.byte(B + 6, body.maxLength);
                out.byte(B + 7, body.maxUsed);
                out.byte(B + 8, body.font);
                out.byte(B + 9, body.justification);
                out.int32(B + 10, body.lineSpacing);
                out.int32(B + 14, body.lengthMultiplier);
                out.int32(B + 18, body.heightMultiplier);
                writeOrientation(out, B + 22, body.orientation, is3d);
                out.point(B + 22 + os, body.origin, is3d);
            } else if constexpr (std::is_same_v<T, ComplexHeader>) {
                out.word(B, body.totalWords);
                out.word(B + 2, body.componentCount);
            } else if constexpr (std::is_same_v<T, SurfaceHeader>) {
                out.word(B, body.totalWords);
                out.word(B + 2, body.componentCount);
                out.byte(B + 4, body.surfaceType);
                out.byte(B + 5, body.boundaryCountMinusOne);
            } else if constexpr (std::is_same_v<T, Ellipse>) {
                out.vax(B, body.primaryAxis);
                out.vax(B + 8, body.secondaryAxis);
                writeOrientation(out, B + 16, body.orientation, is3d);
                out.doublePoint(B + 16 + os, body.origin, is3d);
            } else if constexpr (std::is_same_v<T, Arc>) {
                out.int32(B, body.startAngle);
                // Sign and magnitude.
                const std::uint32_t magnitude = body.sweepAngle < 0 ? 0u - static_cast<std::uint32_t>(body.sweepAngle)
                                                                    : static_cast<std::uint32_t>(body.sweepAngle);
                out.int32(B + 4, static_cast<std::int32_t>((magnitude & 0x7FFFFFFFu) | (body.sweepAngle < 0 ? 0x80000000u : 0u)));
                out.vax(B + 8, body.primaryAxis);
                out.vax(B + 16, body.secondaryAxis);
                writeOrientation(out, B + 24, body.orientation, is3d);
                out.doublePoint(B + 24 + os, body.origin, is3d);
            } else if constexpr (std::is_same_v<T, Text>) {
                out.byte(B, body.font);
                out.byte(B + 1, body.justification);
                out.int32(B + 2, body.lengthMultiplier);
                out.int32(B + 6, body.heightMultiplier);
                writeOrientation(out, B + 10, body.orientation, is3d);
                out.point(B + 10 + os, body.origin, is3d);
                const std::size_t at = B + 10 + os + ps;
                out.byte(at, static_cast<std::uint8_t>(body.text.size()));
                out.byte(at + 1, static_cast<std::uint8_t>(body.editFields.size() / 3));
                out.bytes(at + 2, std::as_bytes(std::span(body.text.data(), body.text.size())));
                out.bytes(at + 2 + body.text.size(), std::as_bytes(std::span(body.editFields)));
            } else if constexpr (std::is_same_v<T, PointString>) {
                out.word(B, static_cast<std::uint16_t>(body.points.size()));
                for (std::size_t i = 0; i < body.points.size(); ++i) out.point(B + 2 + i * ps, body.points[i], is3d);
                const std::size_t at = B + 2 + body.points.size() * ps;
                for (std::size_t i = 0; i < body.orientations.size(); ++i)
                    for (std::size_t k = 0; k < 4; ++k) out.int32(at + 16 * i + 4 * k, body.orientations[i][k]);
            } else if constexpr (std::is_same_v<T, Cone>) {
                out.word(B, body.coneType);
                for (std::size_t i = 0; i < 4; ++i) out.int32(B + 2 + 4 * i, body.quaternion[i]);
                out.doublePoint(B + 18, body.centre1, true);
                out.vax(B + 42, body.radius1);
                out.doublePoint(B + 50, body.centre2, true);
                out.vax(B + 74, body.radius2);
            } else if constexpr (std::is_same_v<T, BSplineCurveHeader>) {
                out.int32(B, static_cast<std::int32_t>(body.descriptionWords));
                out.word(B + 4, body.flags);
                out.word(B + 6, body.poleCount);
                out.word(B + 8, body.knotCount);
            } else if constexpr (std::is_same_v<T, BSplineSurfaceHeader>) {
                out.int32(B, static_cast<std::int32_t>(body.descriptionWords));
                const std::uint16_t words[] = {body.uFlags, body.uPoleCount, body.uKnotCount, body.uRuleCount, body.vFlags,
                                               body.vPoleCount, body.vKnotCount, body.vRuleCount, body.boundaryCount};
                for (std::size_t i = 0; i < std::size(words); ++i) out.word(B + 4 + 2 * i, words[i]);
            } else if constexpr (std::is_same_v<T, BSplineBoundary>) {
                out.word(B, body.number);
                out.word(B + 2, static_cast<std::uint16_t>(body.points.size()));
                for (std::size_t i = 0; i < body.points.size(); ++i) {
                    out.int32(B + 4 + 8 * i, body.points[i][0]);
                    out.int32(B + 8 + 8 * i, body.points[i][1]);
                }
            } else if constexpr (std::is_same_v<T, BSplineValues>) {
                for (std::size_t i = 0; i < body.values.size(); ++i) out.int32(B + 4 * i, body.values[i]);
            } else if constexpr (std::is_same_v<T, RasterHeader>) {
                out.int32(B, static_cast<std::int32_t>(body.totalWords));
                out.word(B + 4, body.flags);
                out.byte(B + 6, body.foreground);
                out.byte(B + 7, body.background);
                out.word(B + 8, body.xExtent);
                out.word(B + 10, body.yExtent);
                out.word(B + 12, body.reserved[0]);
                out.word(B + 14, body.reserved[1]);
                out.vax(B + 16, body.resolution);
                out.vax(B + 24, body.scale);
                out.point(B + 32, body.origin, true);
                out.word(B + 44, static_cast<std::uint16_t>(body.clip.size()));
                for (std::size_t i = 0; i < body.clip.size(); ++i) out.point(B + 46 + i * ps, body.clip[i], is3d);
            } else if constexpr (std::is_same_v<T, RasterData>) {
                out.word(B, body.flags);
                out.byte(B + 2, body.foreground);
                out.byte(B + 3, body.background);
                out.word(B + 4, body.xOffset);
                out.word(B + 6, body.yOffset);
                out.word(B + 8, body.pixelCount);
                out.bytes(B + 10, body.pixels);
            }
        },
        e.body);
}

} // namespace

std::expected<std::vector<std::byte>, std::string> encodeElement(const Element& e, bool is3d)
{
    const Header& h = e.header;
    const bool raw = std::holds_alternative<RawBody>(e.body);
    const bool display = hasDisplayHeader(h.type) && (!raw || e.source.size() >= BodyOffset);
    const Sizing sizing = sizeOf(e, is3d);
    if (!sizing.problem.empty()) return std::unexpected(sizing.problem);
    if (h.level > 63) return std::unexpected("level " + std::to_string(h.level) + " is over 63");

    std::size_t total = sizing.bodyEnd;
    if (!raw) {
        if (display && total < BodyOffset) total = BodyOffset;
        total += h.attributes.empty() ? sizing.padding : h.attributes.size();
        total += total % 2;
    }
    if (total > MaxElementBytes) return std::unexpected("element too long: " + std::to_string(total) + " bytes");

    // An element read from a file keeps its own bytes where no record field
    // covers them. When its size differs from what the record needs (slack
    // after the record, as some writers leave), it keeps its layout as long
    // as its record and linkages are those it was read with.
    bool keepLayout = e.source.size() == total;
    if (!keepLayout && !raw && !e.source.empty()) {
        const Element original = decodeElement(e.source, is3d);
        keepLayout = original.body == e.body && original.header.attributes == h.attributes;
    }
    std::vector<std::byte> bytes;
    if (keepLayout) bytes.assign(e.source.begin(), e.source.end());
    else bytes.assign(total, std::byte{0});
    const bool sameSize = bytes.size() == total;
    Out out(bytes);

    std::uint8_t levelByte = static_cast<std::uint8_t>(h.level | (std::to_integer<std::uint8_t>(bytes[0]) & 0x40) | (h.complex ? 0x80 : 0));
    if (const Tcb* tcb = e.as<Tcb>(); tcb && e.source.empty() && tcb->is3d) levelByte |= 0xC0; // the 3D signature C8 09 FE 02
    out.byte(0, levelByte);
    out.byte(1, static_cast<std::uint8_t>(static_cast<unsigned>(h.type) | (h.deleted ? 0x80 : 0)));
    out.word(2, static_cast<std::uint16_t>((bytes.size() - HeaderSize) / 2));

    if (display) {
        if (const std::optional<Range> r = h.range ? h.range : computedRange(e, is3d)) {
            const std::int32_t values[6] = {r->low.x, r->low.y, r->low.z, r->high.x, r->high.y, r->high.z};
            for (std::size_t i = 0; i < 6; ++i) out.int32(RangeOffset + 4 * i, rangeToStored(values[i]));
        }
        out.word(GraphicGroupOffset, h.graphicGroup);
        std::uint16_t properties = h.properties;
        if (!raw && sameSize) {
            // Without linkages the index means nothing; an element read from
            // a file keeps whatever it had there.
            if (!keepLayout || !h.attributes.empty())
                out.word(AttributeIndexOffset, static_cast<std::uint16_t>((sizing.bodyEnd - AttributeIndexOffset - 2) / 2));
            properties = static_cast<std::uint16_t>(h.attributes.empty() ? properties & ~Property::Attributes
                                                                         : properties | Property::Attributes);
        }
        out.word(PropertiesOffset, properties);
        out.word(SymbologyOffset, symbologyWord(h.symbology));
    }
    if (!raw) {
        writeBody(out, e, is3d);
        if (sameSize) out.bytes(sizing.bodyEnd, h.attributes);
    }
    if (!out.ok()) return std::unexpected("internal error: " + elementTypeName(h.type) + " record does not fit its size");
    return bytes;
}

Writer Writer::create(bool is3d, const Units& units)
{
    Writer w;
    w.m_info = {is3d ? FileKind::V7Design3d : FileKind::V7Design2d, is3d, units};
    Element tcb;
    tcb.header.type = ElementType::Tcb;
    tcb.header.level = 8;
    tcb.body = Tcb{is3d, units.subPerMaster, units.uorPerSub, units.masterName, units.subName, units.globalOrigin,
                   std::vector<std::byte>(TcbBytes - HeaderSize)};
    Element digitizer;
    digitizer.header.type = ElementType::DigitizerSetup;
    digitizer.body = DigitizerSetup{std::vector<std::byte>(DigitizerSetupBytes - HeaderSize)};
    Element levels;
    levels.header.type = ElementType::LevelSymbology;
    levels.body = LevelSymbology{{}, std::vector<std::byte>(LevelSymbologyOffset - HeaderSize)};
    // Records made here always fit their elements.
    for (const Element* e : {&tcb, &digitizer, &levels}) (void)w.append(*e);
    return w;
}

std::expected<Writer, ReadError> Writer::fromSeed(std::span<const std::byte> seed, SeedCopy copy)
{
    auto reader = Reader::open(seed);
    if (!reader) return std::unexpected(reader.error());
    Writer w;
    w.m_info = reader->info();
    Element element;
    bool inHeader = true;
    while (reader->next(element)) {
        const ElementType t = element.type();
        inHeader = inHeader && (t == ElementType::Tcb || t == ElementType::DigitizerSetup || t == ElementType::LevelSymbology);
        const bool wanted = inHeader || copy == SeedCopy::Everything
            || (copy == SeedCopy::HeaderAndColours && element.as<ColourTable>() != nullptr);
        if (!wanted) continue;
        // A seed element goes in as it is: the seed is read, never repaired.
        w.m_bytes.insert(w.m_bytes.end(), element.source.begin(), element.source.end());
        ++w.m_count;
    }
    if (reader->error()) return std::unexpected(*reader->error());
    return w;
}

std::expected<void, std::string> Writer::append(const Element& element)
{
    auto bytes = encodeElement(element, m_info.is3d);
    if (!bytes) return std::unexpected(bytes.error());
    m_bytes.insert(m_bytes.end(), bytes->begin(), bytes->end());
    ++m_count;
    return {};
}

std::expected<void, std::string> Writer::appendComplex(const Element& header, std::span<const Element> components)
{
    if (!isComplexHeader(header.type()))
        return std::unexpected(elementTypeName(header.type()) + " is not a complex element header");
    std::vector<std::vector<std::byte>> encoded;
    std::size_t componentBytes = 0;
    Box box;
    for (const Element& c : components) {
        Element component = c;
        component.header.complex = true;
        if (!component.header.range) component.header.range = computedRange(component, m_info.is3d);
        if (component.header.range) box.add(*component.header.range);
        auto bytes = encodeElement(component, m_info.is3d);
        if (!bytes) return std::unexpected(bytes.error());
        componentBytes += bytes->size();
        encoded.push_back(std::move(*bytes));
    }
    Element head = header;
    if (!head.header.range && !box.empty) head.header.range = box.range(m_info.is3d);
    auto first = encodeElement(head, m_info.is3d);
    if (!first) return std::unexpected(first.error());
    // The total length counts the words after the length word itself: the
    // rest of the header and every component.
    const std::size_t totalWords = (first->size() - BodyOffset - 2 + componentBytes) / 2;
    if (totalWords > 65535) return std::unexpected("complex element too long: " + std::to_string(totalWords) + " words");
    std::visit(
        [&](auto& body) {
            using T = std::decay_t<decltype(body)>;
            if constexpr (std::is_same_v<T, CellHeader> || std::is_same_v<T, ComplexHeader> || std::is_same_v<T, SurfaceHeader>
                          || std::is_same_v<T, TextNode>) {
                body.totalWords = static_cast<std::uint16_t>(totalWords);
                if constexpr (std::is_same_v<T, TextNode>)
                    body.stringCount = static_cast<std::uint16_t>(components.size());
                else if constexpr (!std::is_same_v<T, CellHeader>)
                    body.componentCount = static_cast<std::uint16_t>(components.size());
            }
        },
        head.body);
    first = encodeElement(head, m_info.is3d);
    if (!first) return std::unexpected(first.error());
    m_bytes.insert(m_bytes.end(), first->begin(), first->end());
    for (const auto& bytes : encoded) m_bytes.insert(m_bytes.end(), bytes.begin(), bytes.end());
    m_count += 1 + components.size();
    return {};
}

std::vector<std::byte> Writer::finish()
{
    m_bytes.push_back(std::byte{0xFF});
    m_bytes.push_back(std::byte{0xFF});
    m_count = 0;
    return std::move(m_bytes);
}

} // namespace Kora::Dgn::V7
