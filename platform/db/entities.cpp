#include "kora/db/entities.h"

#include <algorithm>
#include <cmath>
#include <numbers>

#include "dbimpl.h"
#include "kora/db/database.h"
#include "kora/db/symboltables.h"

#define KODB_SETTER(CLASS, NAME, TYPE, MEMBER) \
    Kora::ErrorStatus CLASS::NAME(TYPE value)  \
    {                                          \
        KODB_WRITE_GUARD();                    \
        MEMBER = value;                        \
        return Kora::eOk;                      \
    }

namespace {

constexpr double kTwoPi = 2.0 * std::numbers::pi;

// The plane axes of an entity's coordinate system from its normal (the
// arbitrary-axis rule of drawing files).
struct Ocs {
    KoGeVector3d x, y, z;
    explicit Ocs(const KoGeVector3d& normal)
    {
        // The plan view's axes, as the rule below gives them, without its
        // square roots: nearly every entity of a drawing lies in it.
        if (normal == KoGeVector3d::kZAxis()) {
            x = {1.0, 0.0, 0.0};
            y = {0.0, 1.0, 0.0};
            z = normal;
            return;
        }
        z = normal.length() > 0.0 ? normal.normal() : KoGeVector3d::kZAxis();
        const KoGeVector3d ax = (std::fabs(z.x) < 1.0 / 64.0 && std::fabs(z.y) < 1.0 / 64.0)
                                    ? KoGeVector3d(0.0, 1.0, 0.0).crossProduct(z)
                                    : KoGeVector3d(0.0, 0.0, 1.0).crossProduct(z);
        x = ax.normal();
        y = z.crossProduct(x).normal();
    }
    KoGePoint3d toWorld(double px, double py, double pz) const
    {
        return {x.x * px + y.x * py + z.x * pz, x.y * px + y.y * py + z.y * pz, x.z * px + y.z * py + z.z * pz};
    }
};

bool angleInSweep(double a, double start, double end)
{
    auto norm = [](double v) {
        v = std::fmod(v, kTwoPi);
        return v < 0.0 ? v + kTwoPi : v;
    };
    const double sweep = norm(end - start);
    return norm(a - start) <= (sweep == 0.0 ? kTwoPi : sweep);
}

// Adds a circular arc of the plane (angles in radians, counter-clockwise).
template <class AddFn>
void addArc2d(double cx, double cy, double r, double start, double end, AddFn add)
{
    add(cx + r * std::cos(start), cy + r * std::sin(start));
    add(cx + r * std::cos(end), cy + r * std::sin(end));
    for (int q = 0; q < 4; ++q) {
        const double a = q * std::numbers::pi / 2.0;
        if (angleInSweep(a, start, end)) add(cx + r * std::cos(a), cy + r * std::sin(a));
    }
}

// Adds the arc of a polyline segment with a bulge.
template <class AddFn>
void addBulge(const KoGePoint2d& a, const KoGePoint2d& b, double bulge, AddFn add)
{
    add(a.x, a.y);
    add(b.x, b.y);
    if (bulge == 0.0) return;
    const double dx = b.x - a.x, dy = b.y - a.y;
    const double chord = std::hypot(dx, dy);
    if (chord == 0.0) return;
    const double sagitta = bulge * chord / 2.0;
    const double r = (chord * chord / 4.0 + sagitta * sagitta) / (2.0 * std::fabs(sagitta));
    const double mx = (a.x + b.x) / 2.0, my = (a.y + b.y) / 2.0;
    // Centre lies on the chord's perpendicular, left of it for positive bulges.
    const double d = r - std::fabs(sagitta);
    const double sign = bulge > 0.0 ? 1.0 : -1.0;
    const double cx = mx - sign * dy / chord * d, cy = my + sign * dx / chord * d;
    double s = std::atan2(a.y - cy, a.x - cx), e = std::atan2(b.y - cy, b.x - cx);
    if (bulge < 0.0) std::swap(s, e);
    addArc2d(cx, cy, r, s, e, add);
}

}  // namespace

// ---- entity ---------------------------------------------------------------

KORX_DEFINE_MEMBERS(KoDbEntity, KoDbObject)

KoDbEntity::KoDbEntity() = default;
KoDbEntity::~KoDbEntity() = default;

void KoDbEntity::subAppended() {}

Kora::ErrorStatus KoDbEntity::getGeomExtents(KoDbExtents&) const { return Kora::eNotApplicable; }

KODB_SETTER(KoDbEntity, setColor, const KoCmColor&, m_color)
KODB_SETTER(KoDbEntity, setLineWeight, KoDb::LineWeight, m_lineWeight)
KODB_SETTER(KoDbEntity, setVisibility, bool, m_visible)

Kora::ErrorStatus KoDbEntity::setColorIndex(int index)
{
    if (index < 0 || index > 257) return Kora::eOutOfRange;
    return setColor(KoCmColor::fromIndex(index));
}

Kora::ErrorStatus KoDbEntity::setLinetypeScale(double scale)
{
    KODB_WRITE_GUARD();
    if (!(scale > 0.0)) return Kora::eOutOfRange;
    m_linetypeScale = scale;
    return Kora::eOk;
}

Kora::ErrorStatus KoDbEntity::setLayer(KoDbObjectId layer)
{
    KODB_WRITE_GUARD();
    if (!kodbPeek<KoDbLayerTableRecord>(layer)) return Kora::eInvalidInput;
    if (database() && layer.database() != database()) return Kora::eWrongDatabase;
    m_layer = layer;
    return Kora::eOk;
}

namespace {

KoDbDatabase* databaseOf(const KoDbEntity* e)
{
    if (KoDbDatabase* db = e->database()) return db;
    return e->layerId().database();
}

KoString recordName(KoDbObjectId id)
{
    const auto* record = kodbPeek<KoDbSymbolTableRecord>(id);
    return record ? record->getName() : KoString();
}

}  // namespace

Kora::ErrorStatus KoDbEntity::setLayer(const KoString& name)
{
    KoDbDatabase* db = databaseOf(this);
    if (!db) return Kora::eNoDatabase;
    const auto* table = kodbPeek<KoDbSymbolTable>(db->layerTableId());
    KoDbObjectId id;
    if (!table || table->getAt(name, id) != Kora::eOk) return Kora::eKeyNotFound;
    return setLayer(id);
}

KoString KoDbEntity::layer() const { return recordName(m_layer); }

Kora::ErrorStatus KoDbEntity::setLinetype(KoDbObjectId linetype)
{
    KODB_WRITE_GUARD();
    if (!kodbPeek<KoDbLinetypeTableRecord>(linetype)) return Kora::eInvalidInput;
    if (database() && linetype.database() != database()) return Kora::eWrongDatabase;
    m_linetype = linetype;
    return Kora::eOk;
}

Kora::ErrorStatus KoDbEntity::setLinetype(const KoString& name)
{
    KoDbDatabase* db = databaseOf(this);
    if (!db) return Kora::eNoDatabase;
    const auto* table = kodbPeek<KoDbSymbolTable>(db->linetypeTableId());
    KoDbObjectId id;
    if (!table || table->getAt(name, id) != Kora::eOk) return Kora::eKeyNotFound;
    return setLinetype(id);
}

KoString KoDbEntity::linetype() const { return recordName(m_linetype); }

Kora::ErrorStatus KoDbEntity::setDatabaseDefaults(KoDbDatabase* db)
{
    KODB_WRITE_GUARD();
    if (!db) db = database();
    if (!db) return Kora::eNoDatabase;
    if (database() && db != database()) return Kora::eWrongDatabase;
    m_layer = db->clayer().isNull() ? db->layerZero() : db->clayer();
    m_linetype = db->celtype().isNull() ? db->byLayerLinetype() : db->celtype();
    m_color = db->cecolor();
    m_lineWeight = db->celweight();
    m_linetypeScale = db->celtscale();
    return m_layer.isNull() ? Kora::eKeyNotFound : Kora::eOk;
}

KORX_DEFINE_MEMBERS(KoDbCurve, KoDbEntity)

// ---- line, circle, arc, ellipse ----------------------------------------------

KORX_DEFINE_MEMBERS(KoDbLine, KoDbCurve)
KODB_SETTER(KoDbLine, setStartPoint, const KoGePoint3d&, m_start)
KODB_SETTER(KoDbLine, setEndPoint, const KoGePoint3d&, m_end)
KODB_SETTER(KoDbLine, setThickness, double, m_thickness)
KODB_SETTER(KoDbLine, setNormal, const KoGeVector3d&, m_normal)

Kora::ErrorStatus KoDbLine::getGeomExtents(KoDbExtents& extents) const
{
    extents = {};
    extents.addPoint(m_start);
    extents.addPoint(m_end);
    if (m_thickness != 0.0) {
        const KoGeVector3d up = m_normal.normal() * m_thickness;
        extents.addPoint(m_start + up);
        extents.addPoint(m_end + up);
    }
    return Kora::eOk;
}

KORX_DEFINE_MEMBERS(KoDbCircle, KoDbCurve)
KODB_SETTER(KoDbCircle, setCenter, const KoGePoint3d&, m_center)
KODB_SETTER(KoDbCircle, setNormal, const KoGeVector3d&, m_normal)
KODB_SETTER(KoDbCircle, setThickness, double, m_thickness)

Kora::ErrorStatus KoDbCircle::setRadius(double r)
{
    KODB_WRITE_GUARD();
    if (!(r > 0.0)) return Kora::eInvalidInput;
    m_radius = r;
    return Kora::eOk;
}

Kora::ErrorStatus KoDbCircle::getGeomExtents(KoDbExtents& extents) const
{
    const KoGeVector3d n = m_normal.normal();
    // Half extent of a circle along an axis: r * sin(angle between axis and normal).
    const KoGeVector3d h(m_radius * std::sqrt(std::max(0.0, 1.0 - n.x * n.x)),
                         m_radius * std::sqrt(std::max(0.0, 1.0 - n.y * n.y)),
                         m_radius * std::sqrt(std::max(0.0, 1.0 - n.z * n.z)));
    extents = {};
    extents.addPoint({m_center.x - h.x, m_center.y - h.y, m_center.z - h.z});
    extents.addPoint({m_center.x + h.x, m_center.y + h.y, m_center.z + h.z});
    if (m_thickness != 0.0) {
        KoDbExtents top;
        const KoGeVector3d up = n * m_thickness;
        top.set(extents.minPoint() + up, extents.maxPoint() + up);
        extents.addExt(top);
    }
    return Kora::eOk;
}

KORX_DEFINE_MEMBERS(KoDbArc, KoDbCurve)
KODB_SETTER(KoDbArc, setCenter, const KoGePoint3d&, m_center)
KODB_SETTER(KoDbArc, setStartAngle, double, m_start)
KODB_SETTER(KoDbArc, setEndAngle, double, m_end)
KODB_SETTER(KoDbArc, setNormal, const KoGeVector3d&, m_normal)
KODB_SETTER(KoDbArc, setThickness, double, m_thickness)

Kora::ErrorStatus KoDbArc::setRadius(double r)
{
    KODB_WRITE_GUARD();
    if (!(r > 0.0)) return Kora::eInvalidInput;
    m_radius = r;
    return Kora::eOk;
}

Kora::ErrorStatus KoDbArc::getGeomExtents(KoDbExtents& extents) const
{
    // The centre is stored in the arc's own coordinate system.
    const Ocs ocs(m_normal);
    extents = {};
    addArc2d(m_center.x, m_center.y, m_radius, m_start, m_end, [&](double x, double y) {
        extents.addPoint(ocs.toWorld(x, y, m_center.z));
        if (m_thickness != 0.0) extents.addPoint(ocs.toWorld(x, y, m_center.z + m_thickness));
    });
    return Kora::eOk;
}

KORX_DEFINE_MEMBERS(KoDbEllipse, KoDbCurve)

Kora::ErrorStatus KoDbEllipse::set(const KoGePoint3d& center, const KoGeVector3d& normal, const KoGeVector3d& majorAxis,
                                   double radiusRatio, double startParam, double endParam)
{
    KODB_WRITE_GUARD();
    if (!(radiusRatio > 0.0 && radiusRatio <= 1.0) || majorAxis.length() == 0.0 || normal.length() == 0.0)
        return Kora::eInvalidInput;
    m_center = center;
    m_normal = normal;
    m_major = majorAxis;
    m_ratio = radiusRatio;
    m_startParam = startParam;
    m_endParam = endParam;
    return Kora::eOk;
}

Kora::ErrorStatus KoDbEllipse::getGeomExtents(KoDbExtents& extents) const
{
    const KoGeVector3d minor = m_normal.normal().crossProduct(m_major) * m_ratio;
    auto at = [&](double t) { return m_center + m_major * std::cos(t) + minor * std::sin(t); };
    extents = {};
    extents.addPoint(at(m_startParam));
    extents.addPoint(at(m_endParam));
    const double major[3] = {m_major.x, m_major.y, m_major.z};
    const double minr[3] = {minor.x, minor.y, minor.z};
    for (int axis = 0; axis < 3; ++axis) {
        // Extremes along an axis where the derivative of that coordinate vanishes.
        const double t = std::atan2(minr[axis], major[axis]);
        for (double c : {t, t + std::numbers::pi})
            if (angleInSweep(c, m_startParam, m_endParam)) extents.addPoint(at(c));
    }
    return Kora::eOk;
}

// ---- polylines and splines ----------------------------------------------------

KORX_DEFINE_MEMBERS(KoDbPolyline, KoDbCurve)
KODB_SETTER(KoDbPolyline, setClosed, bool, m_closed)
KODB_SETTER(KoDbPolyline, setPlinegen, bool, m_plinegen)
KODB_SETTER(KoDbPolyline, setConstantWidth, double, m_constantWidth)
KODB_SETTER(KoDbPolyline, setElevation, double, m_elevation)
KODB_SETTER(KoDbPolyline, setThickness, double, m_thickness)
KODB_SETTER(KoDbPolyline, setNormal, const KoGeVector3d&, m_normal)

Kora::ErrorStatus KoDbPolyline::setVertices(std::vector<Vertex> vertices)
{
    KODB_WRITE_GUARD();
    m_vertices = std::move(vertices);
    return Kora::eOk;
}

Kora::ErrorStatus KoDbPolyline::addVertexAt(int index, const KoGePoint2d& point, double bulge, double startWidth,
                                            double endWidth)
{
    KODB_WRITE_GUARD();
    if (index < 0 || index > numVerts()) return Kora::eInvalidIndex;
    m_vertices.insert(m_vertices.begin() + index, Vertex {point, bulge, startWidth, endWidth});
    return Kora::eOk;
}

Kora::ErrorStatus KoDbPolyline::getPointAt(int index, KoGePoint3d& point) const
{
    if (index < 0 || index >= numVerts()) return Kora::eInvalidIndex;
    const auto& v = m_vertices[static_cast<size_t>(index)];
    point = Ocs(m_normal).toWorld(v.point.x, v.point.y, m_elevation);
    return Kora::eOk;
}

Kora::ErrorStatus KoDbPolyline::getGeomExtents(KoDbExtents& extents) const
{
    extents = {};
    if (m_vertices.empty()) return Kora::eNotApplicable;
    const Ocs ocs(m_normal);
    auto add = [&](double x, double y) { extents.addPoint(ocs.toWorld(x, y, m_elevation)); };
    const size_t n = m_vertices.size();
    add(m_vertices[0].point.x, m_vertices[0].point.y);
    for (size_t i = 0; i + 1 < n || (m_closed && i < n && n > 1); ++i)
        addBulge(m_vertices[i].point, m_vertices[(i + 1) % n].point, m_vertices[i].bulge, add);
    return Kora::eOk;
}

KORX_DEFINE_MEMBERS(KoDb3dPolyline, KoDbCurve)
KODB_SETTER(KoDb3dPolyline, setClosed, bool, m_closed)

Kora::ErrorStatus KoDb3dPolyline::setVertices(std::vector<KoGePoint3d> vertices)
{
    KODB_WRITE_GUARD();
    m_vertices = std::move(vertices);
    return Kora::eOk;
}

Kora::ErrorStatus KoDb3dPolyline::appendVertex(const KoGePoint3d& point)
{
    KODB_WRITE_GUARD();
    m_vertices.push_back(point);
    return Kora::eOk;
}

Kora::ErrorStatus KoDb3dPolyline::getGeomExtents(KoDbExtents& extents) const
{
    extents = {};
    for (const auto& p : m_vertices) extents.addPoint(p);
    return m_vertices.empty() ? Kora::eNotApplicable : Kora::eOk;
}

KORX_DEFINE_MEMBERS(KoDbSpline, KoDbCurve)
KODB_SETTER(KoDbSpline, setNormal, const KoGeVector3d&, m_normal)

Kora::ErrorStatus KoDbSpline::setNurbsData(int degree, int flags, std::vector<double> knots,
                                           std::vector<KoGePoint3d> controlPoints, std::vector<double> weights)
{
    KODB_WRITE_GUARD();
    if (degree < 1 || controlPoints.size() < static_cast<size_t>(degree) + 1) return Kora::eInvalidInput;
    if (!knots.empty() && knots.size() != controlPoints.size() + static_cast<size_t>(degree) + 1)
        return Kora::eInvalidInput;
    if (!weights.empty() && weights.size() != controlPoints.size()) return Kora::eInvalidInput;
    m_degree = degree;
    m_flags = weights.empty() ? (flags & ~4) : (flags | 4);
    m_knots = std::move(knots);
    m_controlPoints = std::move(controlPoints);
    m_weights = std::move(weights);
    return Kora::eOk;
}

Kora::ErrorStatus KoDbSpline::setFitPoints(std::vector<KoGePoint3d> fitPoints)
{
    KODB_WRITE_GUARD();
    m_fitPoints = std::move(fitPoints);
    return Kora::eOk;
}

Kora::ErrorStatus KoDbSpline::setFitTangents(const KoGeVector3d& start, const KoGeVector3d& end)
{
    KODB_WRITE_GUARD();
    m_startTangent = start;
    m_endTangent = end;
    return Kora::eOk;
}

Kora::ErrorStatus KoDbSpline::getGeomExtents(KoDbExtents& extents) const
{
    extents = {};
    for (const auto& p : m_controlPoints.empty() ? m_fitPoints : m_controlPoints) extents.addPoint(p);
    return extents.isValid() ? Kora::eOk : Kora::eNotApplicable;
}

// ---- point and texts ------------------------------------------------------------

KORX_DEFINE_MEMBERS(KoDbPoint, KoDbEntity)
KODB_SETTER(KoDbPoint, setPosition, const KoGePoint3d&, m_position)
KODB_SETTER(KoDbPoint, setThickness, double, m_thickness)
KODB_SETTER(KoDbPoint, setNormal, const KoGeVector3d&, m_normal)
KODB_SETTER(KoDbPoint, setEcsRotation, double, m_ecsRotation)

Kora::ErrorStatus KoDbPoint::getGeomExtents(KoDbExtents& extents) const
{
    extents = KoDbExtents(m_position, m_position);
    return Kora::eOk;
}

KORX_DEFINE_MEMBERS(KoDbText, KoDbEntity)
KODB_SETTER(KoDbText, setPosition, const KoGePoint3d&, m_position)
KODB_SETTER(KoDbText, setAlignmentPoint, const KoGePoint3d&, m_alignment)
KODB_SETTER(KoDbText, setTextString, const KoString&, m_text)
KODB_SETTER(KoDbText, setRotation, double, m_rotation)
KODB_SETTER(KoDbText, setOblique, double, m_oblique)
KODB_SETTER(KoDbText, setHorizontalMode, TextHorzMode, m_horz)
KODB_SETTER(KoDbText, setVerticalMode, TextVertMode, m_vert)
KODB_SETTER(KoDbText, setGenerationFlags, int, m_generation)
KODB_SETTER(KoDbText, setThickness, double, m_thickness)
KODB_SETTER(KoDbText, setNormal, const KoGeVector3d&, m_normal)

Kora::ErrorStatus KoDbText::setHeight(double h)
{
    KODB_WRITE_GUARD();
    if (!(h > 0.0)) return Kora::eInvalidInput;
    m_height = h;
    return Kora::eOk;
}

Kora::ErrorStatus KoDbText::setWidthFactor(double factor)
{
    KODB_WRITE_GUARD();
    if (!(factor > 0.0)) return Kora::eInvalidInput;
    m_widthFactor = factor;
    return Kora::eOk;
}

Kora::ErrorStatus KoDbText::setTextStyleName(const KoString& style)
{
    KODB_WRITE_GUARD();
    if (style.isEmpty()) return Kora::eInvalidInput;
    m_style = style;
    return Kora::eOk;
}

namespace {

// A rotated box in an entity's plane, from its corner at (x0, y0).
void addTextBox(KoDbExtents& extents, const Ocs& ocs, const KoGePoint3d& origin, double width, double height,
                double x0, double y0, double rotation)
{
    const double c = std::cos(rotation), s = std::sin(rotation);
    for (const auto& [u, v] : {std::pair {x0, y0}, {x0 + width, y0}, {x0, y0 + height}, {x0 + width, y0 + height}})
        extents.addPoint(ocs.toWorld(origin.x + u * c - v * s, origin.y + u * s + v * c, origin.z));
}

}  // namespace

Kora::ErrorStatus KoDbText::getGeomExtents(KoDbExtents& extents) const
{
    extents = {};
    const double width = m_height * m_widthFactor * 0.6 * std::max(1, m_text.length());
    addTextBox(extents, Ocs(m_normal), m_position, width, m_height, 0.0, 0.0, m_rotation);
    return Kora::eOk;
}

KORX_DEFINE_MEMBERS(KoDbMText, KoDbEntity)
KODB_SETTER(KoDbMText, setLocation, const KoGePoint3d&, m_location)
KODB_SETTER(KoDbMText, setContents, const KoString&, m_contents)
KODB_SETTER(KoDbMText, setNormal, const KoGeVector3d&, m_normal)
KODB_SETTER(KoDbMText, setFlowDirection, int, m_flow)
KODB_SETTER(KoDbMText, setLineSpacingStyle, int, m_spacingStyle)

Kora::ErrorStatus KoDbMText::setTextHeight(double h)
{
    KODB_WRITE_GUARD();
    if (!(h > 0.0)) return Kora::eInvalidInput;
    m_height = h;
    return Kora::eOk;
}

Kora::ErrorStatus KoDbMText::setWidth(double w)
{
    KODB_WRITE_GUARD();
    if (w < 0.0) return Kora::eInvalidInput;
    m_width = w;
    return Kora::eOk;
}

Kora::ErrorStatus KoDbMText::setDirection(const KoGeVector3d& d)
{
    KODB_WRITE_GUARD();
    if (d.length() == 0.0) return Kora::eInvalidInput;
    m_direction = d.normal();
    return Kora::eOk;
}

double KoDbMText::rotation() const
{
    // The direction is world space; the angle is measured in the text's plane.
    const Ocs ocs(m_normal);
    return std::atan2(m_direction.dotProduct(ocs.y), m_direction.dotProduct(ocs.x));
}

Kora::ErrorStatus KoDbMText::setRotation(double angle)
{
    const Ocs ocs(m_normal);
    return setDirection(ocs.x * std::cos(angle) + ocs.y * std::sin(angle));
}

Kora::ErrorStatus KoDbMText::setAttachment(AttachmentPoint attachment)
{
    KODB_WRITE_GUARD();
    if (attachment < kTopLeft || attachment > kBottomRight) return Kora::eInvalidInput;
    m_attachment = attachment;
    return Kora::eOk;
}

Kora::ErrorStatus KoDbMText::setLineSpacingFactor(double factor)
{
    KODB_WRITE_GUARD();
    if (!(factor >= 0.25 && factor <= 4.0)) return Kora::eOutOfRange;
    m_spacingFactor = factor;
    return Kora::eOk;
}

Kora::ErrorStatus KoDbMText::setTextStyleName(const KoString& style)
{
    KODB_WRITE_GUARD();
    if (style.isEmpty()) return Kora::eInvalidInput;
    m_style = style;
    return Kora::eOk;
}

Kora::ErrorStatus KoDbMText::getGeomExtents(KoDbExtents& extents) const
{
    int lines = 1;
    int longest = 0, current = 0;
    for (wchar_t ch : m_contents.view()) {
        if (ch == L'\n') {
            ++lines;
            current = 0;
        } else {
            longest = std::max(longest, ++current);
        }
    }
    int paragraphs = 1;
    for (int at = m_contents.find(L"\\P"); at >= 0; at = m_contents.find(L"\\P", at + 2)) ++paragraphs;
    lines = std::max(lines, paragraphs);
    const double width = m_width > 0.0 ? m_width : m_height * 0.6 * std::max(1, longest);
    const double height = m_height * (1.0 + 0.667 * (lines - 1) * m_spacingFactor);
    const int column = (m_attachment - 1) % 3, row = (m_attachment - 1) / 3;
    const double x0 = -width * column / 2.0, y0 = -height + height * row / 2.0;
    extents = {};
    const Ocs ocs(m_normal);
    // The location is in world space; take it into the plane, box it, take it back.
    const KoGeVector3d loc(m_location.x, m_location.y, m_location.z);
    const KoGePoint3d planar(loc.dotProduct(ocs.x), loc.dotProduct(ocs.y), loc.dotProduct(ocs.z));
    addTextBox(extents, ocs, planar, width, height, x0, y0, rotation());
    return Kora::eOk;
}

// ---- block reference ------------------------------------------------------------

KORX_DEFINE_MEMBERS(KoDbBlockReference, KoDbEntity)
KODB_SETTER(KoDbBlockReference, setPosition, const KoGePoint3d&, m_position)
KODB_SETTER(KoDbBlockReference, setRotation, double, m_rotation)
KODB_SETTER(KoDbBlockReference, setNormal, const KoGeVector3d&, m_normal)

Kora::ErrorStatus KoDbBlockReference::setBlockTableRecord(KoDbObjectId block)
{
    KODB_WRITE_GUARD();
    if (!kodbPeek<KoDbBlockTableRecord>(block)) return Kora::eInvalidInput;
    m_block = block;
    return Kora::eOk;
}

Kora::ErrorStatus KoDbBlockReference::setScaleFactors(const KoGeScale3d& scale)
{
    KODB_WRITE_GUARD();
    if (scale.sx == 0.0 || scale.sy == 0.0 || scale.sz == 0.0) return Kora::eInvalidInput;
    m_scale = scale;
    return Kora::eOk;
}

Kora::ErrorStatus KoDbBlockReference::getGeomExtents(KoDbExtents& extents) const
{
    // The blocks being measured: a block that (through others) holds a
    // reference to itself, as damaged drawings can, adds nothing.
    thread_local std::vector<const KoDbBlockTableRecord*> open;
    extents = {};
    const auto* block = kodbPeek<KoDbBlockTableRecord>(m_block);
    if (!block || open.size() > 64 || std::find(open.begin(), open.end(), block) != open.end())
        return Kora::eNotApplicable;
    open.push_back(block);
    KoDbExtents inner;
    for (KoDbObjectId id : block->entityIds()) {
        const auto* e = kodbPeek<KoDbEntity>(id);
        KoDbExtents ee;
        if (e && !e->isErased() && e->getGeomExtents(ee) == Kora::eOk) inner.addExt(ee);
    }
    open.pop_back();
    if (!inner.isValid()) return Kora::eNotApplicable;
    const Ocs ocs(m_normal);
    const KoGePoint3d& o = block->origin();
    const double c = std::cos(m_rotation), s = std::sin(m_rotation);
    // The insertion point is in the reference's plane; corners of the inner
    // box are scaled, rotated in that plane and placed.
    for (int i = 0; i < 8; ++i) {
        const KoGePoint3d p((i & 1 ? inner.maxPoint() : inner.minPoint()).x,
                            (i & 2 ? inner.maxPoint() : inner.minPoint()).y,
                            (i & 4 ? inner.maxPoint() : inner.minPoint()).z);
        const double x = (p.x - o.x) * m_scale.sx, y = (p.y - o.y) * m_scale.sy, z = (p.z - o.z) * m_scale.sz;
        extents.addPoint(ocs.toWorld(m_position.x + x * c - y * s, m_position.y + x * s + y * c, m_position.z + z));
    }
    return Kora::eOk;
}

// ---- hatch ------------------------------------------------------------------

KORX_DEFINE_MEMBERS(KoDbHatch, KoDbEntity)
KODB_SETTER(KoDbHatch, setAssociative, bool, m_associative)
KODB_SETTER(KoDbHatch, setElevation, double, m_elevation)
KODB_SETTER(KoDbHatch, setNormal, const KoGeVector3d&, m_normal)

Kora::ErrorStatus KoDbHatch::setPattern(HatchPatternType type, const KoString& name)
{
    KODB_WRITE_GUARD();
    if (name.isEmpty()) return Kora::eInvalidInput;
    m_patternType = type;
    m_pattern = name;
    m_solid = name.equalsNoCase(L"SOLID");
    return Kora::eOk;
}

Kora::ErrorStatus KoDbHatch::setSolidFill()
{
    KODB_WRITE_GUARD();
    m_lines.clear();
    return setPattern(kPreDefined, L"SOLID");
}

Kora::ErrorStatus KoDbHatch::setPatternGeometry(double angleDegrees, double scale, bool isDouble)
{
    KODB_WRITE_GUARD();
    if (!(scale > 0.0)) return Kora::eInvalidInput;
    m_angle = angleDegrees;
    m_scale = scale;
    m_double = isDouble;
    return Kora::eOk;
}

Kora::ErrorStatus KoDbHatch::setPatternLines(std::vector<PatternLine> lines)
{
    KODB_WRITE_GUARD();
    m_lines = std::move(lines);
    return Kora::eOk;
}

Kora::ErrorStatus KoDbHatch::setHatchStyle(int style)
{
    KODB_WRITE_GUARD();
    if (style < 0 || style > 2) return Kora::eInvalidInput;
    m_style = style;
    return Kora::eOk;
}

Kora::ErrorStatus KoDbHatch::appendLoop(Loop loop)
{
    KODB_WRITE_GUARD();
    if (loop.isPolyline() && !loop.bulges.empty() && loop.bulges.size() != loop.vertices.size())
        return Kora::eInvalidInput;
    m_loops.push_back(std::move(loop));
    return Kora::eOk;
}

Kora::ErrorStatus KoDbHatch::setLoops(std::vector<Loop> loops)
{
    KODB_WRITE_GUARD();
    for (const auto& loop : loops)
        if (loop.isPolyline() && !loop.bulges.empty() && loop.bulges.size() != loop.vertices.size())
            return Kora::eInvalidInput;
    m_loops = std::move(loops);
    return Kora::eOk;
}

Kora::ErrorStatus KoDbHatch::setSeedPoints(std::vector<KoGePoint2d> seeds)
{
    KODB_WRITE_GUARD();
    m_seeds = std::move(seeds);
    return Kora::eOk;
}

Kora::ErrorStatus KoDbHatch::getGeomExtents(KoDbExtents& extents) const
{
    extents = {};
    const Ocs ocs(m_normal);
    auto add = [&](double x, double y) { extents.addPoint(ocs.toWorld(x, y, m_elevation)); };
    constexpr double kDeg = std::numbers::pi / 180.0;
    for (const Loop& loop : m_loops) {
        const size_t n = loop.vertices.size();
        for (size_t i = 0; i < n; ++i) {
            const bool last = i + 1 == n;
            if (last && !loop.closed) {
                add(loop.vertices[i].x, loop.vertices[i].y);
                break;
            }
            addBulge(loop.vertices[i], loop.vertices[(i + 1) % n], loop.bulges.empty() ? 0.0 : loop.bulges[i], add);
        }
        for (const Edge& e : loop.edges) {
            switch (e.type) {
            case kLine:
                add(e.start.x, e.start.y);
                add(e.end.x, e.end.y);
                break;
            case kCirArc: {
                double s = e.startAngle * kDeg, t = e.endAngle * kDeg;
                if (!e.counterClockwise) std::tie(s, t) = std::pair(-t, -s);
                addArc2d(e.center.x, e.center.y, e.radius, s, t, [&](double x, double y) {
                    add(x, e.counterClockwise ? y : 2 * e.center.y - y);
                });
                break;
            }
            case kEllArc: {
                // Bounded by the full ellipse: exact enough for a fill's box.
                const double a = std::hypot(e.majorAxis.x, e.majorAxis.y), b = a * e.radius;
                const double r = std::max(a, b);
                add(e.center.x - r, e.center.y - r);
                add(e.center.x + r, e.center.y + r);
                break;
            }
            case kSpline:
                for (const auto& p : e.controlPoints) add(p.x, p.y);
                for (const auto& p : e.fitPoints) add(p.x, p.y);
                break;
            }
        }
    }
    return extents.isValid() ? Kora::eOk : Kora::eNotApplicable;
}

// ---- viewport ------------------------------------------------------------------

KORX_DEFINE_MEMBERS(KoDbViewport, KoDbEntity)
KODB_SETTER(KoDbViewport, setCenterPoint, const KoGePoint3d&, m_center)
KODB_SETTER(KoDbViewport, setNumber, int, m_number)
KODB_SETTER(KoDbViewport, setStatus, int, m_status)
KODB_SETTER(KoDbViewport, setViewCenter, const KoGePoint2d&, m_viewCenter)
KODB_SETTER(KoDbViewport, setViewTarget, const KoGePoint3d&, m_viewTarget)
KODB_SETTER(KoDbViewport, setTwistAngle, double, m_twist)
KODB_SETTER(KoDbViewport, setLensLength, double, m_lens)
KODB_SETTER(KoDbViewport, setStatusFlags, int, m_flags)

Kora::ErrorStatus KoDbViewport::setWidth(double w)
{
    KODB_WRITE_GUARD();
    if (w < 0.0) return Kora::eInvalidInput;
    m_width = w;
    return Kora::eOk;
}

Kora::ErrorStatus KoDbViewport::setHeight(double h)
{
    KODB_WRITE_GUARD();
    if (h < 0.0) return Kora::eInvalidInput;
    m_height = h;
    return Kora::eOk;
}

Kora::ErrorStatus KoDbViewport::setViewHeight(double h)
{
    KODB_WRITE_GUARD();
    if (!(h > 0.0)) return Kora::eInvalidInput;
    m_viewHeight = h;
    return Kora::eOk;
}

Kora::ErrorStatus KoDbViewport::setViewDirection(const KoGeVector3d& d)
{
    KODB_WRITE_GUARD();
    if (d.length() == 0.0) return Kora::eInvalidInput;
    m_viewDirection = d;
    return Kora::eOk;
}

Kora::ErrorStatus KoDbViewport::getGeomExtents(KoDbExtents& extents) const
{
    extents = KoDbExtents({m_center.x - m_width / 2, m_center.y - m_height / 2, m_center.z},
                          {m_center.x + m_width / 2, m_center.y + m_height / 2, m_center.z});
    return Kora::eOk;
}

// ---- opaque entities ------------------------------------------------------------

KORX_DEFINE_MEMBERS(KoDbOpaqueEntity, KoDbEntity)
KORX_DEFINE_MEMBERS(KoDb3dSolid, KoDbOpaqueEntity)
KORX_DEFINE_MEMBERS(KoDbRegion, KoDbOpaqueEntity)
KORX_DEFINE_MEMBERS(KoDbBody, KoDbOpaqueEntity)
KORX_DEFINE_MEMBERS(KoDbSurface, KoDbOpaqueEntity)
KORX_DEFINE_MEMBERS(KoDbOleFrame, KoDbOpaqueEntity)
KORX_DEFINE_MEMBERS(KoDbOle2Frame, KoDbOleFrame)
KORX_DEFINE_MEMBERS(KoDbUnknownEntity, KoDbOpaqueEntity)

KoDb3dSolid::KoDb3dSolid() { setDxfName("3DSOLID"); }
KoDbRegion::KoDbRegion() { setDxfName("REGION"); }
KoDbBody::KoDbBody() { setDxfName("BODY"); }
KoDbSurface::KoDbSurface() { setDxfName("SURFACE"); }
KoDbOleFrame::KoDbOleFrame() { setDxfName("OLEFRAME"); }
KoDbOle2Frame::KoDbOle2Frame() { setDxfName("OLE2FRAME"); }
