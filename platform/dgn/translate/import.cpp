#include <algorithm>
#include <cmath>
#include <filesystem>
#include <functional>
#include <optional>
#include <numbers>
#include <string>

#include "importdesign.h"
#include "importreference.h"
#include "importsymbology.h"
#include "importwriter.h"
#include "kora/db/database.h"
#include "kora/dgn/dgnfile.h"
#include "kora/dgn/naming.h"
#include "kora/dgn/v7/reader.h"
#include "kora/editor.h"

namespace fs = std::filesystem;
using namespace Kora::Dgn::V7;

namespace Kora::Dgn {

namespace {

constexpr double kPi = std::numbers::pi;
constexpr double kDegree = kPi / 180.0;

KoString latin1(const std::string& bytes)
{
    std::wstring text;
    text.reserve(bytes.size());
    for (const char c : bytes) text += static_cast<wchar_t>(static_cast<unsigned char>(c));
    return KoString(std::move(text));
}

// Text bytes as stored: 16-bit texts start with 0xFF 0xFD and hold
// little-endian code units; others are single bytes (Latin-1).
KoString textOf(const std::string& bytes)
{
    if (bytes.size() >= 2 && static_cast<unsigned char>(bytes[0]) == 0xFF
        && static_cast<unsigned char>(bytes[1]) == 0xFD) {
        std::wstring text;
        for (std::size_t i = 2; i + 1 < bytes.size(); i += 2) {
            const wchar_t unit = static_cast<wchar_t>(static_cast<unsigned char>(bytes[i])
                                                      | (static_cast<unsigned char>(bytes[i + 1]) << 8));
            if (unit == 0) break;
            text += unit;
        }
        return KoString(std::move(text));
    }
    return latin1(bytes);
}

// A design checked whole, its elements kept as their bytes and decoded
// again as they are translated: the decoded records of a large design take
// many times the file's size.
class StoredDesign {
public:
    DesignInfo info;
    std::optional<ColourTable> colourTable; // the last one in the file

    std::size_t size() const { return m_elements.size(); }
    Element at(std::size_t i) const { return decodeElement(m_elements[i].bytes, info.is3d); }
    ElementType type(std::size_t i) const
    {
        return static_cast<ElementType>(std::to_integer<unsigned>(m_elements[i].bytes.span()[1]) & 0x7F);
    }
    // The elements of a complex element that follow its header: those with
    // the complex bit inside the words the header counts.
    std::size_t componentsEnd(std::size_t header, std::uint16_t totalWords) const
    {
        const std::size_t end = m_elements[header].offset + 38 + std::size_t{totalWords} * 2;
        std::size_t i = header + 1;
        while (i < m_elements.size() && (std::to_integer<unsigned>(m_elements[i].bytes.span()[0]) & 0x80) != 0
               && m_elements[i].offset < end)
            ++i;
        return i;
    }

    static std::expected<StoredDesign, ReadError> read(const fs::path& file)
    {
        auto bytes = readFileBytes(file);
        if (!bytes) return std::unexpected(bytes.error());
        auto reader = Reader::open(std::move(*bytes));
        if (!reader) return std::unexpected(reader.error());
        StoredDesign design;
        design.info = reader->info();
        Element element;
        while (reader->next(element)) {
            design.m_elements.push_back({element.source, element.offset});
            if (const auto* colours = element.as<ColourTable>()) design.colourTable = *colours;
        }
        if (reader->error()) return std::unexpected(*reader->error());
        return design;
    }

private:
    struct Stored {
        ElementBytes bytes;
        std::size_t offset = 0;
    };
    std::vector<Stored> m_elements;
};

std::uint16_t totalWordsOf(const Element& element)
{
    if (const auto* cell = element.as<CellHeader>()) return cell->totalWords;
    if (const auto* node = element.as<TextNode>()) return node->totalWords;
    if (const auto* complex = element.as<ComplexHeader>()) return complex->totalWords;
    if (const auto* surface = element.as<SurfaceHeader>()) return surface->totalWords;
    return 0;
}

// The turn about Z and the uniform scale of a cell's transformation, when it
// is one. The matrix maps the cell's axes to the design's, its lowest bit
// worth 10000 / 2^31.
std::optional<std::pair<double, double>> cellFrame(const CellHeader& cell, bool is3d)
{
    constexpr double unit = 2147483648.0 / 10000.0;
    const auto& t = cell.transform;
    std::array<double, 9> m{};
    const int n = is3d ? 3 : 2;
    for (int row = 0; row < n; ++row)
        for (int column = 0; column < n; ++column)
            m[static_cast<std::size_t>(row * 3 + column)] = t[static_cast<std::size_t>(row * n + column)] / unit;
    if (!is3d) m[8] = std::hypot(m[0], m[3]);
    return turnAndScale(m);
}

// Types whose elements the codec decodes into a record of their own.
bool hasRecord(ElementType type)
{
    switch (type) {
    case ElementType::Line:
    case ElementType::LineString:
    case ElementType::Shape:
    case ElementType::Curve:
    case ElementType::Arc:
    case ElementType::Ellipse:
    case ElementType::Text:
    case ElementType::PointString:
    case ElementType::CellHeader:
    case ElementType::TextNode:
    case ElementType::ComplexChainHeader:
    case ElementType::ComplexShapeHeader:
    case ElementType::BSplineCurveHeader:
        return true;
    default:
        return false;
    }
}

class Importer {
public:
    Importer(const StoredDesign& design, const DgnImportState& state, KoDbDatabase* database,
             const ImportTarget& target, DgnTranslationReport& report, std::vector<KoDbObjectId>& created)
        : m_design(design), m_state(state), m_out(state, database, target, report, created, design.colourTable)
    {
        const Units& units = design.info.units;
        m_scale = state.masterUnits == 0 ? std::max(1, units.subPerMaster) : 1.0;
    }

    // Fills `block` (open for write) with the design, `base` (in drawing
    // units) becoming the block's origin. False when cancelled.
    bool run(KoDbBlockTableRecord* block, const KoGePoint3d& base = {});
    double scale() const { return m_scale; }
    const std::vector<ReferenceAttachment>& attachments() const { return m_attachments; }

private:
    std::size_t importElement(std::size_t index, const Sink& sink);
    void importCell(std::size_t index, std::size_t end, const Sink& sink);
    void importTextNode(std::size_t index, std::size_t end, const Sink& sink);
    void importComplex(std::size_t index, std::size_t end, const Sink& sink);
    std::size_t importBSpline(std::size_t index, const Sink& sink);
    void importArc(const Element& element, const Sink& sink);
    void importText(const Element& element, const Sink& sink);
    void importVertices(const Element& element, bool closed, const Sink& sink);
    bool appendOutline(const Element& element, const Sink& sink, Outline& outline) const;

    DesignSymbology symbology(const Header& header) const
    {
        const Symbology& s = header.symbology;
        return {header.level < MinLevel ? KoString() : KoString::fromUtf8(levelName(header.level)), s.colour, s.style,
                s.weight};
    }
    void add(KoDbEntity* entity, const Header& header, const Sink& sink)
    {
        m_out.add(entity, symbology(header), sink, elementTypeName(header.type));
    }
    void skip(const Element& element, const char* reason) { m_out.skip(elementTypeName(element.type()), reason); }

    KoGePoint3d point(const IntPoint& p, const Sink& sink) const;
    KoGePoint3d point(const DoublePoint& p, const Sink& sink) const;
    double length(double uor, const Sink& sink) const
    {
        return m_design.info.units.lengthToMaster(uor) * m_scale / sink.scale;
    }
    // The columns of an element's orientation: where its x, y and z axes go.
    std::array<KoGeVector3d, 3> axes(const Orientation& orientation, const Sink& sink) const;

    const StoredDesign& m_design;
    const DgnImportState& m_state;
    ImportWriter m_out;
    double m_scale = 1.0;
    std::vector<ReferenceAttachment> m_attachments;
};

KoGePoint3d Importer::point(const IntPoint& p, const Sink& sink) const
{
    const DoublePoint m = m_design.info.units.toMaster(p);
    return sink.local({m.x * m_scale, m.y * m_scale, m_design.info.is3d ? m.z * m_scale : 0.0});
}

KoGePoint3d Importer::point(const DoublePoint& p, const Sink& sink) const
{
    const DoublePoint m = m_design.info.units.toMaster(p);
    return sink.local({m.x * m_scale, m.y * m_scale, m_design.info.is3d ? m.z * m_scale : 0.0});
}

std::array<KoGeVector3d, 3> Importer::axes(const Orientation& orientation, const Sink& sink) const
{
    if (!m_design.info.is3d) {
        const double a = angleDegrees(orientation.angle) * kDegree - sink.rotation;
        return {KoGeVector3d(std::cos(a), std::sin(a), 0.0), KoGeVector3d(-std::sin(a), std::cos(a), 0.0),
                KoGeVector3d::kZAxis()};
    }
    const auto m = quaternionMatrix(orientation.quaternion);
    return {sink.turned({m[0][0], m[1][0], m[2][0]}), sink.turned({m[0][1], m[1][1], m[2][1]}),
            sink.turned({m[0][2], m[1][2], m[2][2]})};
}

bool Importer::run(KoDbBlockTableRecord* block, const KoGePoint3d& base)
{
    const Sink sink{block, base};
    for (std::size_t i = 0; i < m_design.size();) {
        i = importElement(i, sink);
        if (!m_out.progress(i, m_design.size())) return false;
    }
    return true;
}

std::size_t Importer::importElement(std::size_t index, const Sink& sink)
{
    const Element element = m_design.at(index);
    const Header& header = element.header;
    std::size_t next = index + 1;
    if (isComplexHeader(header.type)) next = m_design.componentsEnd(index, totalWordsOf(element));
    if (header.deleted) return next;
    ++m_out.report().itemsRead;
    if (header.type == ElementType::GroupData && header.level == 9) {
        if (auto attachment = readReferenceAttachment(element))
            m_attachments.push_back(std::move(*attachment));
        else
            skip(element, "reference attachment that cannot be read");
        return next;
    }
    // Non-graphic elements (the design header, colour tables, application
    // data) and elements on level 0 carry no drawing content.
    // Drawing elements on level 0 (cell headers often, every element some
    // writers make) go to layer 0; other types there are seed data.
    if (!hasDisplayHeader(header.type) || header.type == ElementType::GroupData
        || header.type == ElementType::ApplicationElement || header.level > MaxLevel
        || (header.level < MinLevel && !hasRecord(header.type)))
        return next;

    // Elements too short for their record are kept as raw bytes.
    if (element.as<RawBody>() && hasRecord(header.type)) {
        skip(element, "damaged element");
        return next;
    }
    switch (header.type) {
    case ElementType::Line:
        // A line that starts where it ends is how V7 files hold a point.
        if (const auto* line = element.as<Line>(); line && line->start == line->end)
            add(new KoDbPoint(point(line->start, sink)), header, sink);
        else if (line)
            add(new KoDbLine(point(line->start, sink), point(line->end, sink)), header, sink);
        break;
    case ElementType::LineString:
        importVertices(element, false, sink);
        break;
    case ElementType::Shape:
        importVertices(element, true, sink);
        break;
    case ElementType::Curve:
        if (const auto* curve = element.as<Vertices>()) {
            std::vector<KoGePoint3d> points;
            for (const IntPoint& p : curve->points) points.push_back(point(p, sink));
            if (auto* spline = curveEntity(points))
                add(spline, header, sink);
            else
                skip(element, "curve with fewer than six points");
        }
        break;
    case ElementType::Arc:
    case ElementType::Ellipse:
        importArc(element, sink);
        break;
    case ElementType::Text:
        importText(element, sink);
        break;
    case ElementType::PointString:
        if (const auto* points = element.as<PointString>())
            for (const IntPoint& p : points->points) add(new KoDbPoint(point(p, sink)), header, sink);
        break;
    case ElementType::CellHeader:
        importCell(index, next, sink);
        break;
    case ElementType::TextNode:
        importTextNode(index, next, sink);
        break;
    case ElementType::ComplexChainHeader:
    case ElementType::ComplexShapeHeader:
        importComplex(index, next, sink);
        break;
    case ElementType::BSplineCurveHeader:
        next = importBSpline(index, sink);
        break;
    case ElementType::SurfaceHeader:
    case ElementType::SolidHeader:
    case ElementType::Cone:
    case ElementType::BSplineSurfaceHeader:
        skip(element, "3D surface or solid");
        break;
    case ElementType::RasterHeader:
        skip(element, "raster image");
        while (next < m_design.size() && m_design.type(next) == ElementType::RasterData) ++next;
        break;
    default:
        skip(element, "not translatable");
        break;
    }
    return next;
}

void Importer::importVertices(const Element& element, bool closed, const Sink& sink)
{
    const auto* vertices = element.as<Vertices>();
    if (!vertices) return;
    std::vector<KoGePoint3d> points;
    points.reserve(vertices->points.size());
    for (const IntPoint& p : vertices->points) points.push_back(point(p, sink));
    m_out.addPolyline(std::move(points), closed, symbology(element.header), fillColour(element.header), sink,
                      elementTypeName(element.type()));
}

void Importer::importArc(const Element& element, const Sink& sink)
{
    double primary = 0, secondary = 0, start = 0, sweep = 360;
    const Orientation* orientation = nullptr;
    const DoublePoint* origin = nullptr;
    if (const auto* arc = element.as<Arc>()) {
        primary = arc->primaryAxis;
        secondary = arc->secondaryAxis;
        start = angleDegrees(arc->startAngle);
        sweep = arc->sweepAngle == 0 ? 360.0 : angleDegrees(arc->sweepAngle);
        orientation = &arc->orientation;
        origin = &arc->origin;
    } else if (const auto* ellipse = element.as<Ellipse>()) {
        primary = ellipse->primaryAxis;
        secondary = ellipse->secondaryAxis;
        orientation = &ellipse->orientation;
        origin = &ellipse->origin;
    } else {
        return;
    }
    primary = length(primary, sink);
    secondary = length(secondary, sink);
    if (primary <= 0.0 || secondary <= 0.0) {
        skip(element, "arc or ellipse without size");
        return;
    }
    const auto [xAxis, yAxis, zAxis] = axes(*orientation, sink);
    add(conicEntity(point(*origin, sink), xAxis, yAxis, primary, secondary, start * kDegree,
                    std::abs(sweep) >= 360.0 ? 2.0 * kPi : sweep * kDegree),
        element.header, sink);
}

void Importer::importText(const Element& element, const Sink& sink)
{
    const auto* text = element.as<Text>();
    if (!text) return;
    const double height = length(textSizeUor(text->heightMultiplier), sink);
    const double width = length(textSizeUor(text->lengthMultiplier), sink);
    const auto [xAxis, yAxis, zAxis] = axes(text->orientation, sink);
    add(textEntity(point(text->origin, sink), xAxis, yAxis, textOf(text->text), height, width, text->justification),
        element.header, sink);
}

void Importer::importTextNode(std::size_t index, std::size_t end, const Sink& sink)
{
    const Element element = m_design.at(index);
    const auto* node = element.as<TextNode>();
    if (!node) return;
    if (m_state.explodeTextNodes == 1) {
        for (std::size_t i = index + 1; i < end; ++i) {
            const Element component = m_design.at(i);
            if (component.header.deleted) continue;
            ++m_out.report().itemsRead;
            if (component.as<Text>())
                importText(component, sink);
            else
                skip(component, "not a text in a text node");
        }
        return;
    }
    std::vector<KoString> lines;
    std::optional<Header> first;
    for (std::size_t i = index + 1; i < end; ++i) {
        const Element component = m_design.at(i);
        const auto* text = component.as<Text>();
        if (!text || component.header.deleted) continue;
        ++m_out.report().itemsRead;
        if (!first) first = component.header;
        lines.push_back(textOf(text->text));
    }
    if (!first) {
        skip(element, "empty text node");
        return;
    }
    const auto [xAxis, yAxis, zAxis] = axes(node->orientation, sink);
    const double height = length(textSizeUor(node->heightMultiplier), sink);
    auto* mtext = mtextEntity(point(node->origin, sink), xAxis, lines, height, node->justification);
    // The node's spacing is the gap between lines; a factor of 1 puts lines
    // 5/3 of the text height apart.
    if (node->lineSpacing > 0 && height > 0.0)
        mtext->setLineSpacingFactor(std::clamp((height + length(node->lineSpacing, sink)) / (height * 5.0 / 3.0), 0.25, 4.0));
    // The node itself has a level and symbology; its texts may differ, the
    // first one speaks for the whole.
    add(mtext, *first, sink);
}

void Importer::importCell(std::size_t index, std::size_t end, const Sink& sink)
{
    const Element element = m_design.at(index);
    const auto* cell = element.as<CellHeader>();
    if (!cell) return;
    // The block holds the components in the cell's own frame when its
    // transformation is a turn about Z and a uniform scale, and as the
    // design draws them otherwise; the reference places them back.
    const KoGePoint3d origin = point(cell->origin, Sink{});
    const auto [rotation, scale] = cellFrame(*cell, m_design.info.is3d).value_or(std::pair{0.0, 1.0});
    std::string name = radix50Name(cell->name);
    if (name.empty()) name = "CELL";
    const KoDbObjectId blockId = addBlock(m_out.database(), m_out.prefixed(latin1(name)), m_out.created());
    KoDbBlockTableRecord* block = nullptr;
    if (blockId.isNull() || kodbOpenObject(block, blockId, KoDb::kForWrite) != eOk) {
        skip(element, "cell whose block could not be made");
        return;
    }
    const Sink inner{block, origin, rotation, scale};
    for (std::size_t i = index + 1; i < end;) i = importElement(i, inner);
    block->close();
    auto* reference = new KoDbBlockReference(sink.local(origin), blockId);
    const double relative = scale / sink.scale;
    reference->setScaleFactors({relative, relative, relative});
    reference->setRotation(rotation - sink.rotation);
    Header header = element.header;
    // What the reference shows with comes from the components.
    add(reference, header, sink);
}

bool Importer::appendOutline(const Element& element, const Sink& sink, Outline& outline) const
{
    const double tolerance = 1e-9 * std::max(1.0, length(1.0, sink) * 1000.0);
    auto append = [&](const KoGePoint3d& p, double bulge) { return outline.append(p, bulge, tolerance); };
    if (const auto* line = element.as<Line>())
        return append(point(line->start, sink), 0.0) && append(point(line->end, sink), 0.0);
    if (const auto* vertices = element.as<Vertices>(); vertices && element.type() != ElementType::Curve) {
        for (const IntPoint& p : vertices->points)
            if (!append(point(p, sink), 0.0)) return false;
        return true;
    }
    if (const auto* arc = element.as<Arc>()) {
        if (std::abs(arc->primaryAxis - arc->secondaryAxis) > 1e-12 * std::abs(arc->primaryAxis) || arc->sweepAngle == 0)
            return false;
        const auto [xAxis, yAxis, zAxis] = axes(arc->orientation, sink);
        return outline.appendArc(point(arc->origin, sink), xAxis, yAxis, length(arc->primaryAxis, sink),
                                 angleDegrees(arc->startAngle) * kDegree, angleDegrees(arc->sweepAngle) * kDegree,
                                 tolerance);
    }
    return false;
}

void Importer::importComplex(std::size_t index, std::size_t end, const Sink& sink)
{
    const Element element = m_design.at(index);
    const bool closed = element.type() == ElementType::ComplexShapeHeader;
    std::vector<Element> components;
    for (std::size_t i = index + 1; i < end; ++i)
        if (Element component = m_design.at(i); !component.header.deleted) components.push_back(std::move(component));
    if (components.empty()) {
        skip(element, "complex element without components");
        return;
    }
    Outline outline;
    bool single = true;
    for (std::size_t i = 0; i < components.size() && single; ++i) single = appendOutline(components[i], sink, outline);
    if (single && outline.vertices.size() >= 2) {
        m_out.report().itemsRead += components.size();
        if (closed && outline.vertices.size() > 2 && outline.vertices.front().point == outline.vertices.back().point)
            outline.vertices.pop_back();
        // The components carry the symbology; the header's level and the
        // fill linkage are the complex element's.
        Header header = components[0].header;
        header.level = element.header.level;
        m_out.addOutline(outline, closed, symbology(header), fillColour(element.header), sink,
                         elementTypeName(element.type()));
        return;
    }
    // Straight components off one plane still make one polyline, in 3D;
    // the first point of a component repeats the last one of the one
    // before, even where only their plan positions agree.
    std::vector<KoGePoint3d> points;
    bool straight = true;
    for (const Element& component : components) {
        if (!straight) break;
        std::vector<IntPoint> stored;
        if (const auto* line = component.as<Line>())
            stored = {line->start, line->end};
        else if (const auto* vertices = component.as<Vertices>(); vertices && component.type() != ElementType::Curve)
            stored = vertices->points;
        else
            straight = false;
        for (const IntPoint& p : stored) {
            const KoGePoint3d q = point(p, sink);
            if (points.empty() || points.back().x != q.x || points.back().y != q.y) points.push_back(q);
        }
    }
    if (straight && points.size() >= 2) {
        m_out.report().itemsRead += components.size();
        if (closed && points.size() > 2 && points.front().x == points.back().x && points.front().y == points.back().y)
            points.pop_back();
        auto* polyline = new KoDb3dPolyline;
        polyline->setVertices(std::move(points));
        polyline->setClosed(closed);
        Header header = components[0].header;
        header.level = element.header.level;
        add(polyline, header, sink);
        if (closed && fillColour(element.header)) skip(element, "fill of a shape that is not flat");
        return;
    }
    // Otherwise the components stay as they are.
    for (std::size_t i = index + 1; i < end;) i = importElement(i, sink);
    if (closed && fillColour(element.header)) skip(element, "fill of a shape that is not flat");
}

std::size_t Importer::importBSpline(std::size_t index, const Sink& sink)
{
    const Element element = m_design.at(index);
    const auto* curve = element.as<BSplineCurveHeader>();
    std::size_t next = index + 1;
    std::optional<Element> poles, knots, weights;
    for (; next < m_design.size(); ++next) {
        const ElementType type = m_design.type(next);
        if (type == ElementType::BSplinePole && !poles) poles = m_design.at(next);
        else if (type == ElementType::BSplineKnot && !knots) knots = m_design.at(next);
        else if (type == ElementType::BSplineWeight && !weights) weights = m_design.at(next);
        else break;
    }
    const auto* poleList = poles ? poles->as<Vertices>() : nullptr;
    if (!curve || !poleList || poleList->points.size() < 2) {
        skip(element, "B-spline curve without poles");
        return next;
    }
    if (curve->closed()) {
        skip(element, "closed B-spline curve");
        return next;
    }
    const int order = std::min<int>(curve->order(), static_cast<int>(poleList->points.size()));
    const std::size_t count = poleList->points.size();
    // The file holds the interior knots only (scaled by 2^31 - 1); without
    // them the knots are uniform. The ends are clamped.
    std::vector<double> interior;
    if (const auto* k = knots ? knots->as<BSplineValues>() : nullptr)
        for (const std::int32_t v : k->values) interior.push_back(v / 2147483647.0);
    const std::size_t interiorCount = count - static_cast<std::size_t>(order);
    if (interior.size() != interiorCount) {
        interior.clear();
        for (std::size_t i = 1; i <= interiorCount; ++i)
            interior.push_back(static_cast<double>(i) / static_cast<double>(interiorCount + 1));
    }
    std::vector<double> knotVector(static_cast<std::size_t>(order), 0.0);
    knotVector.insert(knotVector.end(), interior.begin(), interior.end());
    knotVector.insert(knotVector.end(), static_cast<std::size_t>(order), 1.0);
    std::vector<KoGePoint3d> points;
    for (const IntPoint& p : poleList->points) points.push_back(point(p, sink));
    std::vector<double> w;
    int flags = 0;
    if (curve->rational()) {
        if (const auto* values = weights ? weights->as<BSplineValues>() : nullptr; values && values->values.size() == count) {
            for (const std::int32_t v : values->values) w.push_back(v / 2147483647.0);
            flags |= 4;
        }
    }
    auto* spline = new KoDbSpline;
    spline->setNurbsData(order - 1, flags, std::move(knotVector), std::move(points), std::move(w));
    add(spline, element.header, sink);
    return next;
}

// The file a stored reference name means: as stored, beside the master
// file, or its file name alone beside the master file. Names written on
// other systems use backslashes and drive or device prefixes.
fs::path findReference(const fs::path& master, const std::string& spec)
{
    std::string name = spec;
    std::replace(name.begin(), name.end(), '\\', '/');
    const fs::path folder = master.parent_path();
    std::string bare = name;
    if (const auto colon = bare.rfind(':'); colon != std::string::npos) bare = bare.substr(colon + 1);
    std::error_code ec;
    for (const fs::path& candidate : {fs::path(name), folder / name, folder / fs::path(bare).filename()})
        if (!candidate.empty() && fs::is_regular_file(candidate, ec)) return candidate;
    return {};
}

// Converts the reference files a design attaches: each into a block named
// after it, placed where the attachment places it. False when cancelled.
bool importReferences(const Importer& master, const StoredDesign& masterDesign, const fs::path& masterFile,
                      const DgnImportState& state, KoDbDatabase* database, KxDgnExportInternalService* service,
                      const ImportTarget& target, KoDbObjectId spaceId, DgnTranslationReport& report,
                      std::vector<KoDbObjectId>& created, std::vector<Replacement>& replacements)
{
    bool replaceAll = false;
    for (const ReferenceAttachment& attachment : master.attachments()) {
        const fs::path file = findReference(masterFile, attachment.fileSpec);
        if (file.empty()) {
            report.referencesNotFound.push_back(KoString::fromUtf8(attachment.fileSpec));
            continue;
        }
        auto design = StoredDesign::read(file);
        if (!design) {
            report.notes.push_back(KoString::fromUtf8(file.string() + ": " + design.error().describe()));
            continue;
        }
        const KoString name = target.namePrefix + KoString::fromUtf8(file.stem().string());
        const KoDbObjectId existing = recordNamed(database->blockTableId(), name);
        KoDbObjectId blockId;
        if (!existing.isNull()) {
            int operation = replaceAll ? kDgnExistingOverwrite : state.existingXRefOperation;
            if (operation == kDgnExistingAsk) {
                const int choice = service && service->isEnabled() ? service->promptFileOverwrite(name)
                                                                   : int{kDgnOverwriteKeep};
                if (choice == kDgnOverwriteCancel) return false;
                replaceAll = choice == kDgnOverwriteReplaceAll;
                operation = choice == kDgnOverwriteKeep ? kDgnExistingKeep : kDgnExistingOverwrite;
            }
            if (operation != kDgnExistingOverwrite) blockId = existing;
        }
        DgnImportState referenceState = state;
        referenceState.file = KoString::fromUtf8(file.string());
        referenceState.translationMode = 0;
        referenceState.progress = nullptr;
        Importer reference(*design, referenceState, database, target, report, created);
        const Units& units = design->info.units;
        if (blockId.isNull()) {
            blockId = addBlock(database, name, created, KoString::fromUtf8(file.string()));
            KoDbBlockTableRecord* block = nullptr;
            if (blockId.isNull() || kodbOpenObject(block, blockId, KoDb::kForWrite) != eOk) {
                report.notes.push_back(name + L": the reference's block could not be made.");
                continue;
            }
            const DoublePoint base = units.toMaster(attachment.referenceOrigin);
            reference.run(block, {base.x * reference.scale(), base.y * reference.scale(),
                                  design->info.is3d ? base.z * reference.scale() : 0.0});
            block->close();
            if (!reference.attachments().empty())
                report.skip("Reference attachment", "references of references are not converted",
                            reference.attachments().size());
            if (!existing.isNull()) replacements.push_back({existing, blockId});
        }
        // The block holds the reference in its own units; the reference
        // scales them to the master's and turns them as the attachment does.
        const double referencePerUnit = units.uorPerMaster() / reference.scale();
        const double masterPerUnit = masterDesign.info.units.uorPerMaster() / master.scale();
        const double scale = attachment.conversion * referencePerUnit / masterPerUnit;
        const DoublePoint at = masterDesign.info.units.toMaster(attachment.masterOrigin);
        auto* insert = new KoDbBlockReference({at.x * master.scale(), at.y * master.scale(),
                                               masterDesign.info.is3d ? at.z * master.scale() : 0.0},
                                              blockId);
        insert->setScaleFactors({scale, scale, scale});
        insert->setRotation(std::atan2(attachment.matrix[3], attachment.matrix[0]));
        insert->setLayer(database->layerZero());
        KoDbBlockTableRecord* space = nullptr;
        KoDbObjectId id;
        if (kodbOpenObject(space, spaceId, KoDb::kForWrite) == eOk && space->appendKoDbEntity(id, insert) == eOk) {
            insert->close();
            created.push_back(id);
            ++report.itemsWritten;
        } else {
            delete insert;
        }
        if (space) space->close();
    }
    return true;
}

// A replaced reference block: its references take the new block, which
// then takes the old one's name.
void replaceBlock(KoDbDatabase* database, const Replacement& replacement)
{
    forEachEntity(database, [&](KoDbObjectId id) {
        KoDbBlockReference* insert = nullptr;
        if (kodbOpenObject(insert, id, KoDb::kForRead) != eOk) return;
        if (insert->blockTableRecord() == replacement.old && insert->upgradeOpen() == eOk)
            insert->setBlockTableRecord(replacement.fresh);
        insert->close();
    });
    KoDbBlockTableRecord* old = nullptr;
    KoString name;
    if (kodbOpenObject(old, replacement.old, KoDb::kForWrite) == eOk) {
        name = old->getName();
        old->erase();
        old->close();
    }
    KoDbBlockTableRecord* fresh = nullptr;
    if (!name.isEmpty() && kodbOpenObject(fresh, replacement.fresh, KoDb::kForWrite) == eOk) {
        fresh->setName(name);
        fresh->close();
    }
}

} // namespace

void forEachEntity(KoDbDatabase* database, const std::function<void(KoDbObjectId)>& visit)
{
    std::vector<KoDbObjectId> entities;
    KoDbBlockTable* table = nullptr;
    if (database->getBlockTable(table, KoDb::kForRead) != eOk) return;
    for (auto records = table->newIterator(); !records->done(); records->step()) {
        KoDbBlockTableRecord* block = nullptr;
        if (records->getRecord(block) != eOk) continue;
        for (auto it = block->newIterator(); !it->done(); it->step()) {
            KoDbObjectId id;
            if (it->getEntityId(id) == eOk) entities.push_back(id);
        }
        block->close();
    }
    table->close();
    for (const KoDbObjectId id : entities) visit(id);
}

KoString uniqueBlockName(KoDbDatabase* database, const KoString& base)
{
    KoDbBlockTable* table = nullptr;
    if (database->getBlockTable(table, KoDb::kForRead) != eOk) return base;
    KoString name = base;
    for (int n = 2; table->has(name); ++n) name = base + KoString::fromUtf8("_" + std::to_string(n));
    table->close();
    return name;
}

void printSummary(const DgnTranslationReport& report)
{
    for (const KoString& line : report.summary()) koutPrintf(L"%s\n", line.c_str());
}

int importDesign(const DgnImportState& state, KoDbDatabase* database, KxDgnExportInternalService* service,
                 const ImportTarget& target, DgnTranslationReport& report, KoDbObjectId* blockId)
{
    report.direction = DgnTranslationReport::Direction::Import;
    const fs::path file(state.file.toUtf8());
    // The whole design is read and decoded before the drawing is touched.
    auto design = StoredDesign::read(file);
    if (!design && design.error().code == ReadError::Code::UnsupportedV8)
        return importV8Design(state, database, target, report, blockId);
    if (!design) {
        report.notes.push_back(state.file + KoString::fromUtf8(": " + design.error().describe()));
        return KORTERROR;
    }
    return placeDesign(
        state, database, target, report, blockId, KoString::fromUtf8(file.stem().string()),
        [&](KoDbObjectId spaceId, std::vector<KoDbObjectId>& created, std::vector<Replacement>& replacements) {
            Importer importer(*design, state, database, target, report, created);
            KoDbBlockTableRecord* space = nullptr;
            if (kodbOpenObject(space, spaceId, KoDb::kForWrite) != eOk) return Placement::Failed;
            bool finished = importer.run(space);
            space->close();
            if (finished && state.translationMode != 0)
                finished = importReferences(importer, *design, file, state, database, service, target, spaceId,
                                            report, created, replacements);
            else if (!importer.attachments().empty())
                report.skip("Reference attachment", "references are not converted in this mode",
                            importer.attachments().size());
            return finished ? Placement::Done : Placement::Cancelled;
        });
}

int placeDesign(const DgnImportState& state, KoDbDatabase* database, const ImportTarget& target,
                DgnTranslationReport& report, KoDbObjectId* blockId, const KoString& stem,
                const std::function<Placement(KoDbObjectId spaceId, std::vector<KoDbObjectId>& created,
                                              std::vector<Replacement>& replacements)>& fill)
{
    std::vector<KoDbObjectId> created;
    KoDbObjectId designBlock;
    KoDbObjectId spaceId = database->modelSpaceId();
    const bool ownBlock = !target.blockName.isEmpty() || state.targetMode == 2;
    if (ownBlock) {
        designBlock = addBlock(database, !target.blockName.isEmpty() ? target.blockName : stem, created);
        spaceId = designBlock;
    }
    std::vector<Replacement> replacements;
    const Placement placed = spaceId.isNull() ? Placement::Failed : fill(spaceId, created, replacements);
    if (placed == Placement::Failed) {
        eraseCreated(created);
        report.notes.push_back(L"The drawing's block could not be opened for the import.");
        return KORTERROR;
    }
    bool finished = placed == Placement::Done;
    if (finished && ownBlock && target.blockName.isEmpty()) {
        KoDbBlockTableRecord* model = nullptr;
        if (kodbOpenObject(model, database->modelSpaceId(), KoDb::kForWrite) == eOk) {
            KoDbObjectId id;
            auto* reference = new KoDbBlockReference(KoGePoint3d::kOrigin(), designBlock);
            reference->setLayer(database->layerZero());
            if (model->appendKoDbEntity(id, reference) == eOk) {
                reference->close();
                created.push_back(id);
            } else {
                delete reference;
            }
            model->close();
        }
    }
    if (finished && state.progress) finished = state.progress(1.0);
    if (!finished) {
        eraseCreated(created);
        report.cancelled = true;
        return KORTERROR;
    }
    for (const Replacement& replacement : replacements) replaceBlock(database, replacement);
    if (blockId) *blockId = designBlock;
    return KORTNORM;
}

} // namespace Kora::Dgn

int DgnFile::doDgnImport(const DgnImportState& state, KoDbDatabase* database, KxDgnExportInternalService* service,
                         DgnTranslationReport* report)
{
    DgnTranslationReport own;
    DgnTranslationReport& result = report ? *report : own;
    result = DgnTranslationReport();
    if (!database) return KORTERROR;
    const int status = Kora::Dgn::importDesign(state, database, service, Kora::Dgn::ImportTarget(), result);
    Kora::Dgn::printSummary(result);
    return status;
}
