// Bytes of one element -> Element.
#include "kora/dgn/v7/reader.h"

#include "records.h"

namespace Kora::Dgn::V7 {

namespace {

using namespace Layout;
using Records::Dims;

template <class R> Body record(In& in, const Dims& d)
{
    R r;
    Records::fields(in, r, d);
    return r;
}

// Decodes the record of a type; `in` knows where the attribute linkages start.
Body decodeBody(const Header& header, In& in, bool is3d)
{
    const Dims d(is3d);
    switch (header.type) {
    case ElementType::Tcb: return record<Tcb>(in, d);
    case ElementType::DigitizerSetup: return record<DigitizerSetup>(in, d);
    case ElementType::LevelSymbology: return record<LevelSymbology>(in, d);
    case ElementType::GroupData:
        if (header.level == 1) return record<ColourTable>(in, d);
        [[fallthrough]];
    case ElementType::ApplicationElement: return record<GroupData>(in, d);
    case ElementType::CellHeader: return record<CellHeader>(in, d);
    case ElementType::Line: return record<Line>(in, d);
    case ElementType::LineString:
    case ElementType::Shape:
    case ElementType::Curve:
    case ElementType::BSplinePole: return record<Vertices>(in, d);
    case ElementType::TextNode: return record<TextNode>(in, d);
    case ElementType::ComplexChainHeader:
    case ElementType::ComplexShapeHeader: return record<ComplexHeader>(in, d);
    case ElementType::SurfaceHeader:
    case ElementType::SolidHeader: return record<SurfaceHeader>(in, d);
    case ElementType::Ellipse: return record<Ellipse>(in, d);
    case ElementType::Arc: return record<Arc>(in, d);
    case ElementType::Text: return record<Text>(in, d);
    case ElementType::PointString: return record<PointString>(in, d);
    case ElementType::Cone: return record<Cone>(in, d);
    case ElementType::BSplineCurveHeader: return record<BSplineCurveHeader>(in, d);
    case ElementType::BSplineSurfaceHeader: return record<BSplineSurfaceHeader>(in, d);
    case ElementType::BSplineBoundary: return record<BSplineBoundary>(in, d);
    case ElementType::BSplineKnot:
    case ElementType::BSplineWeight: return record<BSplineValues>(in, d);
    case ElementType::RasterHeader: return record<RasterHeader>(in, d);
    case ElementType::RasterData: return record<RasterData>(in, d);
    default: return RawBody{};
    }
}

void report(Diagnostic* problem, Diagnostic::Code code, Diagnostic::Severity severity, std::string message)
{
    if (!problem) return;
    problem->code = code;
    problem->severity = severity;
    problem->message = std::move(message);
}

} // namespace

Element decodeElement(ElementBytes source, bool is3d, Diagnostic* problem)
{
    Element element;
    element.source = std::move(source);
    const std::span<const std::byte> bytes = element.source;
    In in(bytes);
    Header& h = element.header;
    const std::uint8_t levelByte = in.byte(0);
    const std::uint8_t typeByte = in.byte(1);
    h.level = levelByte & 0x3F;
    h.complex = (levelByte & 0x80) != 0;
    h.type = static_cast<ElementType>(typeByte & 0x7F);
    h.deleted = (typeByte & 0x80) != 0;
    if (!in.ok()) {
        report(problem, Diagnostic::Code::ShortElement, Diagnostic::Severity::Error,
               "element shorter than its 4-byte header");
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
        Records::symbology(in, SymbologyOffset, h.symbology);
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
        report(problem, Diagnostic::Code::ShortElement, Diagnostic::Severity::Error,
               "element too short for its display header (" + std::to_string(bytes.size()) + " bytes)");
        return element;
    }

    In record(bytes, bodyEnd);
    Body body = decodeBody(h, record, is3d);
    if (!in.ok() || !record.ok()) {
        report(problem, Diagnostic::Code::ShortElement, Diagnostic::Severity::Error,
               "element too short for a " + elementTypeName(h.type) + " record (" + std::to_string(bytes.size())
                   + " bytes); kept as raw bytes");
        return element;
    }
    // Types without a record may use the attribute index for something else.
    if (badAttributeIndex && !std::holds_alternative<RawBody>(body))
        report(problem, Diagnostic::Code::AttributeIndexOutside, Diagnostic::Severity::Warning,
               "attribute index points outside the element; linkages ignored");
    element.body = std::move(body);
    return element;
}

} // namespace Kora::Dgn::V7
