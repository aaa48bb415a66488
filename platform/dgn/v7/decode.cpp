// Bytes of one element -> Element.
#include "kora/dgn/v7/reader.h"

#include "layout.h"

namespace Kora::Dgn::V7 {

namespace {

using namespace Layout;

std::string twoChars(In& in, std::size_t offset)
{
    std::string s;
    for (std::size_t i = 0; i < 2; ++i) {
        const auto c = static_cast<char>(in.byte(offset + i));
        if (c == '\0') break;
        s += c;
    }
    return s;
}

Orientation orientation(In& in, std::size_t offset, bool is3d)
{
    Orientation o;
    if (is3d)
        for (std::size_t i = 0; i < 4; ++i) o.quaternion[i] = in.int32(offset + 4 * i);
    else
        o.angle = in.int32(offset);
    return o;
}

std::vector<IntPoint> points(In& in, std::size_t offset, std::size_t count, bool is3d)
{
    const std::size_t size = pointSize(is3d);
    if (!in.has(offset, count * size)) {
        in.markShort();
        return {};
    }
    std::vector<IntPoint> out;
    out.reserve(count);
    for (std::size_t i = 0; i < count; ++i) out.push_back(in.point(offset + i * size, is3d));
    return out;
}

Symbology symbology(std::uint16_t word)
{
    return {static_cast<std::uint8_t>(word >> 8), static_cast<std::uint8_t>((word >> 3) & 0x1F),
            static_cast<std::uint8_t>(word & 0x7)};
}

// Decodes the record of a type; `bodyEnd` is where the attribute linkages
// start (the end of the element when there are none).
Body decodeBody(const Header& header, In& in, std::size_t bodyEnd, bool is3d)
{
    constexpr std::size_t B = BodyOffset;
    const std::size_t ps = pointSize(is3d);
    const std::size_t os = orientationSize(is3d);
    switch (header.type) {
    case ElementType::Tcb: {
        if (in.size() < TcbMinimumBytes) {
            in.markShort();
            return RawBody{};
        }
        Tcb t;
        t.is3d = (in.byte(TcbDimensionFlags) & TcbIs3dBit) != 0;
        t.subPerMaster = in.int32(TcbSubPerMaster);
        t.uorPerSub = in.int32(TcbUorPerSub);
        t.masterName = twoChars(in, TcbMasterName);
        t.subName = twoChars(in, TcbSubName);
        t.globalOrigin = in.doublePoint(TcbGlobalOrigin, true);
        t.block = in.bytes(HeaderSize, in.size() - HeaderSize);
        return t;
    }
    case ElementType::DigitizerSetup:
        return DigitizerSetup{in.bytes(HeaderSize, in.size() - HeaderSize)};
    case ElementType::LevelSymbology: {
        LevelSymbology l;
        l.block = in.bytes(HeaderSize, LevelSymbologyOffset - HeaderSize);
        for (std::size_t i = 0; i < l.levels.size(); ++i)
            l.levels[i] = symbology(in.word(LevelSymbologyOffset + 2 * i));
        return l;
    }
    case ElementType::GroupData:
        if (header.level == 1) {
            ColourTable c;
            c.screenFlag = in.word(ColourTableScreenFlag);
            for (std::size_t i = 0; i < c.stored.size(); ++i) {
                const std::size_t at = ColourTableEntries + 3 * i;
                c.stored[i] = {in.byte(at), in.byte(at + 1), in.byte(at + 2)};
            }
            return c;
        }
        [[fallthrough]];
    case ElementType::ApplicationElement:
        return GroupData{in.bytes(B, bodyEnd > B ? bodyEnd - B : 0)};
    case ElementType::CellHeader: {
        CellHeader c;
        c.totalWords = in.word(B);
        c.name = static_cast<std::uint32_t>(in.int32(B + 2));
        c.classMap = in.word(B + 6);
        for (std::size_t i = 0; i < 4; ++i) c.levels[i] = in.word(B + 8 + 2 * i);
        c.rangeLow = in.point(B + 16, is3d);
        c.rangeHigh = in.point(B + 16 + ps, is3d);
        const std::size_t transformCount = is3d ? 9 : 4;
        const std::size_t transformAt = B + 16 + 2 * ps;
        for (std::size_t i = 0; i < transformCount; ++i) c.transform[i] = in.int32(transformAt + 4 * i);
        c.origin = in.point(transformAt + 4 * transformCount, is3d);
        return c;
    }
    case ElementType::Line:
        return Line{in.point(B, is3d), in.point(B + ps, is3d)};
    case ElementType::LineString:
    case ElementType::Shape:
    case ElementType::Curve:
    case ElementType::BSplinePole:
        return Vertices{points(in, B + 2, in.word(B), is3d)};
    case ElementType::TextNode: {
        TextNode t;
        t.totalWords = in.word(B);
        t.stringCount = in.word(B + 2);
        t.nodeNumber = in.word(B + 4);
        t.maxLength = in.byte(B + 6);
        t.maxUsed = in.byte(B + 7);
        t.font = in.byte(B + 8);
        t.justification = in.byte(B + 9);
        t.lineSpacing = in.int32(B + 10);
        t.lengthMultiplier = in.int32(B + 14);
        t.heightMultiplier = in.int32(B + 18);
        t.orientation = orientation(in, B + 22, is3d);
        t.origin = in.point(B + 22 + os, is3d);
        return t;
    }
    case ElementType::ComplexChainHeader:
    case ElementType::ComplexShapeHeader:
        return ComplexHeader{in.word(B), in.word(B + 2)};
    case ElementType::SurfaceHeader:
    case ElementType::SolidHeader:
        return SurfaceHeader{in.word(B), in.word(B + 2), in.byte(B + 4), in.byte(B + 5)};
    case ElementType::Ellipse: {
        Ellipse e;
        e.primaryAxis = in.vax(B);
        e.secondaryAxis = in.vax(B + 8);
        e.orientation = orientation(in, B + 16, is3d);
        e.origin = in.doublePoint(B + 16 + os, is3d);
        return e;
    }
    case ElementType::Arc: {
        Arc a;
        a.startAngle = in.int32(B);
        // The sweep is stored as sign and magnitude.
        const auto sweep = static_cast<std::uint32_t>(in.int32(B + 4));
        a.sweepAngle = (sweep & 0x80000000u) ? -static_cast<std::int32_t>(sweep & 0x7FFFFFFFu)
                                             : static_cast<std::int32_t>(sweep);
        a.primaryAxis = in.vax(B + 8);
        a.secondaryAxis = in.vax(B + 16);
        a.orientation = orientation(in, B + 24, is3d);
        a.origin = in.doublePoint(B + 24 + os, is3d);
        return a;
    }
    case ElementType::Text: {
        Text t;
        t.font = in.byte(B);
        t.justification = in.byte(B + 1);
        t.lengthMultiplier = in.int32(B + 2);
        t.heightMultiplier = in.int32(B + 6);
        t.orientation = orientation(in, B + 10, is3d);
        t.origin = in.point(B + 10 + os, is3d);
        const std::size_t countAt = B + 10 + os + ps;
        const std::size_t chars = in.byte(countAt);
        const std::size_t fields = in.byte(countAt + 1);
        const auto text = in.bytes(countAt + 2, chars);
        t.text.assign(reinterpret_cast<const char*>(text.data()), text.size());
        for (const std::byte b : in.bytes(countAt + 2 + chars, 3 * fields)) t.editFields.push_back(std::to_integer<std::uint8_t>(b));
        return t;
    }
    case ElementType::PointString: {
        PointString p;
        const std::size_t count = in.word(B);
        p.points = points(in, B + 2, count, is3d);
        const std::size_t orientationsAt = B + 2 + count * ps;
        if (!in.has(orientationsAt, count * 16)) {
            in.markShort();
            return p;
        }
        p.orientations.resize(count);
        for (std::size_t i = 0; i < count; ++i)
            for (std::size_t k = 0; k < 4; ++k) p.orientations[i][k] = in.int32(orientationsAt + 16 * i + 4 * k);
        return p;
    }
    case ElementType::Cone: {
        Cone c;
        c.coneType = in.word(B);
        for (std::size_t i = 0; i < 4; ++i) c.quaternion[i] = in.int32(B + 2 + 4 * i);
        c.centre1 = in.doublePoint(B + 18, true);
        c.radius1 = in.vax(B + 42);
        c.centre2 = in.doublePoint(B + 50, true);
        c.radius2 = in.vax(B + 74);
        return c;
    }
    case ElementType::BSplineCurveHeader:
        return BSplineCurveHeader{static_cast<std::uint32_t>(in.int32(B)), in.word(B + 4), in.word(B + 6),
                                  in.word(B + 8)};
    case ElementType::BSplineSurfaceHeader: {
        BSplineSurfaceHeader s;
        s.descriptionWords = static_cast<std::uint32_t>(in.int32(B));
        s.uFlags = in.word(B + 4);
        s.uPoleCount = in.word(B + 6);
        s.uKnotCount = in.word(B + 8);
        s.uRuleCount = in.word(B + 10);
        s.vFlags = in.word(B + 12);
        s.vPoleCount = in.word(B + 14);
        s.vKnotCount = in.word(B + 16);
        s.vRuleCount = in.word(B + 18);
        s.boundaryCount = in.word(B + 20);
        return s;
    }
    case ElementType::BSplineBoundary: {
        BSplineBoundary b;
        b.number = in.word(B);
        const std::size_t count = in.word(B + 2);
        if (!in.has(B + 4, count * 8)) {
            in.markShort();
            return b;
        }
        b.points.resize(count);
        for (std::size_t i = 0; i < count; ++i) b.points[i] = {in.int32(B + 4 + 8 * i), in.int32(B + 8 + 8 * i)};
        return b;
    }
    case ElementType::BSplineKnot:
    case ElementType::BSplineWeight: {
        // The count follows from the element's length, not from the curve
        // header, so a knot element never reads past itself.
        BSplineValues v;
        const std::size_t count = bodyEnd > B ? (bodyEnd - B) / 4 : 0;
        v.values.resize(count);
        for (std::size_t i = 0; i < count; ++i) v.values[i] = in.int32(B + 4 * i);
        return v;
    }
    case ElementType::RasterHeader: {
        RasterHeader r;
        r.totalWords = static_cast<std::uint32_t>(in.int32(B));
        r.flags = in.word(B + 4);
        r.foreground = in.byte(B + 6);
        r.background = in.byte(B + 7);
        r.xExtent = in.word(B + 8);
        r.yExtent = in.word(B + 10);
        r.reserved = {in.word(B + 12), in.word(B + 14)};
        r.resolution = in.vax(B + 16);
        r.scale = in.vax(B + 24);
        r.origin = in.point(B + 32, true);
        r.clip = points(in, B + 46, in.word(B + 44), is3d);
        return r;
    }
    case ElementType::RasterData: {
        RasterData r;
        r.flags = in.word(B);
        r.foreground = in.byte(B + 2);
        r.background = in.byte(B + 3);
        r.xOffset = in.word(B + 4);
        r.yOffset = in.word(B + 6);
        r.pixelCount = in.word(B + 8);
        r.pixels = in.bytes(B + 10, bodyEnd > B + 10 ? bodyEnd - B - 10 : 0);
        return r;
    }
    default:
        return RawBody{};
    }
}

} // namespace

Element decodeElement(std::span<const std::byte> bytes, bool is3d, std::string* problem)
{
    Element element;
    element.source = bytes;
    In in(bytes);
    Header& h = element.header;
    const std::uint8_t levelByte = in.byte(0);
    const std::uint8_t typeByte = in.byte(1);
    h.level = levelByte & 0x3F;
    h.complex = (levelByte & 0x80) != 0;
    h.type = static_cast<ElementType>(typeByte & 0x7F);
    h.deleted = (typeByte & 0x80) != 0;
    if (!in.ok()) {
        if (problem) *problem = "element shorter than its 4-byte header";
        return element;
    }

    std::size_t bodyEnd = bytes.size();
    bool badAttributeIndex = false;
    if (hasDisplayHeader(h.type) && bytes.size() >= BodyOffset) {
        Range r;
        r.low = {rangeFromStored(in.int32(RangeOffset)), rangeFromStored(in.int32(RangeOffset + 4)),
                 rangeFromStored(in.int32(RangeOffset + 8))};
        r.high = {rangeFromStored(in.int32(RangeOffset + 12)), rangeFromStored(in.int32(RangeOffset + 16)),
                  rangeFromStored(in.int32(RangeOffset + 20))};
        h.range = r;
        h.graphicGroup = in.word(GraphicGroupOffset);
        h.properties = in.word(PropertiesOffset);
        h.symbology = symbology(in.word(SymbologyOffset));
        if (h.properties & Property::Attributes) {
            const std::size_t at = AttributeIndexOffset + 2 + 2 * std::size_t{in.word(AttributeIndexOffset)};
            if (at >= BodyOffset && at <= bytes.size()) {
                bodyEnd = at;
                h.attributes = in.bytes(at, bytes.size() - at);
            } else {
                badAttributeIndex = true;
            }
        }
    } else if (hasDisplayHeader(h.type)) {
        // Too short for a display header: nothing more can be said about it.
        if (problem) *problem = "element too short for its display header (" + std::to_string(bytes.size()) + " bytes)";
        return element;
    }

    Body body = decodeBody(h, in, bodyEnd, is3d);
    if (!in.ok()) {
        if (problem)
            *problem = "element too short for a " + elementTypeName(h.type) + " record (" + std::to_string(bytes.size())
                + " bytes); kept as raw bytes";
        return element;
    }
    // Types without a record may use the attribute index for something else.
    if (badAttributeIndex && problem && !std::holds_alternative<RawBody>(body))
        *problem = "attribute index points outside the element; linkages ignored";
    element.body = std::move(body);
    return element;
}

} // namespace Kora::Dgn::V7
