#include "exportelements.h"

#include <algorithm>
#include <cmath>
#include <limits>
#include <memory>
#include <numbers>

#include "kora/db/underlay.h"
#include "kora/dxf/dxf.h"

namespace Kora::Dgn::ExportDetail {

using namespace V7;

namespace {

constexpr double Pi = std::numbers::pi;
// Vertices a line string or shape holds.
constexpr std::size_t MaxVertices = 101;
// Segments a full turn of a stroked curve gets.
constexpr int SegmentsPerTurn = 72;
// Block references nested deeper than this are taken for a cycle.
constexpr int MaxNesting = 32;
// One unit of a cell transformation is worth 10000 / 2^31.
constexpr double CellTransformScale = 2147483648.0 / 10000.0;
constexpr double QuaternionScale = 2147483647.0;

KoGeVector3d unit(const KoGeVector3d& v) { return v.normal(); }

// The plane axes of an entity's coordinate system (the arbitrary-axis
// rule of drawing files).
struct Plane {
    KoGeVector3d x, y, z;
    explicit Plane(const KoGeVector3d& normal)
    {
        if (normal == KoGeVector3d::kZAxis() || normal.length() == 0) { // nearly every entity: the world's own axes
            x = KoGeVector3d::kXAxis(), y = {0, 1, 0}, z = KoGeVector3d::kZAxis();
            return;
        }
        z = normal.normal();
        const bool nearZ = std::fabs(z.x) < 1.0 / 64 && std::fabs(z.y) < 1.0 / 64;
        x = (nearZ ? KoGeVector3d(0, 1, 0) : KoGeVector3d(0, 0, 1)).crossProduct(z).normal();
        y = z.crossProduct(x).normal();
    }
    KoGePoint3d world(double px, double py, double pz) const
    {
        return KoGePoint3d() + x * px + y * py + z * pz;
    }
    KoGePoint3d world(const KoGePoint3d& p) const { return world(p.x, p.y, p.z); }
};

// The stored quaternion of the rotation whose matrix has the columns x, y, z.
std::array<std::int32_t, 4> quaternion(const KoGeVector3d& x, const KoGeVector3d& y, const KoGeVector3d& z)
{
    const double r[3][3] = {{x.x, y.x, z.x}, {x.y, y.y, z.y}, {x.z, y.z, z.z}};
    double w, qx, qy, qz;
    const double trace = r[0][0] + r[1][1] + r[2][2];
    if (trace > 0) {
        const double s = std::sqrt(trace + 1) * 2;
        w = s / 4, qx = (r[2][1] - r[1][2]) / s, qy = (r[0][2] - r[2][0]) / s, qz = (r[1][0] - r[0][1]) / s;
    } else if (r[0][0] > r[1][1] && r[0][0] > r[2][2]) {
        const double s = std::sqrt(1 + r[0][0] - r[1][1] - r[2][2]) * 2;
        w = (r[2][1] - r[1][2]) / s, qx = s / 4, qy = (r[0][1] + r[1][0]) / s, qz = (r[0][2] + r[2][0]) / s;
    } else if (r[1][1] > r[2][2]) {
        const double s = std::sqrt(1 + r[1][1] - r[0][0] - r[2][2]) * 2;
        w = (r[0][2] - r[2][0]) / s, qx = (r[0][1] + r[1][0]) / s, qy = s / 4, qz = (r[1][2] + r[2][1]) / s;
    } else {
        const double s = std::sqrt(1 + r[2][2] - r[0][0] - r[1][1]) * 2;
        w = (r[1][0] - r[0][1]) / s, qx = (r[0][2] + r[2][0]) / s, qy = (r[1][2] + r[2][1]) / s, qz = s / 4;
    }
    // The file keeps the vector part negated.
    auto scaled = [](double v) { return static_cast<std::int32_t>(std::lround(std::clamp(v, -1.0, 1.0) * QuaternionScale)); };
    return {scaled(w), scaled(-qx), scaled(-qy), scaled(-qz)};
}

std::int32_t angle(double radians)
{
    return angleFromDegrees(std::fmod(radians, 2 * Pi) * 180 / Pi);
}

// V7 texts hold 8-bit characters: Latin-1, anything else as "?".
std::string latin1(std::wstring_view text)
{
    std::string out;
    out.reserve(text.size());
    for (const wchar_t c : text) out.push_back(c >= 0 && c <= 0xFF ? static_cast<char>(c) : '?');
    return out;
}

// A text element holds at most 255 characters: longer lines are cut,
// at a blank where there is one.
std::vector<std::string> textLines(const std::vector<std::string>& lines)
{
    std::vector<std::string> out;
    for (std::string line : lines) {
        while (line.size() > 255) {
            std::size_t cut = line.rfind(' ', 255);
            if (cut == std::string::npos || cut == 0) cut = 255;
            out.push_back(line.substr(0, cut));
            line.erase(0, line[cut] == ' ' ? cut + 1 : cut);
        }
        out.push_back(std::move(line));
    }
    return out;
}

// The lines of a multi-line text without its formatting codes.
std::vector<std::string> mtextLines(const std::wstring& contents)
{
    std::vector<std::string> lines(1);
    std::wstring line;
    auto endLine = [&] {
        lines.back() = latin1(line);
        line.clear();
        lines.emplace_back();
    };
    for (std::size_t i = 0; i < contents.size(); ++i) {
        const wchar_t c = contents[i];
        if (c == L'{' || c == L'}') continue;
        if (c == L'\n') {
            endLine();
            continue;
        }
        if (c != L'\\' || i + 1 == contents.size()) {
            line += c;
            continue;
        }
        const wchar_t code = contents[++i];
        switch (code) {
        case L'P': endLine(); break;
        case L'~': line += L' '; break;
        case L'\\': case L'{': case L'}': line += code; break;
        case L'L': case L'l': case L'O': case L'o': case L'K': case L'k': break;
        case L'S': { // stacked text "a^b;" reads "a/b"
            for (++i; i < contents.size() && contents[i] != L';'; ++i)
                line += (contents[i] == L'^' || contents[i] == L'#') ? L'/' : contents[i];
            break;
        }
        default: // codes with a value up to ";": fonts, heights, colours...
            while (i < contents.size() && contents[i] != L';') ++i;
        }
    }
    lines.back() = latin1(line);
    return textLines(lines);
}

// The cell name of a block: up to six Radix-50 characters.
std::uint32_t radix50(const KoString& name)
{
    static constexpr std::string_view Alphabet = " ABCDEFGHIJKLMNOPQRSTUVWXYZ$.?0123456789";
    const std::string text = latin1(name.upper().view());
    std::uint32_t words[2] = {0, 0};
    for (std::size_t i = 0; i < 6; ++i) {
        std::size_t code = 0;
        if (i < text.size()) {
            code = Alphabet.find(text[i]);
            if (code == std::string_view::npos) code = Alphabet.find('?');
        }
        words[i / 3] = words[i / 3] * 40 + static_cast<std::uint32_t>(code);
    }
    return (words[0] << 16) | words[1];
}

std::int32_t cellTransformValue(double v)
{
    return static_cast<std::int32_t>(std::clamp(std::round(v * CellTransformScale), -2147483648.0, 2147483647.0));
}

// The point of a B-spline (de Boor), rational or not.
KoGePoint3d splinePoint(int degree, const std::vector<double>& knots, const std::vector<KoGePoint3d>& poles,
                        const std::vector<double>& weights, double u)
{
    const int n = static_cast<int>(poles.size());
    int span = degree;
    while (span + 1 < n && knots[span + 1] <= u) ++span;
    std::vector<std::array<double, 4>> d(degree + 1);
    for (int j = 0; j <= degree; ++j) {
        const KoGePoint3d& p = poles[span - degree + j];
        const double w = weights.empty() ? 1.0 : weights[span - degree + j];
        d[j] = {p.x * w, p.y * w, p.z * w, w};
    }
    for (int r = 1; r <= degree; ++r)
        for (int j = degree; j >= r; --j) {
            const double left = knots[span - degree + j], right = knots[span + 1 + j - r];
            const double a = right > left ? (u - left) / (right - left) : 0.0;
            for (int k = 0; k < 4; ++k) d[j][k] = (1 - a) * d[j - 1][k] + a * d[j][k];
        }
    const double w = d[degree][3] != 0 ? d[degree][3] : 1.0;
    return {d[degree][0] / w, d[degree][1] / w, d[degree][2] / w};
}

// A spline as points: its control-point form evaluated, eight points a
// knot span, or its fit points when it has no control points.
std::vector<KoGePoint3d> strokeSpline(int degree, const std::vector<double>& knots, const std::vector<KoGePoint3d>& poles,
                                      const std::vector<double>& weights, const std::vector<KoGePoint3d>& fitPoints)
{
    const int n = static_cast<int>(poles.size());
    if (degree < 1 || n <= degree || knots.size() != static_cast<std::size_t>(n + degree + 1)
        || (!weights.empty() && weights.size() != poles.size()))
        return fitPoints.empty() ? poles : fitPoints;
    std::vector<KoGePoint3d> out;
    for (int span = degree; span < n; ++span) {
        const double a = knots[span], b = knots[span + 1];
        if (!(b > a)) continue;
        for (int i = 0; i < 8; ++i) out.push_back(splinePoint(degree, knots, poles, weights, a + (b - a) * i / 8));
    }
    out.push_back(splinePoint(degree, knots, poles, weights, knots[n]));
    return out;
}

// The centre, start angle and signed sweep of a bulged polyline segment.
struct BulgeArc {
    KoGePoint2d centre;
    double radius, start, sweep;
};
BulgeArc bulgeArc(const KoGePoint2d& a, const KoGePoint2d& b, double bulge)
{
    const double sweep = 4 * std::atan(bulge);
    const double dx = b.x - a.x, dy = b.y - a.y, chord = std::hypot(dx, dy);
    const double h = chord / 2 / std::tan(sweep / 2); // from the chord's middle to the centre, leftwards
    const KoGePoint2d centre((a.x + b.x) / 2 - dy / chord * h, (a.y + b.y) / 2 + dx / chord * h);
    return {centre, std::hypot(a.x - centre.x, a.y - centre.y), std::atan2(a.y - centre.y, a.x - centre.x), sweep};
}

// Points along an arc of a plane from `start` sweeping `sweep` radians,
// both ends included.
void strokeArc2d(const KoGePoint2d& c, double rx, double ry, double start, double sweep, std::vector<KoGePoint2d>& out)
{
    const int n = std::max(2, static_cast<int>(std::ceil(std::fabs(sweep) / (2 * Pi) * SegmentsPerTurn)));
    for (int i = out.empty() ? 0 : 1; i <= n; ++i) {
        const double t = start + sweep * i / n;
        out.emplace_back(c.x + rx * std::cos(t), c.y + ry * std::sin(t));
    }
}

// The boundary of one hatch loop in the hatch's plane.
std::vector<KoGePoint2d> hatchLoop(const KoDbHatch::Loop& loop)
{
    std::vector<KoGePoint2d> out;
    if (loop.isPolyline()) {
        const std::size_t n = loop.vertices.size();
        for (std::size_t i = 0; i < n; ++i) {
            const bool last = i + 1 == n;
            if (last && !loop.closed) {
                out.push_back(loop.vertices[i]);
                break;
            }
            const KoGePoint2d& a = loop.vertices[i];
            const KoGePoint2d& b = loop.vertices[last ? 0 : i + 1];
            const double bulge = i < loop.bulges.size() ? loop.bulges[i] : 0.0;
            if (bulge == 0 || (a.x == b.x && a.y == b.y)) {
                out.push_back(a);
                continue;
            }
            const BulgeArc arc = bulgeArc(a, b, bulge);
            std::vector<KoGePoint2d> points;
            strokeArc2d(arc.centre, arc.radius, arc.radius, arc.start, arc.sweep, points);
            out.insert(out.end(), points.begin(), points.end() - 1);
        }
        return out;
    }
    for (const KoDbHatch::Edge& e : loop.edges) {
        std::vector<KoGePoint2d> points;
        switch (e.type) {
        case KoDbHatch::kLine: points = {e.start, e.end}; break;
        case KoDbHatch::kCirArc:
        case KoDbHatch::kEllArc: {
            const double s = e.startAngle * Pi / 180, t = e.endAngle * Pi / 180;
            double sweep = std::fmod(t - s, 2 * Pi);
            if (sweep <= 0) sweep += 2 * Pi;
            // Clockwise edges keep their angles mirrored.
            const double start = e.counterClockwise ? s : -s, signedSweep = e.counterClockwise ? sweep : -sweep;
            if (e.type == KoDbHatch::kCirArc) {
                strokeArc2d(e.center, e.radius, e.radius, start, signedSweep, points);
            } else {
                const double major = std::hypot(e.majorAxis.x, e.majorAxis.y), turn = std::atan2(e.majorAxis.y, e.majorAxis.x);
                std::vector<KoGePoint2d> local;
                strokeArc2d({0, 0}, major, major * e.radius, start, signedSweep, local);
                for (const KoGePoint2d& p : local)
                    points.emplace_back(e.center.x + p.x * std::cos(turn) - p.y * std::sin(turn),
                                        e.center.y + p.x * std::sin(turn) + p.y * std::cos(turn));
            }
            break;
        }
        case KoDbHatch::kSpline: {
            std::vector<KoGePoint3d> poles, fits;
            for (const KoGePoint2d& p : e.controlPoints) poles.emplace_back(p.x, p.y);
            for (const KoGePoint2d& p : e.fitPoints) fits.emplace_back(p.x, p.y);
            for (const KoGePoint3d& p : strokeSpline(e.degree, e.knots, poles, e.rational ? e.weights : std::vector<double>{}, fits))
                points.emplace_back(p.x, p.y);
            break;
        }
        }
        // Each edge starts where the last one ended.
        if (!points.empty() && !out.empty()) points.erase(points.begin());
        out.insert(out.end(), points.begin(), points.end());
    }
    return out;
}

std::vector<std::byte> fillLinkage(std::uint8_t colour)
{
    // A user linkage (0x1007) of id 0x41 that holds the fill colour.
    std::vector<std::byte> bytes(16, std::byte{0});
    const std::uint8_t head[8] = {0x07, 0x10, 0x41, 0x00, 0x02, 0x08, 0x01, 0x00};
    for (int i = 0; i < 8; ++i) bytes[i] = std::byte{head[i]};
    bytes[8] = std::byte{colour};
    return bytes;
}

void addLevels(const Node& node, std::array<std::uint16_t, 4>& mask)
{
    const int level = node.element.header.level;
    mask[level / 16] = static_cast<std::uint16_t>(mask[level / 16] | (1u << (level % 16)));
    for (const Node& child : node.children) addLevels(child, mask);
}

// A 2D polyline of the old kind, which the database keeps as its tags:
// its vertices as a lightweight polyline; null for meshes, polyface
// meshes and anything else.
std::unique_ptr<KoDbPolyline> oldPolyline(const KoDbUnknownEntity& e)
{
    if (e.dxfName() != "POLYLINE") return nullptr;
    auto number = [](const KoDbDxfTag& t) { return std::strtod(t.value.c_str(), nullptr); };
    int flags = 0;
    double elevation = 0;
    KoGeVector3d normal = KoGeVector3d::kZAxis();
    for (const KoDbDxfTag& t : e.preservedTags()) {
        if (t.code == 70) flags = static_cast<int>(number(t));
        else if (t.code == 30) elevation = number(t);
        else if (t.code == 210) normal.x = number(t);
        else if (t.code == 220) normal.y = number(t);
        else if (t.code == 230) normal.z = number(t);
    }
    if (flags & (8 | 16 | 64)) return nullptr;
    std::vector<KoDbPolyline::Vertex> vertices;
    for (const KoDbDxfRecord& r : e.subRecords()) {
        if (r.dxfName != "VERTEX") continue;
        KoDbPolyline::Vertex v;
        int vertexFlags = 0;
        for (const KoDbDxfTag& t : r.tags) {
            if (t.code == 10) v.point.x = number(t);
            else if (t.code == 20) v.point.y = number(t);
            else if (t.code == 42) v.bulge = number(t);
            else if (t.code == 70) vertexFlags = static_cast<int>(number(t));
        }
        if ((vertexFlags & 16) == 0) vertices.push_back(v); // not a spline's frame point
    }
    auto polyline = std::make_unique<KoDbPolyline>();
    polyline->setVertices(std::move(vertices));
    polyline->setClosed((flags & 1) != 0);
    polyline->setElevation(elevation);
    polyline->setNormal(normal);
    return polyline;
}

} // namespace

KoGePoint3d Transform::apply(const KoGePoint3d& p) const
{
    return {m[0][0] * p.x + m[0][1] * p.y + m[0][2] * p.z + m[0][3], m[1][0] * p.x + m[1][1] * p.y + m[1][2] * p.z + m[1][3],
            m[2][0] * p.x + m[2][1] * p.y + m[2][2] * p.z + m[2][3]};
}

KoGeVector3d Transform::applyVector(const KoGeVector3d& v) const
{
    return {m[0][0] * v.x + m[0][1] * v.y + m[0][2] * v.z, m[1][0] * v.x + m[1][1] * v.y + m[1][2] * v.z,
            m[2][0] * v.x + m[2][1] * v.y + m[2][2] * v.z};
}

Transform Transform::operator*(const Transform& inner) const
{
    Transform out;
    for (int i = 0; i < 3; ++i)
        for (int j = 0; j < 4; ++j)
            out.m[i][j] = m[i][0] * inner.m[0][j] + m[i][1] * inner.m[1][j] + m[i][2] * inner.m[2][j] + (j == 3 ? m[i][3] : 0.0);
    return out;
}

// An ellipse or elliptic arc: centre + u cos t + v sin t for t from `start`
// through `sweep` (signed), u and v perpendicular.
struct ElementBuilder::Conic {
    KoGePoint3d centre;
    KoGeVector3d u, v;
    double start = 0, sweep = 2 * Pi;
    bool full = true;

    KoGePoint3d at(double t) const { return centre + u * std::cos(t) + v * std::sin(t); }
    std::vector<KoGePoint3d> stroke() const
    {
        const int n = std::max(2, static_cast<int>(std::ceil(std::fabs(sweep) / (2 * Pi) * SegmentsPerTurn)));
        std::vector<KoGePoint3d> out;
        for (int i = 0; i <= n; ++i) out.push_back(at(start + sweep * i / n));
        if (full) out.pop_back();
        return out;
    }
    static Conic circle(const Plane& plane, const KoGePoint3d& centre, double radius)
    {
        return {plane.world(centre), plane.x * radius, plane.y * radius};
    }
};

ElementBuilder::ElementBuilder(const Units& units, bool is3d, double drawingToMaster, SymbologyMapper& symbology,
                               DgnTranslationReport& report)
    : m_units(units), m_is3d(is3d), m_toMaster(drawingToMaster), m_symbology(symbology), m_report(report)
{
}

DoublePoint ElementBuilder::uorExact(const KoGePoint3d& world, const Transform& t) const
{
    const KoGePoint3d p = t.apply(world);
    return m_units.toUorExact({p.x * m_toMaster, p.y * m_toMaster, m_is3d ? p.z * m_toMaster : 0.0});
}

IntPoint ElementBuilder::uor(const KoGePoint3d& world, const Transform& t) const
{
    const KoGePoint3d p = t.apply(world);
    IntPoint out;
    if (!m_units.toUor({p.x * m_toMaster, p.y * m_toMaster, m_is3d ? p.z * m_toMaster : 0.0}, out)) {
        char text[160];
        std::snprintf(text, sizeof text, "the point (%.6g, %.6g, %.6g) lies outside the design plane of the seed file", p.x,
                      p.y, p.z);
        throw OutsidePlane(text);
    }
    if (!m_is3d) out.z = 0;
    return out;
}

double ElementBuilder::uorLength(double drawingLength) const
{
    return m_units.lengthToUor(drawingLength * m_toMaster);
}

Orientation ElementBuilder::orientation(const KoGeVector3d& xAxis, const KoGeVector3d& normal) const
{
    Orientation o;
    if (!m_is3d) {
        o.angle = angle(std::atan2(xAxis.y, xAxis.x));
        return o;
    }
    const KoGeVector3d z = normal.length() > 0 ? unit(normal) : KoGeVector3d::kZAxis();
    KoGeVector3d x = xAxis + z * -xAxis.dotProduct(z);
    x = x.length() > 0 ? unit(x) : Plane(z).x;
    o.quaternion = quaternion(x, z.crossProduct(x), z);
    return o;
}

Node ElementBuilder::element(ElementType type, const Symbol& s, Body body) const
{
    Node node;
    node.element.header.type = type;
    node.element.header.level = s.level;
    node.element.header.symbology = s.symbology;
    node.element.body = std::move(body);
    return node;
}

void ElementBuilder::points(const std::vector<KoGePoint3d>& world, bool closed, const Transform& t, const Symbol& s,
                            std::vector<Node>& out, const std::vector<std::byte>& linkage, std::uint16_t properties)
{
    std::vector<IntPoint> p;
    p.reserve(world.size() + 1);
    for (const KoGePoint3d& w : world) p.push_back(uor(w, t));
    points(std::move(p), closed, s, out, linkage, properties);
}

void ElementBuilder::points(std::vector<IntPoint> p, bool closed, const Symbol& s, std::vector<Node>& out,
                            const std::vector<std::byte>& linkage, std::uint16_t properties)
{
    if (p.empty()) return;
    if (p.size() == 1) { // a point is a line of no length
        out.push_back(element(ElementType::Line, s, Line{p[0], p[0]}));
        return;
    }
    if (closed && p.front() != p.back()) p.push_back(p.front());
    closed = closed && p.size() >= 4;
    Node node;
    if (p.size() <= MaxVertices) {
        node = element(closed ? ElementType::Shape : ElementType::LineString, s, Vertices{std::move(p)});
    } else {
        node = element(closed ? ElementType::ComplexShapeHeader : ElementType::ComplexChainHeader, s, ComplexHeader{});
        for (std::size_t first = 0; first + 1 < p.size(); first += MaxVertices - 1) {
            const std::size_t last = std::min(p.size(), first + MaxVertices);
            node.children.push_back(element(ElementType::LineString, s, Vertices{{p.begin() + first, p.begin() + last}}));
        }
    }
    node.element.header.attributes = linkage;
    node.element.header.properties = properties;
    out.push_back(std::move(node));
}

void ElementBuilder::line(const KoDbLine& e, const Transform& t, const Symbol& s, std::vector<Node>& out)
{
    out.push_back(element(ElementType::Line, s, Line{uor(e.startPoint(), t), uor(e.endPoint(), t)}));
}

void ElementBuilder::polyline(const KoDbPolyline& e, const Transform& t, const Symbol& s, std::vector<Node>& out)
{
    const Plane plane(e.normal());
    const auto& v = e.vertices();
    const bool closed = e.isClosed();
    auto at = [&](std::size_t i) { return plane.world(v[i].point.x, v[i].point.y, e.elevation()); };
    const std::size_t segments = closed ? v.size() : (v.empty() ? 0 : v.size() - 1);
    bool bulged = false;
    for (std::size_t i = 0; i < segments; ++i) bulged = bulged || v[i].bulge != 0;
    if (!bulged) {
        std::vector<IntPoint> p;
        p.reserve(v.size() + 1);
        for (std::size_t i = 0; i < v.size(); ++i) p.push_back(uor(at(i), t));
        points(std::move(p), closed, s, out);
        return;
    }
    // Straight runs as line strings, bulges as arcs, in one complex element.
    Node chain = element(closed ? ElementType::ComplexShapeHeader : ElementType::ComplexChainHeader, s, ComplexHeader{});
    std::vector<KoGePoint3d> run;
    auto endRun = [&] {
        if (run.size() >= 2) points(run, false, t, s, chain.children);
        run.clear();
    };
    for (std::size_t i = 0; i < segments; ++i) {
        const std::size_t j = (i + 1) % v.size();
        const KoGePoint2d& a = v[i].point;
        const KoGePoint2d& b = v[j].point;
        if (v[i].bulge == 0 || (a.x == b.x && a.y == b.y)) {
            if (run.empty()) run.push_back(at(i));
            run.push_back(at(j));
            continue;
        }
        endRun();
        const BulgeArc arc = bulgeArc(a, b, v[i].bulge);
        Conic c = Conic::circle(plane, {arc.centre.x, arc.centre.y, e.elevation()}, arc.radius);
        c.start = arc.start, c.sweep = arc.sweep, c.full = false;
        conic(c, t, s, chain.children);
    }
    endRun();
    // Components that are themselves complex (a run of more vertices than a
    // line string holds) give their line strings to the chain.
    std::vector<Node> flat;
    for (Node& child : chain.children) {
        if (child.children.empty()) flat.push_back(std::move(child));
        else for (Node& grandchild : child.children) flat.push_back(std::move(grandchild));
    }
    chain.children = std::move(flat);
    out.push_back(std::move(chain));
}

void ElementBuilder::conic(const Conic& c, const Transform& t, const Symbol& s, std::vector<Node>& out)
{
    // The axes as the transformation leaves them, made perpendicular again
    // (a scale along one axis of a turned ellipse skews them).
    KoGeVector3d u = t.applyVector(c.u), v = t.applyVector(c.v);
    double shift = 0;
    if (std::fabs(u.dotProduct(v)) > 1e-12 * u.length() * v.length()) {
        shift = 0.5 * std::atan2(2 * u.dotProduct(v), u.dotProduct(u) - v.dotProduct(v));
        const KoGeVector3d pu = u * std::cos(shift) + v * std::sin(shift), pv = u * -std::sin(shift) + v * std::cos(shift);
        u = pu, v = pv;
    }
    KoGeVector3d normal = u.crossProduct(v);
    normal = normal.length() > 0 ? unit(normal) : KoGeVector3d::kZAxis();
    double start = c.start - shift, sweep = c.sweep;
    if (!m_is3d) {
        if (std::fabs(normal.z) < 1 - 1e-9) { // a tilted conic is no conic of a 2D design
            points(c.stroke(), c.full, t, s, out);
            return;
        }
        if (normal.z < 0) start = -start, sweep = -sweep; // seen from below: mirrored
    }
    const Orientation o = orientation(u, normal);
    const double a = uorLength(u.length()), b = uorLength(v.length());
    (void)uor(c.centre, t); // the centre must lie on the design plane
    const DoublePoint origin = uorExact(c.centre, t);
    if (c.full) out.push_back(element(ElementType::Ellipse, s, Ellipse{a, b, o, origin}));
    else out.push_back(element(ElementType::Arc, s, Arc{angle(start), angleFromDegrees(sweep * 180 / Pi), a, b, o, origin}));
}

void ElementBuilder::text(const KoDbText& e, const Transform& t, const Symbol& s, std::vector<Node>& out)
{
    const Plane plane(e.normal());
    const KoGeVector3d dir = plane.x * std::cos(e.rotation()) + plane.y * std::sin(e.rotation());
    const KoGeVector3d up = plane.z.crossProduct(dir);
    const auto h = e.horizontalMode();
    const auto vmode = e.verticalMode();
    const bool fitted = h == KoDbText::kTextAlign || h == KoDbText::kTextFit;
    const bool left = h == KoDbText::kTextLeft || fitted;
    // Texts placed by their alignment point are measured from it; left
    // aligned and fitted texts start at their insertion point.
    const bool anchored = !fitted && !(h == KoDbText::kTextLeft && vmode == KoDbText::kTextBase);
    const std::vector<std::string> lines = textLines({latin1(e.textString().view())});
    const double width = static_cast<double>(lines.front().size()) * e.height() * e.widthFactor();
    const double dx = left ? 0 : (h == KoDbText::kTextRight ? -width : -width / 2);
    const double dy = !anchored                                                  ? 0
                      : h == KoDbText::kTextMid || vmode == KoDbText::kTextVertMid ? -e.height() / 2
                      : vmode == KoDbText::kTextTop                              ? -e.height()
                                                                                 : 0;
    const KoGePoint3d anchor = plane.world(anchored ? e.alignmentPoint() : e.position());
    const int justification = (left ? 0 : h == KoDbText::kTextRight ? 12 : 6)
                              + (h == KoDbText::kTextMid || vmode == KoDbText::kTextVertMid ? 1
                                 : vmode == KoDbText::kTextTop                              ? 0
                                                                                            : 2);
    const KoGeVector3d tDir = t.applyVector(dir), tUp = t.applyVector(up);
    const double height = uorLength(e.height() * tUp.length());
    const double charWidth = uorLength(e.height() * e.widthFactor() * tDir.length());
    const Orientation o = orientation(tDir, tDir.crossProduct(tUp));
    auto textAt = [&](const std::string& line, const KoGePoint3d& lowerLeft) {
        Text body;
        body.justification = static_cast<std::uint8_t>(justification);
        body.lengthMultiplier = textMultiplierFromUor(charWidth);
        body.heightMultiplier = textMultiplierFromUor(height);
        body.orientation = o;
        body.origin = uor(lowerLeft, t);
        body.text = line;
        return element(ElementType::Text, s, std::move(body));
    };
    const KoGePoint3d lowerLeft = anchor + dir * dx + up * dy;
    if (lines.size() == 1) {
        out.push_back(textAt(lines.front(), lowerLeft));
        return;
    }
    // Cut into lines of 255 characters, one under the other in a text node.
    Node node = element(ElementType::TextNode, s, TextNode{});
    TextNode& head = std::get<TextNode>(node.element.body);
    head.nodeNumber = m_nextTextNode++;
    head.maxLength = head.maxUsed = 255;
    head.justification = static_cast<std::uint8_t>(justification);
    head.lineSpacing = static_cast<std::int32_t>(std::lround(height * 2 / 3));
    head.lengthMultiplier = textMultiplierFromUor(charWidth);
    head.heightMultiplier = textMultiplierFromUor(height);
    head.orientation = o;
    head.origin = uor(lowerLeft, t);
    for (std::size_t i = 0; i < lines.size(); ++i)
        node.children.push_back(textAt(lines[i], lowerLeft + up * (-5.0 / 3.0 * e.height() * static_cast<double>(i))));
    out.push_back(std::move(node));
}

void ElementBuilder::mtext(const KoDbMText& e, const Transform& t, const Symbol& s, std::vector<Node>& out)
{
    const std::vector<std::string> lines = mtextLines(e.contents().str());
    const KoGeVector3d normal = e.normal().length() > 0 ? unit(e.normal()) : KoGeVector3d::kZAxis();
    const KoGeVector3d dir = e.direction().length() > 0 ? unit(e.direction()) : Plane(normal).x;
    const KoGeVector3d up = normal.crossProduct(dir);
    const double h = e.textHeight();
    const double spacing = 5.0 / 3.0 * h * e.lineSpacingFactor();
    const double blockHeight = h + spacing * static_cast<double>(lines.size() - 1);
    const int column = (e.attachment() - 1) % 3, row = (e.attachment() - 1) / 3;
    const double top = blockHeight * row / 2;
    const KoGeVector3d tDir = t.applyVector(dir), tUp = t.applyVector(up);
    const double height = uorLength(h * tUp.length()), charWidth = uorLength(h * tDir.length());
    const Orientation o = orientation(tDir, tDir.crossProduct(tUp));

    Node node = element(ElementType::TextNode, s, TextNode{});
    TextNode& head = std::get<TextNode>(node.element.body);
    head.nodeNumber = m_nextTextNode++;
    head.justification = static_cast<std::uint8_t>(column * 6 + row);
    head.lineSpacing = static_cast<std::int32_t>(std::lround(uorLength((spacing - h) * tUp.length())));
    head.lengthMultiplier = textMultiplierFromUor(charWidth);
    head.heightMultiplier = textMultiplierFromUor(height);
    head.orientation = o;
    head.origin = uor(e.location(), t);
    for (std::size_t i = 0; i < lines.size(); ++i) {
        if (lines[i].empty()) continue;
        head.maxLength = head.maxUsed = std::max<std::uint8_t>(head.maxUsed, static_cast<std::uint8_t>(lines[i].size()));
        const double width = static_cast<double>(lines[i].size()) * h;
        const KoGePoint3d lowerLeft = e.location() + dir * (-width * column / 2)
                                      + up * (top - h - spacing * static_cast<double>(i));
        Text body;
        body.justification = head.justification;
        body.lengthMultiplier = head.lengthMultiplier;
        body.heightMultiplier = head.heightMultiplier;
        body.orientation = o;
        body.origin = uor(lowerLeft, t);
        body.text = lines[i];
        node.children.push_back(element(ElementType::Text, s, std::move(body)));
    }
    if (node.children.empty()) {
        m_report.skip("MTEXT", "holds no text");
        return;
    }
    out.push_back(std::move(node));
}

void ElementBuilder::cell(const KoDbBlockReference& e, const Transform& t, const ByBlock& byBlock, const Symbol& s,
                          std::vector<Node>& out)
{
    KoDbObjectPointer<KoDbBlockTableRecord> block(e.blockTableRecord());
    if (!block) {
        m_report.skip("INSERT", "its block does not exist");
        return;
    }
    if (m_depth >= MaxNesting) {
        m_report.skip("INSERT", "blocks nested too deep (a block that holds itself)");
        return;
    }
    // Block coordinates to the reference's plane: less the base point,
    // scaled, turned, placed at the insertion point.
    const Plane plane(e.normal());
    const KoGeScale3d& k = e.scaleFactors();
    const double c = std::cos(e.rotation()), sn = std::sin(e.rotation());
    const KoGeVector3d ax = plane.x * (c * k.sx) + plane.y * (sn * k.sx);
    const KoGeVector3d ay = plane.x * (-sn * k.sy) + plane.y * (c * k.sy);
    const KoGeVector3d az = plane.z * k.sz;
    const KoGePoint3d at = plane.world(e.position());
    const KoGePoint3d& o = block->origin();
    Transform local;
    const double rows[3][3] = {{ax.x, ay.x, az.x}, {ax.y, ay.y, az.y}, {ax.z, ay.z, az.z}};
    const double pos[3] = {at.x, at.y, at.z};
    for (int i = 0; i < 3; ++i) {
        for (int j = 0; j < 3; ++j) local.m[i][j] = rows[i][j];
        local.m[i][3] = pos[i] - (rows[i][0] * o.x + rows[i][1] * o.y + rows[i][2] * o.z);
    }
    const Transform placed = t * local;
    const ByBlock inner = m_symbology.byBlockOf(e, byBlock);

    Node node = element(ElementType::CellHeader, s, CellHeader{});
    struct Nesting {
        int& depth;
        explicit Nesting(int& d) : depth(++d) {}
        ~Nesting() { --depth; }
    } nesting(m_depth);
    for (auto it = block->newIterator(); !it->done(); it->step()) {
        KoDbObjectId id;
        if (it->getEntityId(id) != Kora::eOk) continue;
        KoDbObjectPointer<KoDbEntity> entity(id);
        if (entity) convert(*entity.object(), placed, inner, node.children);
    }
    if (node.children.empty()) {
        m_report.skip("INSERT", "its block draws nothing");
        return;
    }
    CellHeader& head = std::get<CellHeader>(node.element.body);
    head.name = radix50(block->getName());
    for (const Node& child : node.children) addLevels(child, head.levels);
    const Transform& m = placed;
    if (m_is3d) {
        for (int i = 0; i < 3; ++i)
            for (int j = 0; j < 3; ++j) head.transform[3 * i + j] = cellTransformValue(m.m[i][j]);
    } else {
        head.transform = {cellTransformValue(m.m[0][0]), cellTransformValue(m.m[0][1]), cellTransformValue(m.m[1][0]),
                          cellTransformValue(m.m[1][1])};
    }
    head.origin = uor(at, t);
    out.push_back(std::move(node));
}

void ElementBuilder::hatch(const KoDbHatch& e, const Transform& t, const Symbol& s, std::vector<Node>& out)
{
    const Plane plane(e.normal());
    const auto& loops = e.loops();
    for (std::size_t i = 0; i < loops.size(); ++i) {
        std::vector<KoGePoint3d> world;
        for (const KoGePoint2d& p : hatchLoop(loops[i])) world.push_back(plane.world(p.x, p.y, e.elevation()));
        if (world.size() < 3) continue;
        // The outer boundary is filled; the loops inside it are holes.
        const bool outer = i == 0 || (loops[i].type & 1) != 0;
        points(world, true, t, s, out, outer ? fillLinkage(s.symbology.colour) : std::vector<std::byte>{},
               outer ? 0 : Property::Hole);
    }
}

void ElementBuilder::convert(const KoDbEntity& entity, const Transform& t, const ByBlock& byBlock, std::vector<Node>& out)
{
    if (KoDbUnderlayReference::cast(&entity)) {
        m_report.skip(kodbDxfName(&entity), "underlay references are not exported");
        return;
    }
    if (KoDbViewport::cast(&entity)) {
        m_report.skip("VIEWPORT", "views of model space are not exported");
        return;
    }
    if (const auto* unknown = KoDbUnknownEntity::cast(&entity))
        if (const auto flat = oldPolyline(*unknown)) {
            polyline(*flat, t, m_symbology.symbolOf(entity, byBlock), out);
            return;
        }
    if (const auto* opaque = KoDbOpaqueEntity::cast(&entity)) {
        m_report.skip(opaque->dxfName().empty() ? kodbDxfName(&entity) : opaque->dxfName(), "no DGN V7 element");
        return;
    }
    const Symbol s = m_symbology.symbolOf(entity, byBlock);
    if (const auto* e = KoDbLine::cast(&entity)) {
        line(*e, t, s, out);
    } else if (const auto* e = KoDbPoint::cast(&entity)) {
        points({e->position()}, false, t, s, out);
    } else if (const auto* e = KoDbPolyline::cast(&entity)) {
        polyline(*e, t, s, out);
    } else if (const auto* e = KoDb3dPolyline::cast(&entity)) {
        points(e->vertices(), e->isClosed(), t, s, out);
    } else if (const auto* e = KoDbArc::cast(&entity)) {
        Conic c = Conic::circle(Plane(e->normal()), e->center(), e->radius());
        c.start = e->startAngle();
        c.sweep = std::fmod(e->endAngle() - e->startAngle(), 2 * Pi);
        if (c.sweep <= 0) c.sweep += 2 * Pi;
        c.full = false;
        conic(c, t, s, out);
    } else if (const auto* e = KoDbCircle::cast(&entity)) {
        conic(Conic::circle(Plane(e->normal()), e->center(), e->radius()), t, s, out);
    } else if (const auto* e = KoDbEllipse::cast(&entity)) {
        const KoGeVector3d n = e->normal().length() > 0 ? unit(e->normal()) : KoGeVector3d::kZAxis();
        Conic c{e->center(), e->majorAxis(), n.crossProduct(e->majorAxis()) * e->radiusRatio()};
        c.start = e->startParam();
        c.sweep = e->endParam() - e->startParam();
        if (c.sweep <= 0) c.sweep += 2 * Pi;
        c.full = std::fabs(c.sweep - 2 * Pi) < 1e-12;
        if (c.full) c.start = 0;
        conic(c, t, s, out);
    } else if (const auto* e = KoDbSpline::cast(&entity)) {
        points(strokeSpline(e->degree(), e->knots(), e->controlPoints(), e->isRational() ? e->weights() : std::vector<double>{},
                            e->fitPoints()),
               false, t, s, out);
    } else if (const auto* e = KoDbText::cast(&entity)) {
        text(*e, t, s, out);
    } else if (const auto* e = KoDbMText::cast(&entity)) {
        mtext(*e, t, s, out);
    } else if (const auto* e = KoDbBlockReference::cast(&entity)) {
        cell(*e, t, byBlock, s, out);
    } else if (const auto* e = KoDbHatch::cast(&entity)) {
        hatch(*e, t, s, out);
    } else {
        m_report.skip(kodbDxfName(&entity), "no DGN V7 element");
    }
}

namespace {

// Completes a complex header inside another complex element: its length
// and, for a cell, its range, from its encoded components.
std::expected<void, std::string> completeHeader(Element& header, const std::vector<Element>& components, bool is3d)
{
    std::size_t words = 0;
    std::optional<Range> range;
    for (const Element& c : components) {
        auto bytes = encodeElement(c, is3d);
        if (!bytes) return std::unexpected(bytes.error());
        words += bytes->size() / 2;
        const Element decoded = decodeElement(ElementBytes(std::move(*bytes)), is3d);
        if (const auto& r = decoded.header.range) {
            if (!range) {
                range = *r;
            } else {
                range->low = {std::min(range->low.x, r->low.x), std::min(range->low.y, r->low.y), std::min(range->low.z, r->low.z)};
                range->high = {std::max(range->high.x, r->high.x), std::max(range->high.y, r->high.y),
                               std::max(range->high.z, r->high.z)};
            }
        }
    }
    if (CellHeader* cell = header.as<CellHeader>(); cell && range) {
        cell->rangeLow = range->low;
        cell->rangeHigh = range->high;
    }
    header.header.range = range;
    auto head = encodeElement(header, is3d);
    if (!head) return std::unexpected(head.error());
    // The count covers the words after the length word: the rest of the
    // header (from the word after it, 38 bytes in) and every component.
    const std::size_t total = (head->size() - 38) / 2 + words;
    if (total > 65535) return std::unexpected("complex element too long: " + std::to_string(total) + " words");
    std::visit(
        [&](auto& body) {
            using T = std::decay_t<decltype(body)>;
            if constexpr (std::is_same_v<T, CellHeader> || std::is_same_v<T, ComplexHeader> || std::is_same_v<T, TextNode>)
                body.totalWords = static_cast<std::uint16_t>(total);
        },
        header.body);
    return {};
}

std::expected<void, std::string> flatten(Node& node, bool is3d, std::vector<Element>& out)
{
    for (Node& child : node.children) {
        if (child.children.empty()) {
            out.push_back(std::move(child.element));
            continue;
        }
        std::vector<Element> inner;
        if (auto done = flatten(child, is3d, inner); !done) return done;
        if (ComplexHeader* c = child.element.as<ComplexHeader>()) c->componentCount = static_cast<std::uint16_t>(inner.size());
        if (TextNode* t = child.element.as<TextNode>()) t->stringCount = static_cast<std::uint16_t>(inner.size());
        if (auto done = completeHeader(child.element, inner, is3d); !done) return done;
        out.push_back(std::move(child.element));
        std::move(inner.begin(), inner.end(), std::back_inserter(out));
    }
    return {};
}

} // namespace

std::expected<std::size_t, std::string> appendNode(Writer& writer, Node& node)
{
    if (node.children.empty()) {
        if (auto done = writer.append(node.element); !done) return std::unexpected(done.error());
        return 1;
    }
    std::vector<Element> components;
    if (auto done = flatten(node, writer.is3d(), components); !done) return std::unexpected(done.error());
    if (node.element.as<CellHeader>())
        if (auto done = completeHeader(node.element, components, writer.is3d()); !done) return std::unexpected(done.error());
    if (auto done = writer.appendComplex(node.element, components); !done) return std::unexpected(done.error());
    return 1 + components.size();
}

} // namespace Kora::Dgn::ExportDetail
