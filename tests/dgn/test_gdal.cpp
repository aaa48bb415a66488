// Our reader and writer checked against GDAL's DGN driver and libmagic.
#include "dgn_test_support.h"

#include <cmath>
#include <fstream>
#include <set>

#include "kora/atomicfile.h"
#include "kora/dgn/v7/writer.h"

using namespace Kora::Dgn::V7;
using namespace Kora::Test;

namespace {

bool near(const DoublePoint& a, const DoublePoint& b, double tolerance)
{
    return std::abs(a.x - b.x) <= tolerance && std::abs(a.y - b.y) <= tolerance && std::abs(a.z - b.z) <= tolerance;
}

std::string show(const DoublePoint& p)
{
    return "(" + std::to_string(p.x) + ", " + std::to_string(p.y) + ", " + std::to_string(p.z) + ")";
}

std::vector<DoublePoint> masterPoints(const Element& e, const Units& u)
{
    std::vector<DoublePoint> out;
    if (const Line* line = e.as<Line>()) out = {u.toMaster(line->start), u.toMaster(line->end)};
    if (const Vertices* v = e.as<Vertices>())
        for (const IntPoint& p : v->points) out.push_back(u.toMaster(p));
    return out;
}

// Local axes of a conic in the design.
void conicAxes(const Orientation& o, bool is3d, double ax[3], double ay[3])
{
    if (is3d) {
        const auto m = quaternionMatrix(o.quaternion);
        for (int i = 0; i < 3; ++i) ax[i] = m[i][0], ay[i] = m[i][1];
    } else {
        const double a = angleDegrees(o.angle) * M_PI / 180;
        ax[0] = std::cos(a), ax[1] = std::sin(a), ax[2] = 0;
        ay[0] = -std::sin(a), ay[1] = std::cos(a), ay[2] = 0;
    }
}

DoublePoint conicPoint(const DoublePoint& c, double a, double b, double degrees, const double ax[3], const double ay[3])
{
    const double t = degrees * M_PI / 180;
    return {c.x + a * std::cos(t) * ax[0] + b * std::sin(t) * ay[0], c.y + a * std::cos(t) * ax[1] + b * std::sin(t) * ay[1],
            c.z + a * std::cos(t) * ax[2] + b * std::sin(t) * ay[2]};
}

// GDAL strokes 3D ellipses and arcs without their quaternion; only those
// that are not turned can be compared point by point.
bool gdalOrientsConic(const Element& e, bool is3d)
{
    const Orientation& o = e.as<Ellipse>() ? e.as<Ellipse>()->orientation : e.as<Arc>()->orientation;
    return !is3d || (o.quaternion[1] == 0 && o.quaternion[2] == 0 && o.quaternion[3] == 0);
}

// Which elements GDAL shows as features: everything drawable except the
// components it folds into a complex chain, shape, surface or solid.
std::set<std::size_t> expectedFeatures(const Design& d)
{
    std::set<std::size_t> fids;
    std::size_t absorbed = 0;
    for (const Element& e : d.elements) {
        const int t = static_cast<int>(e.type());
        if (absorbed > 0 && e.header.complex) {
            --absorbed;
            continue;
        }
        absorbed = 0;
        if (const ComplexHeader* c = e.as<ComplexHeader>()) absorbed = c->componentCount;
        if (const SurfaceHeader* s = e.as<SurfaceHeader>()) absorbed = s->componentCount;
        if (!e.header.deleted && (t == 3 || t == 4 || t == 6 || t == 12 || t == 14 || t == 15 || t == 16 || t == 17 || t == 18 || t == 19))
            fids.insert(e.index);
    }
    return fids;
}

// Every feature GDAL reads has the same type, symbology, text and geometry
// as our element of the same index.
void expectSameAsGdal(const std::filesystem::path& file)
{
    SCOPED_TRACE(file.filename().string());
    auto design = readDesignFile(file);
    ASSERT_TRUE(design) << design.error().describe();
    const Units& u = design->info.units;
    const double tolerance = 1e-9 * std::max(1.0, 1.0 / u.uorPerMaster()) + 1e-6;
    const auto features = ogrFeatures(file);
    std::set<std::size_t> fids;
    for (const OgrFeature& f : features) {
        SCOPED_TRACE("element " + std::to_string(f.fid));
        fids.insert(f.fid);
        ASSERT_LT(f.fid, design->elements.size());
        const Element& e = design->elements[f.fid];
        EXPECT_EQ(f.type, static_cast<int>(e.type()));
        EXPECT_EQ(f.level, e.header.level);
        EXPECT_EQ(f.colour, e.header.symbology.colour);
        EXPECT_EQ(f.weight, e.header.symbology.weight);
        EXPECT_EQ(f.style, e.header.symbology.style);
        if (const Text* text = e.as<Text>()) {
            EXPECT_EQ(f.text, text->text);
            ASSERT_EQ(f.points.size(), 1u);
            EXPECT_TRUE(near(f.points[0], u.toMaster(text->origin), tolerance)) << show(f.points[0]);
        } else if (e.as<Line>() || e.as<Vertices>()) {
            const auto ours = masterPoints(e, u);
            ASSERT_EQ(f.points.size(), ours.size());
            for (std::size_t i = 0; i < ours.size(); ++i)
                EXPECT_TRUE(near(f.points[i], ours[i], tolerance)) << show(f.points[i]) << " vs " << show(ours[i]);
        } else if ((e.as<Ellipse>() || e.as<Arc>()) && gdalOrientsConic(e, design->info.is3d)) {
            const Ellipse* ellipse = e.as<Ellipse>();
            const Arc* arc = e.as<Arc>();
            const DoublePoint c = u.toMaster(ellipse ? ellipse->origin : arc->origin);
            const double a = u.lengthToMaster(ellipse ? ellipse->primaryAxis : arc->primaryAxis);
            const double b = u.lengthToMaster(ellipse ? ellipse->secondaryAxis : arc->secondaryAxis);
            double ax[3], ay[3];
            conicAxes(ellipse ? ellipse->orientation : arc->orientation, design->info.is3d, ax, ay);
            ASSERT_GE(f.points.size(), 3u);
            for (const DoublePoint& p : f.points) {
                const double d[3] = {p.x - c.x, p.y - c.y, p.z - c.z};
                const double lx = (d[0] * ax[0] + d[1] * ax[1] + d[2] * ax[2]) / a;
                const double ly = (d[0] * ay[0] + d[1] * ay[1] + d[2] * ay[2]) / b;
                EXPECT_NEAR(lx * lx + ly * ly, 1.0, 1e-6) << show(p);
            }
            if (arc) {
                const double start = angleDegrees(arc->startAngle);
                const double sweep = arc->sweepAngle == 0 ? 360.0 : angleDegrees(arc->sweepAngle);
                EXPECT_TRUE(near(f.points.front(), conicPoint(c, a, b, start, ax, ay), 1e-6 * a)) << show(f.points.front());
                EXPECT_TRUE(near(f.points.back(), conicPoint(c, a, b, start + sweep, ax, ay), 1e-6 * a)) << show(f.points.back());
                // The second point shows which way it turns.
                EXPECT_TRUE(near(f.points[1], conicPoint(c, a, b, start + sweep / (f.points.size() - 1), ax, ay), 1e-6 * a));
            }
        } else if (e.as<ComplexHeader>() || e.as<SurfaceHeader>()) {
            std::vector<DoublePoint> ours;
            for (std::size_t i = f.fid + 1; i < design->elements.size() && design->elements[i].header.complex; ++i)
                for (const DoublePoint& p : masterPoints(design->elements[i], u)) ours.push_back(p);
            ASSERT_FALSE(f.points.empty());
            for (const DoublePoint& p : f.points) {
                bool found = false;
                for (const DoublePoint& q : ours) found = found || near(p, q, 1e-6);
                EXPECT_TRUE(found) << show(p);
            }
        }
    }
    EXPECT_EQ(fids, expectedFeatures(*design));
}

Element graphic(ElementType type, std::uint8_t level, Symbology symbology, Body body)
{
    Element e;
    e.header.type = type;
    e.header.level = level;
    e.header.symbology = symbology;
    e.body = std::move(body);
    return e;
}

IntPoint uor(const Units& u, double x, double y, double z = 0)
{
    IntPoint p;
    EXPECT_TRUE(u.toUor({x, y, z}, p));
    return p;
}

// One of each kind of element the export writes.
std::vector<std::pair<Element, std::vector<Element>>> sampleElements(const Units& u, bool is3d)
{
    auto rotation = [&](double degrees) {
        Orientation o;
        if (is3d) o.quaternion = quaternionFromZRotation(degrees);
        else o.angle = angleFromDegrees(degrees);
        return o;
    };
    const DoublePoint centre = u.toUorExact({10, 20, is3d ? 3.0 : 0.0});
    std::vector<std::pair<Element, std::vector<Element>>> list;
    auto add = [&](Element e) { list.push_back({std::move(e), {}}); };
    add(graphic(ElementType::Line, 1, {1, 2, 3}, Line{uor(u, 0, 0, 1), uor(u, 5.5, 6.25, 2)}));
    add(graphic(ElementType::LineString, 2, {2, 0, 0}, Vertices{{uor(u, 0, 0), uor(u, 1, 1, 1), uor(u, 2, 0), uor(u, 3.125, -4)}}));
    add(graphic(ElementType::Shape, 3, {3, 5, 1}, Vertices{{uor(u, 0, 0), uor(u, 4, 0), uor(u, 4, 4), uor(u, 0, 0)}}));
    add(graphic(ElementType::Arc, 4, {4, 1, 0},
                Arc{angleFromDegrees(30), angleFromDegrees(120), u.lengthToUor(5), u.lengthToUor(2), rotation(10), centre}));
    add(graphic(ElementType::Arc, 4, {4, 1, 0},
                Arc{angleFromDegrees(200), angleFromDegrees(-90), u.lengthToUor(3), u.lengthToUor(3), rotation(0), centre}));
    add(graphic(ElementType::Ellipse, 5, {5, 0, 2}, Ellipse{u.lengthToUor(4), u.lengthToUor(1.5), rotation(45), centre}));
    Text text{1, 2, textMultiplierFromUor(u.lengthToUor(0.5)), textMultiplierFromUor(u.lengthToUor(0.75)), rotation(0),
              uor(u, 7, 8), "Kora V7 text", {}};
    add(graphic(ElementType::Text, 6, {6, 0, 0}, text));
    Element chain = graphic(ElementType::ComplexChainHeader, 7, {7, 1, 0}, ComplexHeader{});
    list.push_back({chain,
                    {graphic(ElementType::LineString, 7, {7, 1, 0}, Vertices{{uor(u, 0, 0), uor(u, 1, 0), uor(u, 1, 1)}}),
                     graphic(ElementType::Line, 7, {7, 1, 0}, Line{uor(u, 1, 1), uor(u, 3, 2)})}});
    Element shape = graphic(ElementType::ComplexShapeHeader, 8, {8, 0, 0}, ComplexHeader{});
    list.push_back({shape,
                    {graphic(ElementType::LineString, 8, {8, 0, 0}, Vertices{{uor(u, 0, 0), uor(u, 2, 0), uor(u, 2, 2)}}),
                     graphic(ElementType::LineString, 8, {8, 0, 0}, Vertices{{uor(u, 2, 2), uor(u, 0, 2), uor(u, 0, 0)}})}});
    return list;
}

std::filesystem::path writeSample(const std::filesystem::path& folder, bool is3d, Writer writer)
{
    for (const auto& [element, components] : sampleElements(writer.units(), is3d)) {
        auto appended = components.empty() ? writer.append(element) : writer.appendComplex(element, components);
        EXPECT_TRUE(appended) << appended.error();
    }
    const auto path = folder / (is3d ? "written3d.dgn" : "written2d.dgn");
    const auto bytes = writer.finish();
    EXPECT_TRUE(Kora::writeFileAtomically(path, bytes));
    return path;
}

} // namespace

TEST(DgnAgainstGdal, SamplesReadTheSameAsGdalReadsThem)
{
    for (const char* name : {"smalltest.dgn", "seed_2d.dgn", "seed_3d.dgn", "seed3d-metric.dgn", "mixed-elements.dgn"})
        expectSameAsGdal(sample(name));
}

TEST(DgnAgainstGdal, FilesWeWriteReadTheSameInGdalAndFile)
{
    const auto folder = scratch("written");
    const Units units{"ft", "in", 12, 8000, {}};
    for (const bool is3d : {false, true}) {
        const auto path = writeSample(folder, is3d, Writer::create(is3d, units));
        expectSameAsGdal(path);
        auto design = readDesignFile(path);
        ASSERT_TRUE(design);
        // 3 header elements, 7 simple ones, 2 complex ones of 3 elements each.
        EXPECT_EQ(design->elements.size(), 3u + 7u + 6u);
        EXPECT_EQ(ogrFeatures(path).size(), 9u);
        EXPECT_TRUE(design->diagnostics.empty());
        const Output magic = run("file -b " + quoted(path));
        EXPECT_NE(magic.text.find(is3d ? "Microstation CAD drawing 3D" : "Microstation CAD drawing 2D"), std::string::npos)
            << magic.text;
        EXPECT_NE(magic.text.find("units ft in"), std::string::npos) << magic.text;
    }
    // The same elements on top of a seed that has a global origin far from 0.
    const auto seeded = writeSample(folder, false, *Writer::fromSeed(sampleBytes("seed_2d.dgn")));
    expectSameAsGdal(seeded);
    EXPECT_EQ(ogrFeatures(seeded).size(), 9u);
}

TEST(DgnAgainstGdal, FilesGdalWritesReadWithTheRightGeometry)
{
    const auto folder = scratch("from-gdal");
    {
        std::ofstream csv(folder / "in.csv");
        csv << "WKT,Text\n"
               "\"LINESTRING (1 2,3 4,5 7)\",\n"
               "\"POLYGON ((0 0,10 0,10 10,0 0))\",\n"
               "\"POINT (5 6)\",hello\n"
               "\"LINESTRING (100.25 -50.5,200 300)\",\n";
    }
    const auto out = folder / "out.dgn";
    const Output made = run("ogr2ogr -f DGN " + quoted(out) + " " + quoted(folder / "in.csv") + " -dsco SEED="
                            + quoted(sample("seed_2d.dgn")));
    ASSERT_TRUE(std::filesystem::exists(out)) << made.text;
    auto design = readDesignFile(out);
    ASSERT_TRUE(design) << design.error().describe();
    const Units& u = design->info.units;
    std::vector<const Element*> drawn;
    for (const Element& e : design->elements)
        if (e.as<Vertices>() || e.as<Text>()) drawn.push_back(&e);
    ASSERT_EQ(drawn.size(), 4u);
    const std::vector<std::vector<DoublePoint>> expected = {
        {{1, 2, 0}, {3, 4, 0}, {5, 7, 0}}, {{0, 0, 0}, {10, 0, 0}, {10, 10, 0}, {0, 0, 0}}, {}, {{100.25, -50.5, 0}, {200, 300, 0}}};
    EXPECT_EQ(drawn[0]->type(), ElementType::LineString);
    EXPECT_EQ(drawn[1]->type(), ElementType::Shape);
    EXPECT_EQ(drawn[3]->type(), ElementType::LineString);
    for (const std::size_t i : {0u, 1u, 3u}) {
        const auto ours = masterPoints(*drawn[i], u);
        ASSERT_EQ(ours.size(), expected[i].size());
        for (std::size_t k = 0; k < ours.size(); ++k)
            EXPECT_TRUE(near(ours[k], expected[i][k], 1.0 / u.uorPerMaster())) << show(ours[k]);
    }
    const Text* text = drawn[2]->as<Text>();
    ASSERT_NE(text, nullptr);
    EXPECT_EQ(text->text, "hello");
    EXPECT_TRUE(near(u.toMaster(text->origin), {5, 6, 0}, 1.0 / u.uorPerMaster()));
}

TEST(DgnAgainstGdal, BuiltInSeedsHaveTheirUnitsAndDimension)
{
    const struct {
        const char* name;
        const char* master;
        const char* sub;
        int subPerMaster, uorPerSub;
    } seeds[] = {
        {"V7-Imperial-Arch-01", "ft", "in", 12, 8000}, {"V7-Imperial-Arch-02", "ft", "in", 12, 1000},
        {"V7-Imperial-Civil-01", "ft", "th", 10, 100}, {"V7-Imperial-Civil-02", "ft", "th", 10, 1000},
        {"V7-Metric", "m", "mm", 1000, 100},
    };
    for (const auto& seed : seeds) {
        for (const bool is3d : {false, true}) {
            const auto path = std::filesystem::path(KORA_SEED_DIR) / (std::string(seed.name) + (is3d ? "-Seed3D.dgn" : "-Seed2D.dgn"));
            SCOPED_TRACE(path.filename().string());
            auto design = readDesignFile(path);
            ASSERT_TRUE(design) << design.error().describe();
            EXPECT_EQ(design->info.is3d, is3d);
            EXPECT_EQ(design->info.units.masterName, seed.master);
            EXPECT_EQ(design->info.units.subName, seed.sub);
            EXPECT_EQ(design->info.units.subPerMaster, seed.subPerMaster);
            EXPECT_EQ(design->info.units.uorPerSub, seed.uorPerSub);
            EXPECT_EQ(design->elements.size(), 3u);
            const Output magic = run("file -b " + quoted(path));
            EXPECT_NE(magic.text.find(std::string("Microstation CAD drawing ") + (is3d ? "3D" : "2D") + ", units " + seed.master
                                      + " " + seed.sub),
                      std::string::npos)
                << magic.text;
            EXPECT_TRUE(ogrFeatures(path).empty());
            // A seed is good for an export: GDAL writes into it.
            const auto folder = scratch("seed-use");
            std::ofstream(folder / "in.csv") << "WKT,Id\n\"LINESTRING (1 2,3 4)\",1\n";
            run("ogr2ogr -f DGN " + quoted(folder / "out.dgn") + " " + quoted(folder / "in.csv") + " -dsco SEED=" + quoted(path));
            const auto features = ogrFeatures(folder / "out.dgn");
            ASSERT_EQ(features.size(), 1u);
            // GDAL truncates to the UOR below.
            EXPECT_TRUE(near(features[0].points[1], {3, 4, 0}, 1.5 / (seed.subPerMaster * seed.uorPerSub)));
        }
    }
}
