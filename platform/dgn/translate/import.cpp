#include <algorithm>
#include <chrono>
#include <cmath>
#include <filesystem>
#include <functional>
#include <optional>
#include <map>
#include <numbers>
#include <string>

#include "importdesign.h"
#include "importreference.h"
#include "importsymbology.h"
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
// Progress is reported every so many elements, and then only when this
// long has passed since the last report.
constexpr std::size_t kProgressStep = 4096;
constexpr std::chrono::milliseconds kProgressInterval{250};

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

// Text for MTEXT contents: its control characters escaped.
std::wstring mtextEscaped(const KoString& text)
{
    std::wstring out;
    for (const wchar_t c : std::wstring_view(text.c_str())) {
        if (c == L'\\' || c == L'{' || c == L'}') out += L'\\';
        out += c;
    }
    return out;
}

KoGeVector3d operator-(const KoGeVector3d& v) { return {-v.x, -v.y, -v.z}; }

bool sameDirection(const KoGeVector3d& a, const KoGeVector3d& b) { return a.dotProduct(b) > 1.0 - 1e-12; }

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

// A 2D outline with bulges, the shape a lightweight polyline takes.
struct Outline {
    std::vector<KoDbPolyline::Vertex> vertices;
    double elevation = 0.0;
};

bool samePoint(const KoGePoint2d& a, const KoGePoint2d& b, double tolerance)
{
    return std::abs(a.x - b.x) <= tolerance && std::abs(a.y - b.y) <= tolerance;
}

// The live record of that name in a symbol table (null when none).
KoDbObjectId recordNamed(KoDbObjectId tableId, const KoString& name)
{
    KoDbObjectId id;
    KoDbSymbolTable* table = nullptr;
    if (kodbOpenObject(table, tableId, KoDb::kForRead) == eOk) {
        table->getAt(name, id);
        table->close();
    }
    return id;
}

// Adds a new record to a table and remembers it as made by the import; the
// null id when the table refuses it.
KoDbObjectId addRecord(KoDbObjectId tableId, KoDbSymbolTableRecord* record, std::vector<KoDbObjectId>& created)
{
    KoDbObjectId id;
    KoDbSymbolTable* table = nullptr;
    if (kodbOpenObject(table, tableId, KoDb::kForWrite) == eOk && table->add(id, record) == eOk) {
        record->close();
        created.push_back(id);
    } else {
        delete record;
        id = KoDbObjectId();
    }
    if (table) table->close();
    return id;
}

// A new block named `base` or, when that is taken, the first free "base_2", ...
KoDbObjectId addBlock(KoDbDatabase* database, const KoString& base, std::vector<KoDbObjectId>& created,
                      const KoString& path = {})
{
    auto* record = new KoDbBlockTableRecord;
    record->setName(uniqueBlockName(database, base));
    record->setPathName(path);
    return addRecord(database->blockTableId(), record, created);
}

// The turn about Z and the uniform scale of a cell's transformation, when it
// is one. The matrix maps the cell's axes to the design's, its lowest bit
// worth 10000 / 2^31; some writers leave it all zero, which is taken as no
// transformation.
void cellFrame(const CellHeader& cell, bool is3d, double& rotation, double& scale)
{
    constexpr double unit = 2147483648.0 / 10000.0;
    const auto& t = cell.transform;
    const auto at = [&](int row, int column) { return t[static_cast<std::size_t>(row * (is3d ? 3 : 2) + column)] / unit; };
    const double a = at(0, 0), b = at(0, 1), c = at(1, 0), d = at(1, 1);
    const double s = std::hypot(a, c);
    if (s <= 1e-9) return;
    const double tolerance = 1e-6 * s;
    bool similar = std::abs(a - d) <= tolerance && std::abs(b + c) <= tolerance;
    if (is3d)
        similar = similar && std::abs(at(0, 2)) <= tolerance && std::abs(at(1, 2)) <= tolerance
            && std::abs(at(2, 0)) <= tolerance && std::abs(at(2, 1)) <= tolerance && std::abs(at(2, 2) - s) <= tolerance;
    if (!similar) return;
    rotation = std::atan2(c, a);
    // The encoding cannot hold 1 exactly (214748 stands for 0.9999983).
    scale = std::abs(s - 1.0) < 1e-5 ? 1.0 : s;
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
        : m_design(design), m_state(state), m_db(database), m_target(target), m_report(report), m_created(created)
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
    // Where entities go: a block open for write, and the frame of the
    // block in the design's drawing units: the point that becomes its
    // origin, and the turn about Z and the scale of its axes.
    struct Sink {
        KoDbBlockTableRecord* block = nullptr;
        KoGePoint3d base;
        double rotation = 0.0;
        double scale = 1.0;

        KoGeVector3d turned(const KoGeVector3d& v) const
        {
            if (rotation == 0.0) return v;
            const double c = std::cos(rotation), s = std::sin(rotation);
            return {v.x * c + v.y * s, -v.x * s + v.y * c, v.z};
        }
        KoGePoint3d local(const KoGePoint3d& p) const
        {
            const KoGeVector3d v = turned(p - base) * (1.0 / scale);
            return {v.x, v.y, v.z};
        }
    };

    std::size_t importElement(std::size_t index, const Sink& sink);
    void importCell(std::size_t index, std::size_t end, const Sink& sink);
    void importTextNode(std::size_t index, std::size_t end, const Sink& sink);
    void importComplex(std::size_t index, std::size_t end, const Sink& sink);
    std::size_t importBSpline(std::size_t index, const Sink& sink);
    void importArc(const Element& element, const Sink& sink);
    void importText(const Element& element, const Sink& sink);
    void importVertices(const Element& element, bool closed, const Sink& sink);
    bool appendOutline(const Element& element, const Sink& sink, Outline& outline) const;
    void addOutline(const Outline& outline, bool closed, const Header& header, const Sink& sink);

    void add(KoDbEntity* entity, const Header& header, const Sink& sink);
    void skip(const Element& element, const char* reason);

    KoGePoint3d point(const IntPoint& p, const Sink& sink) const;
    KoGePoint3d point(const DoublePoint& p, const Sink& sink) const;
    double length(double uor, const Sink& sink) const
    {
        return m_design.info.units.lengthToMaster(uor) * m_scale / sink.scale;
    }
    // The columns of an element's orientation: where its x, y and z axes go.
    std::array<KoGeVector3d, 3> axes(const Orientation& orientation, const Sink& sink) const;

    KoString prefixed(const KoString& name) const { return m_target.namePrefix + name; }
    KoDbObjectId layer(int level);
    KoDbObjectId linetype(int style);

    const StoredDesign& m_design;
    const DgnImportState& m_state;
    KoDbDatabase* m_db;
    const ImportTarget& m_target;
    DgnTranslationReport& m_report;
    std::vector<KoDbObjectId>& m_created;
    double m_scale = 1.0;
    std::map<int, KoDbObjectId> m_layers;
    std::map<int, KoDbObjectId> m_linetypes;
    std::array<std::optional<KoCmColor>, ColourCount> m_colours;
    std::array<std::optional<KoDb::LineWeight>, WeightCount> m_weights;
    std::vector<ReferenceAttachment> m_attachments;
    std::chrono::steady_clock::time_point m_lastReport; // the first report is never held back
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

KoDbObjectId Importer::layer(int level)
{
    if (const auto found = m_layers.find(level); found != m_layers.end()) return found->second;
    if (level < MinLevel) return m_db->layerZero();
    const KoString dgnName = KoString::fromUtf8(levelName(level));
    const auto mapped = m_state.tables.levels.find(dgnName);
    const KoString name =
        prefixed(mapped == m_state.tables.levels.end() || mapped->second.trimmed().isEmpty() ? dgnName
                                                                                              : mapped->second.trimmed());
    KoDbObjectId id = recordNamed(m_db->layerTableId(), name);
    if (id.isNull()) {
        auto* record = new KoDbLayerTableRecord;
        record->setName(name);
        id = addRecord(m_db->layerTableId(), record, m_created);
        if (id.isNull()) id = m_db->layerZero();
    }
    m_layers.emplace(level, id);
    return id;
}

KoDbObjectId Importer::linetype(int style)
{
    if (const auto found = m_linetypes.find(style); found != m_linetypes.end()) return found->second;
    const KoString dgnName = KoString::fromUtf8(lineStyleName(style));
    const auto mapped = m_state.tables.lineStyles.find(dgnName);
    const bool isMapped = mapped != m_state.tables.lineStyles.end() && !mapped->second.trimmed().isEmpty();
    // A mapped target is the drawing's linetype of that name; one the
    // drawing does not have yet is made with the style's pattern under the
    // target's name.
    KoDbObjectId id = isMapped ? recordNamed(m_db->linetypeTableId(), mapped->second.trimmed()) : KoDbObjectId();
    if (id.isNull() && lineStyleDashes(style).empty()) id = m_db->continuousLinetype();
    if (id.isNull()) {
        const KoString name = prefixed(isMapped ? mapped->second.trimmed() : dgnName);
        id = recordNamed(m_db->linetypeTableId(), name);
        if (id.isNull()) {
            auto* record = new KoDbLinetypeTableRecord;
            record->setName(name);
            record->setComments(dgnName);
            record->setDashes(lineStyleDashes(style));
            id = addRecord(m_db->linetypeTableId(), record, m_created);
            if (id.isNull()) id = m_db->continuousLinetype();
        }
    }
    m_linetypes.emplace(style, id);
    return id;
}

void Importer::add(KoDbEntity* entity, const Header& header, const Sink& sink)
{
    const Symbology& s = header.symbology;
    entity->setLayer(layer(header.level));
    auto& colour = m_colours[s.colour];
    if (!colour) colour = importColour(m_state.tables.colours, m_design.colourTable, s.colour);
    entity->setColor(*colour);
    entity->setLinetype(linetype(s.style));
    auto& weight = m_weights[s.weight & 31];
    if (!weight) weight = importLineWeight(m_state.tables.weights, s.weight);
    entity->setLineWeight(*weight);
    KoDbObjectId id;
    if (sink.block->appendKoDbEntity(id, entity) != eOk) {
        delete entity;
        m_report.skip(elementTypeName(header.type), "could not be added to the drawing");
        return;
    }
    entity->close();
    m_created.push_back(id);
    ++m_report.itemsWritten;
}

void Importer::skip(const Element& element, const char* reason) { m_report.skip(elementTypeName(element.type()), reason); }

bool Importer::run(KoDbBlockTableRecord* block, const KoGePoint3d& base)
{
    const Sink sink{block, base};
    std::size_t nextReport = kProgressStep;
    for (std::size_t i = 0; i < m_design.size();) {
        i = importElement(i, sink);
        if (i >= nextReport && m_state.progress) {
            nextReport = i + kProgressStep;
            const auto now = std::chrono::steady_clock::now();
            if (now - m_lastReport < kProgressInterval) continue;
            m_lastReport = now;
            if (!m_state.progress(static_cast<double>(i) / static_cast<double>(m_design.size()))) return false;
        }
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
    ++m_report.itemsRead;
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
        if (const auto* curve = element.as<Vertices>(); curve && curve->points.size() >= 6) {
            // The first two and last two points only set the end tangents.
            std::vector<KoGePoint3d> points;
            for (std::size_t i = 2; i + 2 < curve->points.size(); ++i) points.push_back(point(curve->points[i], sink));
            auto* spline = new KoDbSpline;
            spline->setFitPoints(std::move(points));
            add(spline, header, sink);
        } else {
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
    if (!vertices || vertices->points.empty()) return;
    const Header& header = element.header;
    std::vector<KoGePoint3d> points;
    points.reserve(vertices->points.size());
    for (const IntPoint& p : vertices->points) points.push_back(point(p, sink));
    if (closed && points.size() > 1 && points.front() == points.back()) points.pop_back();
    const bool flat = std::all_of(points.begin(), points.end(), [&](const KoGePoint3d& p) { return p.z == points[0].z; });
    if (!flat) {
        auto* polyline = new KoDb3dPolyline;
        polyline->setVertices(std::move(points));
        polyline->setClosed(closed);
        add(polyline, header, sink);
        if (closed && fillColour(header)) skip(element, "fill of a shape that is not flat");
        return;
    }
    Outline outline;
    outline.elevation = points[0].z;
    for (const KoGePoint3d& p : points) outline.vertices.push_back({{p.x, p.y}});
    addOutline(outline, closed, header, sink);
}

void Importer::addOutline(const Outline& outline, bool closed, const Header& header, const Sink& sink)
{
    auto* polyline = new KoDbPolyline;
    polyline->setVertices(outline.vertices);
    polyline->setElevation(outline.elevation);
    polyline->setClosed(closed);
    add(polyline, header, sink);
    const auto fill = closed ? fillColour(header) : std::nullopt;
    if (!fill || outline.vertices.size() < 3) return;
    auto* hatch = new KoDbHatch;
    hatch->setSolidFill();
    hatch->setElevation(outline.elevation);
    KoDbHatch::Loop loop;
    loop.type = 1 | 2;
    bool bulged = false;
    for (const auto& v : outline.vertices) {
        loop.vertices.push_back(v.point);
        loop.bulges.push_back(v.bulge);
        bulged = bulged || v.bulge != 0.0;
    }
    if (!bulged) loop.bulges.clear();
    hatch->appendLoop(std::move(loop));
    Header fillHeader = header;
    fillHeader.symbology.colour = static_cast<std::uint8_t>(*fill);
    add(hatch, fillHeader, sink);
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
    const KoGePoint3d centre = point(*origin, sink);
    const bool full = std::abs(sweep) >= 360.0;
    // Sweeps go counter-clockwise in the arc's plane.
    double from = start, to = start + sweep;
    if (sweep < 0) std::swap(from, to);
    const KoGeVector3d normal = xAxis.crossProduct(yAxis).normal();
    const bool circular = std::abs(primary - secondary) <= 1e-12 * primary;
    if (circular && sameDirection(normal, KoGeVector3d::kZAxis())) {
        const double rotation = std::atan2(xAxis.y, xAxis.x);
        if (full) {
            add(new KoDbCircle(centre, KoGeVector3d::kZAxis(), primary), element.header, sink);
        } else {
            add(new KoDbArc(centre, primary, rotation + from * kDegree, rotation + to * kDegree), element.header,
                sink);
        }
        return;
    }
    // Otherwise an ellipse: its major axis is the longer one, and its
    // parameters are measured from it.
    KoGeVector3d major = xAxis * primary;
    double ratio = secondary / primary;
    double shift = 0.0;
    if (secondary > primary) {
        major = yAxis * secondary;
        ratio = primary / secondary;
        shift = -90.0;
    }
    auto* ellipse = new KoDbEllipse;
    if (full)
        ellipse->set(centre, normal, major, ratio);
    else
        ellipse->set(centre, normal, major, ratio, (from + shift) * kDegree, (to + shift) * kDegree);
    add(ellipse, element.header, sink);
}

void Importer::importText(const Element& element, const Sink& sink)
{
    const auto* text = element.as<Text>();
    if (!text) return;
    const double height = length(textSizeUor(text->heightMultiplier), sink);
    const double width = length(textSizeUor(text->lengthMultiplier), sink);
    const auto [xAxis, yAxis, zAxis] = axes(text->orientation, sink);
    const double rotation = std::atan2(xAxis.y, xAxis.x);
    auto* entity = new KoDbText;
    const KoGePoint3d origin = point(text->origin, sink);
    entity->setPosition(origin);
    entity->setTextString(textOf(text->text));
    entity->setHeight(height > 0.0 ? height : 1.0);
    entity->setWidthFactor(height > 0.0 && width > 0.0 ? width / height : 1.0);
    entity->setRotation(rotation);
    // The stored origin is the lower left corner whatever the
    // justification; the justified point is found from the character cell
    // size and the number of characters.
    // Justification codes: left, left margin, centre, right margin, right
    // (code / 3), each top, centre, bottom (code % 3).
    const int code = std::clamp(int{text->justification}, 0, 14);
    const int horizontal = code / 3;
    const int vertical = code % 3;
    if (horizontal > 1 || vertical < 2) {
        const double fx = horizontal <= 1 ? 0.0 : horizontal == 2 ? 0.5 : 1.0;
        const double fy = vertical == 0 ? 1.0 : vertical == 1 ? 0.5 : 0.0;
        const double textWidth = width * entity->textString().length();
        entity->setHorizontalMode(horizontal <= 1 ? KoDbText::kTextLeft
                                  : horizontal == 2 ? KoDbText::kTextCenter
                                                    : KoDbText::kTextRight);
        entity->setVerticalMode(vertical == 0 ? KoDbText::kTextTop
                                : vertical == 1 ? KoDbText::kTextVertMid
                                                : KoDbText::kTextBottom);
        entity->setAlignmentPoint(origin + xAxis * (fx * textWidth) + yAxis * (fy * height));
    }
    add(entity, element.header, sink);
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
            ++m_report.itemsRead;
            if (component.as<Text>())
                importText(component, sink);
            else
                skip(component, "not a text in a text node");
        }
        return;
    }
    std::wstring contents;
    std::optional<Header> first;
    for (std::size_t i = index + 1; i < end; ++i) {
        const Element component = m_design.at(i);
        const auto* text = component.as<Text>();
        if (!text || component.header.deleted) continue;
        ++m_report.itemsRead;
        if (!first) first = component.header;
        if (!contents.empty()) contents += L"\\P";
        contents += mtextEscaped(textOf(text->text));
    }
    if (!first) {
        skip(element, "empty text node");
        return;
    }
    const auto [xAxis, yAxis, zAxis] = axes(node->orientation, sink);
    auto* mtext = new KoDbMText;
    mtext->setLocation(point(node->origin, sink));
    mtext->setContents(KoString(std::move(contents)));
    const double height = length(textSizeUor(node->heightMultiplier), sink);
    mtext->setTextHeight(height > 0.0 ? height : 1.0);
    mtext->setDirection(xAxis);
    const int code = std::clamp(int{node->justification}, 0, 14);
    const int horizontal = code / 3 <= 1 ? 0 : code / 3 == 2 ? 1 : 2;
    mtext->setAttachment(static_cast<KoDbMText::AttachmentPoint>((code % 3) * 3 + horizontal + 1));
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
    double rotation = 0.0, scale = 1.0;
    cellFrame(*cell, m_design.info.is3d, rotation, scale);
    std::string name = radix50Name(cell->name);
    if (name.empty()) name = "CELL";
    const KoDbObjectId blockId = addBlock(m_db, prefixed(latin1(name)), m_created);
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
    auto append = [&](const KoGePoint3d& p, double bulge) {
        if (outline.vertices.empty()) outline.elevation = p.z;
        if (p.z != outline.elevation) return false;
        const KoGePoint2d q{p.x, p.y};
        if (!outline.vertices.empty() && samePoint(outline.vertices.back().point, q, tolerance))
            outline.vertices.back().bulge = bulge;
        else
            outline.vertices.push_back({q, bulge});
        return true;
    };
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
        const KoGeVector3d normal = xAxis.crossProduct(yAxis).normal();
        double sign = 1.0;
        if (sameDirection(normal, -KoGeVector3d::kZAxis()))
            sign = -1.0;
        else if (!sameDirection(normal, KoGeVector3d::kZAxis()))
            return false;
        const KoGePoint3d centre = point(arc->origin, sink);
        const double r = length(arc->primaryAxis, sink);
        const double a0 = angleDegrees(arc->startAngle) * kDegree;
        const double sweep = angleDegrees(arc->sweepAngle) * kDegree;
        auto at = [&](double a) { return centre + xAxis * (r * std::cos(a)) + yAxis * (r * std::sin(a)); };
        KoGePoint3d from = at(a0), to = at(a0 + sweep);
        double bulge = sign * std::tan(sweep / 4.0);
        // A component may run against the chain's direction.
        if (!outline.vertices.empty() && !samePoint(outline.vertices.back().point, {from.x, from.y}, tolerance)
            && samePoint(outline.vertices.back().point, {to.x, to.y}, tolerance)) {
            std::swap(from, to);
            bulge = -bulge;
        }
        return append(from, bulge) && append(to, 0.0);
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
        m_report.itemsRead += components.size();
        if (closed && outline.vertices.size() > 2
            && samePoint(outline.vertices.front().point, outline.vertices.back().point, 0.0))
            outline.vertices.pop_back();
        // The components carry the symbology; the header's level and the
        // fill linkage are the complex element's.
        Header header = components[0].header;
        header.level = element.header.level;
        header.attributes = element.header.attributes;
        addOutline(outline, closed, header, sink);
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
        m_report.itemsRead += components.size();
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

// Undoes an import: erases what it made, newest first.
void eraseCreated(const std::vector<KoDbObjectId>& created)
{
    for (auto it = created.rbegin(); it != created.rend(); ++it) {
        KoDbObject* object = nullptr;
        if (kodbOpenKoDbObject(object, *it, KoDb::kForWrite, false) != eOk) continue;
        object->erase();
        object->close();
    }
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

struct Replacement {
    KoDbObjectId old;
    KoDbObjectId fresh;
};

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
    if (!design) {
        if (design.error().code == ReadError::Code::UnsupportedV8)
            report.notes.push_back(state.file + L": a V8 design, which cannot be imported yet.");
        else
            report.notes.push_back(state.file + KoString::fromUtf8(": " + design.error().describe()));
        return KORTERROR;
    }

    std::vector<KoDbObjectId> created;
    Importer importer(*design, state, database, target, report, created);
    KoDbObjectId designBlock;
    KoDbObjectId spaceId = database->modelSpaceId();
    const bool ownBlock = !target.blockName.isEmpty() || state.targetMode == 2;
    if (ownBlock) {
        designBlock = addBlock(
            database, !target.blockName.isEmpty() ? target.blockName : KoString::fromUtf8(file.stem().string()), created);
        spaceId = designBlock;
    }
    KoDbBlockTableRecord* space = nullptr;
    if (spaceId.isNull() || kodbOpenObject(space, spaceId, KoDb::kForWrite) != eOk) {
        eraseCreated(created);
        report.notes.push_back(L"The drawing's block could not be opened for the import.");
        return KORTERROR;
    }
    bool finished = importer.run(space);
    space->close();
    std::vector<Replacement> replacements;
    if (finished && state.translationMode != 0)
        finished = importReferences(importer, *design, file, state, database, service, target, spaceId, report,
                                    created, replacements);
    else if (!importer.attachments().empty())
        report.skip("Reference attachment", "references are not converted in this mode",
                    importer.attachments().size());
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
