// The V8 sample imported and compared entity by entity with its reference
// listing: kinds, layers (the level names), texts, and geometry in master
// units within 1e-9 relative. Curves the listing strokes are checked point
// by point on our entity's own equation, so no chord tolerance is needed.
#include "import_test_support.h"
#include "v8/v8_test_support.h"

#include <cmath>

using namespace Kora::Test;
using Kora::Dgn::V8::Point;

namespace {

constexpr double kTolerance = 1e-9;

bool close(const KoGePoint3d& a, const Point& b)
{
    return near(a.x, b.x) && near(a.y, b.y) && near(a.z, b.z);
}

KoGeVector3d minus(const Point& p, const KoGePoint3d& q) { return {p.x - q.x, p.y - q.y, p.z - q.z}; }

// Each listed point of a circle, an arc or an ellipse lies on it; an arc's
// listing starts and ends where it does.
void expectOnConic(KoDbObjectId id, const std::vector<Point>& points, bool open)
{
    const std::string kind = dxfNameOf(id);
    for (std::size_t i = 0; i < points.size(); ++i) {
        SCOPED_TRACE("point " + std::to_string(i));
        const Point& p = points[i];
        if (kind == "CIRCLE" || kind == "ARC") {
            KoGePoint3d centre;
            double radius = 0;
            if (kind == "CIRCLE") {
                KoDbObjectPointer<KoDbCircle> circle(id);
                centre = circle->center();
                radius = circle->radius();
            } else {
                KoDbObjectPointer<KoDbArc> arc(id);
                centre = arc->center();
                radius = arc->radius();
            }
            const KoGeVector3d d = minus(p, centre);
            EXPECT_NEAR(d.length(), radius, kTolerance * radius);
            EXPECT_NEAR(d.z, 0.0, kTolerance);
        } else {
            ASSERT_EQ(kind, "ELLIPSE");
            KoDbObjectPointer<KoDbEllipse> ellipse(id);
            const KoGeVector3d major = ellipse->majorAxis();
            const KoGeVector3d minor = ellipse->normal().crossProduct(major) * ellipse->radiusRatio();
            const KoGeVector3d d = minus(p, ellipse->center());
            const double u = d.dotProduct(major) / major.dotProduct(major);
            const double v = d.dotProduct(minor) / minor.dotProduct(minor);
            EXPECT_NEAR(u * u + v * v, 1.0, kTolerance);
            EXPECT_NEAR(d.dotProduct(ellipse->normal()), 0.0, kTolerance);
        }
    }
    if (!open || kind == "CIRCLE") return;
    KoGePoint3d start, end;
    if (kind == "ARC") {
        KoDbObjectPointer<KoDbArc> arc(id);
        auto at = [&](double a) {
            return arc->center() + KoGeVector3d(std::cos(a), std::sin(a), 0.0) * arc->radius();
        };
        start = at(arc->startAngle());
        end = at(arc->endAngle());
    } else {
        KoDbObjectPointer<KoDbEllipse> ellipse(id);
        const KoGeVector3d major = ellipse->majorAxis();
        const KoGeVector3d minor = ellipse->normal().crossProduct(major) * ellipse->radiusRatio();
        auto at = [&](double t) { return ellipse->center() + major * std::cos(t) + minor * std::sin(t); };
        start = at(ellipse->startParam());
        end = at(ellipse->endParam());
    }
    EXPECT_TRUE(close(start, points.front()));
    EXPECT_TRUE(close(end, points.back()));
}

// The lightweight polyline as its vertices and the arcs of its bulges.
struct Outline {
    std::vector<KoDbPolyline::Vertex> vertices;
    double elevation = 0;
    bool closed = false;

    // On a straight segment, or on a bulge's arc on the side the bulge
    // gives (bulges of at most a half circle).
    bool passes(const Point& p) const
    {
        if (std::abs(p.z - elevation) > kTolerance) return false;
        const std::size_t count = closed ? vertices.size() : vertices.size() - 1;
        for (std::size_t i = 0; i < count; ++i) {
            const KoGePoint2d a = vertices[i].point, b = vertices[(i + 1) % vertices.size()].point;
            const double bulge = vertices[i].bulge;
            const double dx = b.x - a.x, dy = b.y - a.y, chord = std::hypot(dx, dy);
            const double cross = dx * (p.y - a.y) - dy * (p.x - a.x);
            if (bulge == 0.0) {
                const double t = (dx * (p.x - a.x) + dy * (p.y - a.y)) / (chord * chord);
                if (std::abs(cross) <= kTolerance * chord && t >= -kTolerance && t <= 1 + kTolerance) return true;
                continue;
            }
            // The centre lies off the chord's middle by (1 - b^2) / (4 b) chords.
            const double offset = (1 - bulge * bulge) / (4 * bulge);
            const double cx = (a.x + b.x) / 2 - dy * offset, cy = (a.y + b.y) / 2 + dx * offset;
            const double radius = std::hypot(a.x - cx, a.y - cy);
            if (std::abs(std::hypot(p.x - cx, p.y - cy) - radius) <= kTolerance * radius && cross * bulge <= kTolerance)
                return true;
        }
        return false;
    }
    bool hasVertex(const Point& p) const
    {
        return std::any_of(vertices.begin(), vertices.end(),
                           [&](const auto& v) { return near(v.point.x, p.x) && near(v.point.y, p.y); });
    }
};

Outline outlineOf(KoDbObjectId id)
{
    KoDbObjectPointer<KoDbPolyline> polyline(id);
    return {polyline->vertices(), polyline->elevation(), polyline->isClosed()};
}

// The points of a polyline, lightweight or 3D.
std::vector<KoGePoint3d> verticesOf(KoDbObjectId id)
{
    std::vector<KoGePoint3d> points;
    if (dxfNameOf(id) == "POLYLINE") return KoDbObjectPointer<KoDb3dPolyline>(id)->vertices();
    const Outline outline = outlineOf(id);
    for (const auto& v : outline.vertices) points.push_back({v.point.x, v.point.y, outline.elevation});
    return points;
}

void expectVertices(KoDbObjectId id, std::vector<Point> points, bool closed)
{
    if (closed) points.pop_back(); // the listing repeats the first point
    const auto got = verticesOf(id);
    ASSERT_EQ(got.size(), points.size());
    for (std::size_t i = 0; i < got.size(); ++i) EXPECT_TRUE(close(got[i], points[i])) << "vertex " << i;
}

// A spline's point at parameter u (de Boor, non-rational).
KoGePoint3d splineAt(const KoDbSpline& spline, double u)
{
    const auto& k = spline.knots();
    const auto& c = spline.controlPoints();
    const auto p = static_cast<std::size_t>(spline.degree());
    std::size_t span = p;
    while (span + 1 < c.size() && u >= k[span + 1]) ++span;
    std::vector<KoGePoint3d> d(c.begin() + static_cast<long>(span - p), c.begin() + static_cast<long>(span + 1));
    for (std::size_t r = 1; r <= p; ++r)
        for (std::size_t j = p; j >= r; --j) {
            const std::size_t i = span - p + j;
            const double alpha = (u - k[i]) / (k[i + p + 1 - r] - k[i]);
            d[j] = d[j - 1] + (d[j] - d[j - 1]) * alpha;
        }
    return d[p];
}

std::string layerFor(int level) { return level == 64 ? "Default" : std::to_string(level); }

class V8Import : public ::testing::Test {
protected:
    int import(DgnImportState state = {})
    {
        state.explodeTextNodes = explode;
        return importFile(v8Sample(), db, report, state);
    }
    std::vector<KoDbObjectId> model() const { return entitiesOf(db.modelSpaceId()); }

    KoDbDatabase db;
    DgnTranslationReport report;
    int explode = 1;
};

TEST_F(V8Import, EveryListedFeatureBecomesItsEntity)
{
    ASSERT_EQ(import(), KORTNORM) << (report.notes.empty() ? "" : report.notes[0].toUtf8());
    const auto features = referenceFeatures();
    ASSERT_EQ(features.size(), 34u);
    const auto entities = model();
    std::size_t next = 0;
    auto take = [&](const std::string& kind) {
        EXPECT_LT(next, entities.size());
        const KoDbObjectId id = next < entities.size() ? entities[next++] : KoDbObjectId();
        EXPECT_EQ(dxfNameOf(id), kind);
        return id;
    };
    bool filled = false;
    for (std::size_t k = 0; k < features.size(); ++k) {
        const Feature& want = features[k];
        SCOPED_TRACE("feature " + std::to_string(k) + ": " + want.wkt.substr(0, 50));
        const auto parts = wktParts(want.wkt);
        const bool flat = std::all_of(parts[0].begin(), parts[0].end(), [&](const Point& p) { return p.z == parts[0][0].z; });
        const std::size_t first = next;
        switch (want.type) {
        case 3: {
            KoDbObjectPointer<KoDbLine> line(take("LINE"));
            EXPECT_TRUE(close(line->startPoint(), parts[0].front()));
            EXPECT_TRUE(close(line->endPoint(), parts[0].back()));
            break;
        }
        case 17: {
            KoDbObjectPointer<KoDbText> text(take("TEXT"));
            EXPECT_EQ(text->textString().toUtf8(), want.text);
            EXPECT_TRUE(close(text->position(), parts[0][0]));
            EXPECT_NEAR(text->height(), 1.0, kTolerance);
            break;
        }
        case 4:
            expectVertices(take(flat ? "LWPOLYLINE" : "POLYLINE"), parts[0], false);
            break;
        case 6: {
            const KoDbObjectId id = take("LWPOLYLINE");
            expectVertices(id, parts[0], true);
            EXPECT_TRUE(outlineOf(id).closed);
            // The listing gives the first shape's fill linkage: a solid hatch.
            if (!want.wkt.starts_with("POLYGON Z") && !filled) {
                filled = true;
                take("HATCH");
            }
            break;
        }
        case 22:
            for (const auto& part : parts) EXPECT_TRUE(close(KoDbObjectPointer<KoDbPoint>(take("POINT"))->position(), part[0]));
            break;
        case 36: // not translatable: counted, no entity
            break;
        case 15:
        case 16: {
            const std::string kind = want.type == 15 ? (want.wkt.starts_with("LINESTRING") ? "ELLIPSE" : "CIRCLE")
                                                     : (want.wkt.starts_with("LINESTRING") ? "ELLIPSE" : "ARC");
            expectOnConic(take(kind), parts[0], want.type == 16);
            break;
        }
        case 11: {
            // Fit points: the listing's stroke runs from the first to the
            // last, through every one.
            KoDbObjectPointer<KoDbSpline> spline(take("SPLINE"));
            const auto& fit = spline->fitPoints();
            ASSERT_EQ(fit.size(), 4u);
            EXPECT_TRUE(close(fit.front(), parts[0].front()));
            EXPECT_TRUE(close(fit.back(), parts[0].back()));
            for (const KoGePoint3d& f : fit) {
                EXPECT_TRUE(std::any_of(parts[0].begin(), parts[0].end(), [&](const Point& p) { return close(f, p); }));
            }
            break;
        }
        case 27: {
            // The stroke steps evenly through the closed curve's parameter.
            KoDbObjectPointer<KoDbSpline> spline(take("SPLINE"));
            EXPECT_TRUE(spline->isClosed() && spline->isPeriodic());
            const auto& knots = spline->knots();
            const auto p = static_cast<std::size_t>(spline->degree());
            const double from = knots[p], to = knots[knots.size() - 1 - p];
            const auto& stroke = parts[0];
            for (std::size_t i = 0; i < stroke.size(); ++i) {
                const double u = from + (to - from) * static_cast<double>(i) / static_cast<double>(stroke.size() - 1);
                EXPECT_TRUE(close(splineAt(*spline.object(), u), stroke[i])) << "stroke point " << i;
            }
            break;
        }
        case 12:
        case 14: {
            // One polyline through every listed point; a chain or a
            // curved shape is its components' ends exactly. (Two of the
            // listed line-only shapes are rings other than their
            // components' chain, so for them only the first holds.)
            const Outline outline = outlineOf(take("LWPOLYLINE"));
            EXPECT_EQ(outline.closed, want.type == 14);
            const bool exact = want.type == 12 || want.wkt.starts_with("CURVEPOLYGON");
            for (const auto& part : parts)
                for (const Point& p : part)
                    EXPECT_TRUE(outline.passes(p)) << "(" << p.x << ", " << p.y << ") is off the outline";
            for (const auto& v : exact ? outline.vertices : std::vector<KoDbPolyline::Vertex>{})
                EXPECT_TRUE(std::any_of(parts.begin(), parts.end(), [&](const auto& part) {
                    return std::any_of(part.begin(), part.end(),
                                       [&](const Point& p) { return near(v.point.x, p.x) && near(v.point.y, p.y); });
                })) << "vertex (" << v.point.x << ", " << v.point.y << ") is no listed point";
            break;
        }
        case 2: {
            // A cell of an outer ring and a hole: a block of two closed
            // polylines placed at the cell's origin, unturned.
            KoDbObjectPointer<KoDbBlockReference> insert(take("INSERT"));
            EXPECT_TRUE(close(insert->position(), {0, 0, 0}));
            EXPECT_EQ(insert->rotation(), 0.0);
            const auto rings = entitiesOf(insert->blockTableRecord());
            ASSERT_EQ(rings.size(), parts.size());
            for (std::size_t i = 0; i < rings.size(); ++i) expectVertices(rings[i], parts[i], true);
            break;
        }
        case 35: {
            // A shared cell: a block named after its definition.
            KoDbObjectPointer<KoDbBlockReference> insert(take("INSERT"));
            EXPECT_TRUE(close(insert->position(), parts[0][0]));
            KoDbObjectPointer<KoDbBlockTableRecord> block(insert->blockTableRecord());
            EXPECT_EQ(block->getName().toUtf8(), want.text);
            EXPECT_EQ(entitiesOf(insert->blockTableRecord()).size(), 1u);
            break;
        }
        default:
            ADD_FAILURE() << "no check for type " << want.type;
        }
        for (std::size_t i = first; i < next && i < entities.size(); ++i)
            EXPECT_EQ(layerOf(entities[i]), layerFor(want.level));
    }
    EXPECT_EQ(next, entities.size());
    // The dimension part (36) and the element the listing leaves out (37)
    // are counted, not dropped.
    ASSERT_EQ(report.skipped.size(), 2u);
    for (const auto& skipped : report.skipped) {
        EXPECT_EQ(skipped.reason, "not translatable");
        EXPECT_EQ(skipped.count, 1u);
    }
    EXPECT_NE(report.skipped[0].kind, report.skipped[1].kind);
    // The model's 58 elements and the shared cell definition's component.
    EXPECT_EQ(report.itemsRead, 59u);
    // Besides model space: the two cells' rings and the definition's ellipse.
    EXPECT_EQ(report.itemsWritten, entities.size() + 5);
}

} // namespace

namespace {

TEST_F(V8Import, UnitsLevelMapTextNodesAndModels)
{
    // Sub units: every coordinate and size a thousand times larger; a
    // level mapped by its name; text nodes as MTEXT of their texts.
    explode = 0;
    DgnImportState state;
    state.masterUnits = 0;
    state.model = L"my_model";
    state.tables.levels[L"Default"] = L"Walls";
    ASSERT_EQ(import(state), KORTNORM);
    const auto entities = model();
    ASSERT_FALSE(entities.empty());
    KoDbObjectPointer<KoDbLine> line(entities[2]); // (0 1 2) to (3 4 5) in metres
    EXPECT_TRUE(close(line->endPoint(), {3000, 4000, 5000}));
    EXPECT_EQ(layerOf(entities[2]), "Walls");
    EXPECT_EQ(layerOf(entities[0]), "1");
    std::vector<std::string> nodes;
    for (const KoDbObjectId id : entities)
        if (dxfNameOf(id) == "MTEXT") {
            KoDbObjectPointer<KoDbMText> mtext(id);
            nodes.push_back(mtext->contents().toUtf8());
            EXPECT_NEAR(mtext->textHeight(), 1000.0, 1e-9);
        }
    EXPECT_EQ(nodes, (std::vector<std::string>{"z", "z"}));
    KoDbObjectPointer<KoDbText> text(entities[4]);
    EXPECT_EQ(text->textString().toUtf8(), "myTéxt");
    EXPECT_NEAR(text->height(), 1000.0, 1e-9);
    EXPECT_FALSE(hasName(recordNames(db.layerTableId()), "Default"));

    // A model the file does not have: refused, nothing changes.
    const Snapshot before = snapshot(db);
    DgnImportState other;
    other.model = L"Sheet";
    EXPECT_EQ(import(other), KORTERROR);
    EXPECT_EQ(snapshot(db), before);
    ASSERT_EQ(report.notes.size(), 1u);
    EXPECT_NE(report.notes[0].toUtf8().find("no model named \"Sheet\""), std::string::npos);
}

TEST_F(V8Import, CancelLeavesTheDrawingAsItWas)
{
    const Snapshot before = snapshot(db);
    DgnImportState state;
    std::vector<double> asked;
    state.progress = [&](double fraction) {
        asked.push_back(fraction);
        return false;
    };
    EXPECT_EQ(import(state), KORTERROR);
    EXPECT_TRUE(report.cancelled);
    EXPECT_EQ(asked, std::vector<double>{1.0}); // the sample is shorter than one progress step
    EXPECT_EQ(snapshot(db), before);
}

} // namespace
