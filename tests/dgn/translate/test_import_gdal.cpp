// The V7 samples imported and compared entity by entity with what GDAL's
// DGN driver reads from the same files: kinds and levels, texts, and
// coordinates in master units. The drawings made must pass ezdxf's audit.
#include "import_test_support.h"

#include <cmath>

using namespace Kora::Test;
using Kora::Dgn::V7::DoublePoint;

namespace {

// What an element becomes, as a few families both sides agree on.
std::string familyOfGdalType(int type)
{
    switch (type) {
    case 3: return "line";
    case 4: case 6: case 12: case 14: return "polyline";
    case 15: case 16: return "curve";
    case 17: return "text";
    default: return "";
    }
}

std::string familyOfDxfName(const std::string& name)
{
    if (name == "LINE") return "line";
    if (name == "LWPOLYLINE" || name == "POLYLINE") return "polyline";
    if (name == "ARC" || name == "CIRCLE" || name == "ELLIPSE") return "curve";
    if (name == "TEXT") return "text";
    if (name == "HATCH") return "fill";
    return name;
}

std::vector<KoGePoint3d> polylinePoints(KoDbObjectId id)
{
    std::vector<KoGePoint3d> points;
    KoDbObjectPointer<KoDbEntity> entity(id);
    if (auto* lw = KoDbPolyline::cast(entity.object())) {
        for (const auto& v : lw->vertices()) points.push_back({v.point.x, v.point.y, lw->elevation()});
        EXPECT_TRUE(std::all_of(lw->vertices().begin(), lw->vertices().end(), [](const auto& v) { return v.bulge == 0.0; }));
    } else if (auto* p3 = KoDb3dPolyline::cast(entity.object())) {
        points = p3->vertices();
    }
    return points;
}

// Checks one entity against the feature GDAL reads from the same element.
void expectSameGeometry(KoDbObjectId id, const OgrFeature& feature)
{
    SCOPED_TRACE("GDAL feature " + std::to_string(feature.fid));
    KoDbObjectPointer<KoDbEntity> entity(id);
    const auto& g = feature.points;
    ASSERT_FALSE(g.empty());
    if (auto* line = KoDbLine::cast(entity.object())) {
        ASSERT_EQ(g.size(), 2u);
        EXPECT_TRUE(near(line->startPoint(), g[0]));
        EXPECT_TRUE(near(line->endPoint(), g[1]));
    } else if (auto* text = KoDbText::cast(entity.object())) {
        EXPECT_EQ(text->textString().toUtf8(), feature.text);
        EXPECT_TRUE(near(text->position(), g[0]));
    } else if (KoDbPolyline::cast(entity.object()) || KoDb3dPolyline::cast(entity.object())) {
        entity.close();
        const auto points = polylinePoints(id);
        // GDAL closes polygon rings with the first point again.
        const bool ring = feature.geometry == "POLYGON";
        ASSERT_EQ(points.size() + (ring ? 1 : 0), g.size());
        for (std::size_t i = 0; i < points.size(); ++i) EXPECT_TRUE(near(points[i], g[i])) << "vertex " << i;
    } else if (auto* arc = KoDbArc::cast(entity.object())) {
        const KoGePoint3d c = arc->center();
        auto at = [&](double a) { return KoGePoint3d(c.x + arc->radius() * std::cos(a), c.y + arc->radius() * std::sin(a), c.z); };
        const KoGePoint3d s = at(arc->startAngle()), e = at(arc->endAngle());
        EXPECT_TRUE((near(s, g.front()) && near(e, g.back())) || (near(e, g.front()) && near(s, g.back())));
    } else if (auto* circle = KoDbCircle::cast(entity.object())) {
        for (const DoublePoint& p : g)
            EXPECT_TRUE(near(std::hypot(p.x - circle->center().x, p.y - circle->center().y), circle->radius()));
    } else if (auto* ellipse = KoDbEllipse::cast(entity.object())) {
        const KoGeVector3d major = ellipse->majorAxis();
        const KoGeVector3d minor = ellipse->normal().crossProduct(major) * ellipse->radiusRatio();
        const double a = major.length(), b = minor.length();
        const KoGePoint3d c = ellipse->center();
        auto at = [&](double t) { return c + major * std::cos(t) + minor * std::sin(t); };
        const bool full = std::abs(ellipse->endParam() - ellipse->startParam() - 2 * M_PI) < 1e-12;
        if (!full) {
            const KoGePoint3d s = at(ellipse->startParam()), e = at(ellipse->endParam());
            EXPECT_TRUE((near(s, g.front()) && near(e, g.back())) || (near(e, g.front()) && near(s, g.back())));
        }
        // Every point GDAL strokes lies on the ellipse.
        for (const DoublePoint& p : g) {
            const KoGeVector3d d{p.x - c.x, p.y - c.y, p.z - c.z};
            const double x = d.dotProduct(major) / a, y = d.dotProduct(minor) / b;
            EXPECT_TRUE(near(x * x / (a * a) + y * y / (b * b), 1.0, 1e-9)) << p.x << " " << p.y;
        }
    } else {
        ADD_FAILURE() << "unexpected entity " << kodbDxfName(entity.object());
    }
}

struct Placed {
    KoDbObjectId id;
    KoGeVector3d offset; // where the block references above it move it
};

// The entities of a block, those of the blocks its references place
// included (the import places cells unscaled and unturned).
std::vector<Placed> flatten(KoDbObjectId blockId, const KoGeVector3d& offset)
{
    std::vector<Placed> out;
    for (const KoDbObjectId id : entitiesOf(blockId)) {
        KoDbObjectPointer<KoDbBlockReference> insert(id);
        if (insert.openStatus() != Kora::eOk) {
            out.push_back({id, offset});
            continue;
        }
        EXPECT_EQ(insert->scaleFactors(), KoGeScale3d());
        EXPECT_EQ(insert->rotation(), 0.0);
        const KoGePoint3d p = insert->position();
        const auto inner = flatten(insert->blockTableRecord(), offset + KoGeVector3d(p.x, p.y, p.z));
        out.insert(out.end(), inner.begin(), inner.end());
    }
    return out;
}

void compareWithGdal(const std::string& name)
{
    SCOPED_TRACE(name);
    const auto features = ogrFeatures(sample(name));
    KoDbDatabase db;
    DgnTranslationReport report;
    ASSERT_EQ(importFile(sample(name), db, report), KORTNORM);
    EXPECT_EQ(db.openObjectCount(), 0);

    // Counts per level and family, fills included.
    std::map<std::pair<std::string, std::string>, int> expected, actual;
    std::vector<const OgrFeature*> translated;
    std::size_t skipped = 0;
    for (const OgrFeature& f : features) {
        const std::string family = familyOfGdalType(f.type);
        if (family.empty()) {
            ++skipped;
            continue;
        }
        translated.push_back(&f);
        ++expected[{std::to_string(f.level), family}];
        // A fill needs a flat outline.
        const bool flat = std::all_of(f.points.begin(), f.points.end(),
                                      [&](const DoublePoint& p) { return p.z == f.points[0].z; });
        if (f.styleString.find("BRUSH") != std::string::npos && flat) ++expected[{std::to_string(f.level), "fill"}];
    }
    // Cells become block references: their entities are compared where
    // the references place them. GDAL reads no point strings; they are
    // checked on their own.
    std::vector<Placed> drawn;
    for (const Placed& placed : flatten(db.modelSpaceId(), {})) {
        const std::string family = familyOfDxfName(dxfNameOf(placed.id));
        if (family == "POINT") continue;
        ++actual[{layerOf(placed.id), family}];
        if (family != "fill") drawn.push_back(placed);
    }
    EXPECT_EQ(actual, expected);
    std::size_t reportedSkips = 0;
    for (const auto& s : report.skipped)
        if (s.reason.find("fill") == std::string::npos) reportedSkips += s.count;
    EXPECT_EQ(reportedSkips, skipped);

    ASSERT_EQ(drawn.size(), translated.size());
    for (std::size_t i = 0; i < drawn.size(); ++i) {
        OgrFeature local = *translated[i];
        for (DoublePoint& p : local.points) {
            p.x -= drawn[i].offset.x;
            p.y -= drawn[i].offset.y;
            p.z -= drawn[i].offset.z;
        }
        expectSameGeometry(drawn[i].id, local);
    }

    expectAuditClean(db, scratch("gdal-" + name) / (name + ".dxf"));
}

} // namespace

TEST(DgnImportGdal, MixedElements) { compareWithGdal("mixed-elements.dgn"); }
TEST(DgnImportGdal, SmallTest) { compareWithGdal("smalltest.dgn"); }
TEST(DgnImportGdal, Seed3dMetricSolidsAreReported)
{
    compareWithGdal("seed3d-metric.dgn");
    // Two solids, each with one point string on level 50 beside it.
    KoDbDatabase db;
    DgnTranslationReport report;
    ASSERT_EQ(importFile(sample("seed3d-metric.dgn"), db, report), KORTNORM);
    std::vector<double> heights;
    for (const KoDbObjectId id : entitiesOf(db.modelSpaceId())) {
        KoDbObjectPointer<KoDbPoint> point(id);
        ASSERT_EQ(point.openStatus(), Kora::eOk);
        EXPECT_EQ(point->layer(), KoString(L"50"));
        heights.push_back(point->position().z);
    }
    ASSERT_EQ(heights.size(), 2u);
    EXPECT_TRUE(near(heights[0], 394.6));
    EXPECT_TRUE(near(heights[1], 394.7));
    ASSERT_EQ(report.skipped.size(), 1u);
    EXPECT_EQ(report.skipped[0].count, 2u);
    EXPECT_EQ(report.skipped[0].reason, "3D surface or solid");
}
TEST(DgnImportGdal, EmptySeeds)
{
    compareWithGdal("seed_2d.dgn");
    compareWithGdal("seed_3d.dgn");
}
