#include "importwriter.h"

#include <algorithm>
#include <cmath>
#include <numbers>

#include "importsymbology.h"

namespace Kora::Dgn {

namespace {

constexpr double kPi = std::numbers::pi;
// Progress is reported every so many elements, and then only when this
// long has passed since the last report.
constexpr std::size_t kProgressStep = 4096;
constexpr std::chrono::milliseconds kProgressInterval{250};

bool samePoint(const KoGePoint2d& a, const KoGePoint2d& b, double tolerance)
{
    return std::abs(a.x - b.x) <= tolerance && std::abs(a.y - b.y) <= tolerance;
}

bool sameDirection(const KoGeVector3d& a, const KoGeVector3d& b) { return a.dotProduct(b) > 1.0 - 1e-12; }

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

} // namespace

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

KoDbObjectId addBlock(KoDbDatabase* database, const KoString& base, std::vector<KoDbObjectId>& created,
                      const KoString& path)
{
    auto* record = new KoDbBlockTableRecord;
    record->setName(uniqueBlockName(database, base));
    record->setPathName(path);
    return addRecord(database->blockTableId(), record, created);
}

void eraseCreated(const std::vector<KoDbObjectId>& created)
{
    for (auto it = created.rbegin(); it != created.rend(); ++it) {
        KoDbObject* object = nullptr;
        if (kodbOpenKoDbObject(object, *it, KoDb::kForWrite, false) != eOk) continue;
        object->erase();
        object->close();
    }
}

KoGeVector3d Sink::turned(const KoGeVector3d& v) const
{
    if (rotation == 0.0) return v;
    const double c = std::cos(rotation), s = std::sin(rotation);
    return {v.x * c + v.y * s, -v.x * s + v.y * c, v.z};
}

KoGePoint3d Sink::local(const KoGePoint3d& p) const
{
    const KoGeVector3d v = turned(p - base) * (1.0 / scale);
    return {v.x, v.y, v.z};
}

std::optional<std::pair<double, double>> turnAndScale(const std::array<double, 9>& m)
{
    const double a = m[0], b = m[1], c = m[3], d = m[4];
    const double s = std::hypot(a, c);
    if (s <= 1e-9) return std::nullopt;
    const double tolerance = 1e-6 * s;
    const bool similar = std::abs(a - d) <= tolerance && std::abs(b + c) <= tolerance && std::abs(m[2]) <= tolerance
        && std::abs(m[5]) <= tolerance && std::abs(m[6]) <= tolerance && std::abs(m[7]) <= tolerance
        && std::abs(m[8] - s) <= tolerance;
    if (!similar) return std::nullopt;
    return std::pair{std::atan2(c, a), std::abs(s - 1.0) < 1e-5 ? 1.0 : s};
}

bool Outline::append(const KoGePoint3d& p, double bulge, double tolerance)
{
    if (vertices.empty()) elevation = p.z;
    if (p.z != elevation) return false;
    const KoGePoint2d q{p.x, p.y};
    if (!vertices.empty() && samePoint(vertices.back().point, q, tolerance))
        vertices.back().bulge = bulge;
    else
        vertices.push_back({q, bulge});
    return true;
}

bool Outline::appendArc(const KoGePoint3d& centre, const KoGeVector3d& xAxis, const KoGeVector3d& yAxis,
                        double radius, double start, double sweep, double tolerance)
{
    const KoGeVector3d normal = xAxis.crossProduct(yAxis).normal();
    double sign = 1.0;
    if (sameDirection(normal, {0.0, 0.0, -1.0}))
        sign = -1.0;
    else if (!sameDirection(normal, KoGeVector3d::kZAxis()))
        return false;
    auto at = [&](double a) { return centre + xAxis * (radius * std::cos(a)) + yAxis * (radius * std::sin(a)); };
    KoGePoint3d from = at(start), to = at(start + sweep);
    double bulge = sign * std::tan(sweep / 4.0);
    // A component may run against the chain's direction.
    if (!vertices.empty() && !samePoint(vertices.back().point, {from.x, from.y}, tolerance)
        && samePoint(vertices.back().point, {to.x, to.y}, tolerance)) {
        std::swap(from, to);
        bulge = -bulge;
    }
    return append(from, bulge, tolerance) && append(to, 0.0, tolerance);
}

KoDbEntity* conicEntity(const KoGePoint3d& centre, const KoGeVector3d& xAxis, const KoGeVector3d& yAxis,
                        double primary, double secondary, double start, double sweep)
{
    const bool full = std::abs(sweep) >= 2.0 * kPi - 1e-12;
    // Sweeps go counter-clockwise in the conic's plane.
    double from = start, to = start + sweep;
    if (sweep < 0) std::swap(from, to);
    const KoGeVector3d normal = xAxis.crossProduct(yAxis).normal();
    const bool circular = std::abs(primary - secondary) <= 1e-12 * primary;
    if (circular && sameDirection(normal, KoGeVector3d::kZAxis())) {
        const double rotation = std::atan2(xAxis.y, xAxis.x);
        if (full) return new KoDbCircle(centre, KoGeVector3d::kZAxis(), primary);
        return new KoDbArc(centre, primary, rotation + from, rotation + to);
    }
    // Otherwise an ellipse: its major axis is the longer one, and its
    // parameters are measured from it.
    KoGeVector3d major = xAxis * primary;
    double ratio = secondary / primary;
    double shift = 0.0;
    if (secondary > primary) {
        major = yAxis * secondary;
        ratio = primary / secondary;
        shift = -kPi / 2.0;
    }
    auto* ellipse = new KoDbEllipse;
    if (full)
        ellipse->set(centre, normal, major, ratio);
    else
        ellipse->set(centre, normal, major, ratio, from + shift, to + shift);
    return ellipse;
}

KoDbText* textEntity(const KoGePoint3d& origin, const KoGeVector3d& xAxis, const KoGeVector3d& yAxis,
                     const KoString& text, double height, double width, int justification)
{
    auto* entity = new KoDbText;
    entity->setPosition(origin);
    entity->setTextString(text);
    entity->setHeight(height > 0.0 ? height : 1.0);
    entity->setWidthFactor(height > 0.0 && width > 0.0 ? width / height : 1.0);
    entity->setRotation(std::atan2(xAxis.y, xAxis.x));
    const int code = std::clamp(justification, 0, 14);
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
    return entity;
}

KoDbMText* mtextEntity(const KoGePoint3d& location, const KoGeVector3d& direction, const std::vector<KoString>& lines,
                       double height, int justification)
{
    std::wstring contents;
    for (const KoString& line : lines) {
        if (!contents.empty()) contents += L"\\P";
        contents += mtextEscaped(line);
    }
    auto* mtext = new KoDbMText;
    mtext->setLocation(location);
    mtext->setContents(KoString(std::move(contents)));
    mtext->setTextHeight(height > 0.0 ? height : 1.0);
    mtext->setDirection(direction);
    const int code = std::clamp(justification, 0, 14);
    const int horizontal = code / 3 <= 1 ? 0 : code / 3 == 2 ? 1 : 2;
    mtext->setAttachment(static_cast<KoDbMText::AttachmentPoint>((code % 3) * 3 + horizontal + 1));
    return mtext;
}

KoDbSpline* curveEntity(const std::vector<KoGePoint3d>& points)
{
    if (points.size() < 6) return nullptr;
    auto* spline = new KoDbSpline;
    spline->setFitPoints({points.begin() + 2, points.end() - 2});
    return spline;
}

KoDbSpline* bsplineEntity(int order, bool closed, std::vector<KoGePoint3d> poles, std::vector<double> interior,
                          std::vector<double> weights)
{
    order = std::min(order, static_cast<int>(poles.size()));
    const auto degree = static_cast<std::size_t>(order - 1);
    std::vector<double> knots;
    int flags = weights.empty() ? 0 : 4;
    if (closed) {
        // Periodic: the first poles repeat after the last and the knots
        // step by one, so the curve closes on itself smoothly.
        for (std::size_t i = 0; i < degree; ++i) poles.push_back(poles[i]);
        if (!weights.empty())
            for (std::size_t i = 0; i < degree; ++i) weights.push_back(weights[i]);
        for (std::size_t i = 0; i < poles.size() + degree + 1; ++i) knots.push_back(static_cast<double>(i));
        flags |= 1 | 2;
    } else {
        const std::size_t interiorCount = poles.size() - degree - 1;
        if (interior.size() != interiorCount) {
            interior.clear();
            for (std::size_t i = 1; i <= interiorCount; ++i)
                interior.push_back(static_cast<double>(i) / static_cast<double>(interiorCount + 1));
        }
        knots.assign(degree + 1, 0.0);
        knots.insert(knots.end(), interior.begin(), interior.end());
        knots.insert(knots.end(), degree + 1, 1.0);
    }
    auto* spline = new KoDbSpline;
    spline->setNurbsData(static_cast<int>(degree), flags, std::move(knots), std::move(poles), std::move(weights));
    return spline;
}

ImportWriter::ImportWriter(const DgnImportState& state, KoDbDatabase* database, const ImportTarget& target,
                           DgnTranslationReport& report, std::vector<KoDbObjectId>& created,
                           const std::optional<V7::ColourTable>& colours)
    : m_state(state), m_db(database), m_target(target), m_report(report), m_created(created), m_colourTable(colours),
      m_nextReport(kProgressStep)
{
}

KoDbObjectId ImportWriter::layer(const KoString& level)
{
    if (level.isEmpty()) return m_db->layerZero();
    if (const auto found = m_layers.find(level); found != m_layers.end()) return found->second;
    const auto mapped = m_state.tables.levels.find(level);
    const KoString name = prefixed(mapped == m_state.tables.levels.end() || mapped->second.trimmed().isEmpty()
                                       ? level
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

KoDbObjectId ImportWriter::linetype(int style)
{
    if (const auto found = m_linetypes.find(style); found != m_linetypes.end()) return found->second;
    const KoString dgnName = KoString::fromUtf8(lineStyleName(style));
    const auto mapped = m_state.tables.lineStyles.find(dgnName);
    const bool isMapped = !dgnName.isEmpty() && mapped != m_state.tables.lineStyles.end()
        && !mapped->second.trimmed().isEmpty();
    // A mapped target is the drawing's linetype of that name; one the
    // drawing does not have yet is made with the style's pattern under the
    // target's name. Styles without a standard name draw solid.
    KoDbObjectId id = isMapped ? recordNamed(m_db->linetypeTableId(), mapped->second.trimmed()) : KoDbObjectId();
    if (id.isNull() && (dgnName.isEmpty() || lineStyleDashes(style).empty())) id = m_db->continuousLinetype();
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

void ImportWriter::add(KoDbEntity* entity, const DesignSymbology& s, const Sink& sink, const std::string& typeName)
{
    entity->setLayer(layer(s.level));
    if (s.colour >= 0 && s.colour < ColourCount) {
        auto& colour = m_colours[static_cast<std::size_t>(s.colour)];
        if (!colour) colour = importColour(m_state.tables.colours, m_colourTable, s.colour);
        entity->setColor(*colour);
    } else {
        entity->setColor(KoCmColor::byLayer());
    }
    entity->setLinetype(linetype(s.style));
    auto& weight = m_weights[static_cast<std::size_t>(std::clamp(s.weight, 0, WeightCount - 1))];
    if (!weight) weight = importLineWeight(m_state.tables.weights, std::clamp(s.weight, 0, WeightCount - 1));
    entity->setLineWeight(*weight);
    KoDbObjectId id;
    if (sink.block->appendKoDbEntity(id, entity) != eOk) {
        delete entity;
        m_report.skip(typeName, "could not be added to the drawing");
        return;
    }
    entity->close();
    m_created.push_back(id);
    ++m_report.itemsWritten;
}

void ImportWriter::addPolyline(std::vector<KoGePoint3d> points, bool closed, const DesignSymbology& symbology,
                               std::optional<int> fill, const Sink& sink, const std::string& typeName)
{
    if (points.empty()) return;
    if (closed && points.size() > 1 && points.front() == points.back()) points.pop_back();
    const bool flat = std::all_of(points.begin(), points.end(), [&](const KoGePoint3d& p) { return p.z == points[0].z; });
    if (!flat) {
        auto* polyline = new KoDb3dPolyline;
        polyline->setVertices(std::move(points));
        polyline->setClosed(closed);
        add(polyline, symbology, sink, typeName);
        if (closed && fill) skip(typeName, "fill of a shape that is not flat");
        return;
    }
    Outline outline;
    outline.elevation = points[0].z;
    for (const KoGePoint3d& p : points) outline.vertices.push_back({{p.x, p.y}});
    addOutline(outline, closed, symbology, fill, sink, typeName);
}

void ImportWriter::addOutline(const Outline& outline, bool closed, const DesignSymbology& symbology,
                              std::optional<int> fill, const Sink& sink, const std::string& typeName)
{
    auto* polyline = new KoDbPolyline;
    polyline->setVertices(outline.vertices);
    polyline->setElevation(outline.elevation);
    polyline->setClosed(closed);
    add(polyline, symbology, sink, typeName);
    if (!closed || !fill || outline.vertices.size() < 3) return;
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
    DesignSymbology fillSymbology = symbology;
    fillSymbology.colour = *fill;
    add(hatch, fillSymbology, sink, typeName);
}

bool ImportWriter::progress(std::size_t done, std::size_t total)
{
    if (done < m_nextReport || !m_state.progress) return true;
    m_nextReport = done + kProgressStep;
    const auto now = std::chrono::steady_clock::now();
    if (now - m_lastReport < kProgressInterval) return true;
    m_lastReport = now;
    return m_state.progress(static_cast<double>(done) / static_cast<double>(total));
}

} // namespace Kora::Dgn
