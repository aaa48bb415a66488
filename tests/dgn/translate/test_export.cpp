// What the export writes into a design, checked with GDAL's DGN driver and
// with our own reader: elements, levels, colours, weights, styles, texts,
// cells, fills, units and dimension.
#include "export_test_support.h"

#include <algorithm>
#include <cmath>
#include <map>

#include "kora/dgn/v7/reader.h"

using namespace Kora::Test;
using namespace Kora::Dgn::V7;

namespace {

bool near(double a, double b) { return std::abs(a - b) <= 1e-9 * std::max({1.0, std::abs(a), std::abs(b)}); }

::testing::AssertionResult samePoints(const std::vector<DoublePoint>& got, const std::vector<DoublePoint>& want)
{
    if (got.size() != want.size())
        return ::testing::AssertionFailure() << got.size() << " points, expected " << want.size();
    for (std::size_t i = 0; i < got.size(); ++i)
        if (!near(got[i].x, want[i].x) || !near(got[i].y, want[i].y) || !near(got[i].z, want[i].z))
            return ::testing::AssertionFailure() << "point " << i << " is (" << got[i].x << ", " << got[i].y << ", "
                                                 << got[i].z << "), expected (" << want[i].x << ", " << want[i].y << ", "
                                                 << want[i].z << ")";
    return ::testing::AssertionSuccess();
}

const OgrFeature* withText(const std::vector<OgrFeature>& features, const std::string& text)
{
    auto it = std::find_if(features.begin(), features.end(), [&](const OgrFeature& f) { return f.text == text; });
    return it == features.end() ? nullptr : &*it;
}

const OgrFeature* startingAt(const std::vector<OgrFeature>& features, int type, double x, double y)
{
    auto it = std::find_if(features.begin(), features.end(), [&](const OgrFeature& f) {
        return f.type == type && !f.points.empty() && near(f.points[0].x, x) && near(f.points[0].y, y);
    });
    return it == features.end() ? nullptr : &*it;
}

std::map<int, int> countByType(const Design& d)
{
    std::map<int, int> counts;
    for (const Element& e : d.elements) ++counts[static_cast<int>(e.type())];
    return counts;
}

// The fixture's exporter: a metric 2D seed, levels of the layers the
// fixture has, and one entry in each other table.
DgnExport fixtureExporter()
{
    DgnExport exporter;
    exporter.seedFile = seed("V7-Metric-Seed2D.dgn");
    exporter.layerMap = {{L"Mapped", L"40"}};
    exporter.lineTypeMap = {{L"dashed", L"Medium Dashed"}};
    exporter.lineWeightMap = {{L"50", L"9"}};
    exporter.colourMap = {{L"5", L"200"}};
    return exporter;
}

class ExportedFixture : public ::testing::Test {
protected:
    static void SetUpTestSuite()
    {
        folder = new std::filesystem::path(scratch("export-fixture"));
        auto db = readDrawing(KORA_EXPORT_FIXTURE);
        exporter = new DgnExport(fixtureExporter());
        ASSERT_EQ(runExport(*exporter, *folder / "plan.dgn", *db, nullptr, &printed), KORTNORM) << printed.toUtf8();
        features = new std::vector<OgrFeature>(ogrFeatures(*folder / "plan.dgn"));
    }
    static void TearDownTestSuite()
    {
        delete features;
        delete exporter;
        delete folder;
    }
    static inline std::filesystem::path* folder = nullptr;
    static inline DgnExport* exporter = nullptr;
    static inline std::vector<OgrFeature>* features = nullptr;
    static inline KoString printed;
};

} // namespace

// Layers sorted by name take the free levels: "0" 1, "Defpoints" 2,
// "Doors" 3, "Hatch" 4, "Text" 5, "VIEWPORTS" 6 (ezdxf's layer of
// viewports), "Walls" 7; "Mapped" is mapped to 40.
TEST_F(ExportedFixture, GdalReadsEveryEntityOnItsLevelWithItsSymbology)
{
    const auto& f = *features;
    const OgrFeature* wall = startingAt(f, 3, 0, 0);
    ASSERT_NE(wall, nullptr);
    EXPECT_EQ(wall->level, 7);
    EXPECT_EQ(wall->colour, 1);        // the layer's red
    EXPECT_EQ(wall->weight, 9);        // 0.50 mm through the weight table
    EXPECT_TRUE(samePoints(wall->points, {{0, 0, 0}, {10, 5, 0}}));

    const OgrFeature* door = startingAt(f, 3, 1, 1);
    ASSERT_NE(door, nullptr);
    EXPECT_EQ(door->level, 3);
    EXPECT_EQ(door->colour, 30);       // (255, 128, 0) nearest to palette colour 30 (255, 127, 0)
    EXPECT_EQ(door->style, 2);         // DASHED by layer, mapped without regard to case
    EXPECT_EQ(door->weight, 0);

    // 150 vertices: a complex chain of two line strings sharing a vertex.
    const OgrFeature* mapped = startingAt(f, 12, 0, 0);
    ASSERT_NE(mapped, nullptr);
    EXPECT_EQ(mapped->level, 40);
    ASSERT_EQ(mapped->points.size(), 151u);
    EXPECT_TRUE(samePoints({mapped->points.back()}, {{149, 0.5, 0}}));

    // The outline with an arc side is a complex shape.
    const OgrFeature* outline = startingAt(f, 14, 0, 0);
    ASSERT_NE(outline, nullptr);
    const auto rightmost = std::max_element(outline->points.begin(), outline->points.end(),
                                            [](const DoublePoint& a, const DoublePoint& b) { return a.x < b.x; });
    EXPECT_NEAR(rightmost->x, 15, 1e-9); // the half circle through (15, 5)

    const OgrFeature* circle = startingAt(f, 15, 7.5, 5);
    ASSERT_NE(circle, nullptr);
    EXPECT_EQ(circle->colour, 2);
    EXPECT_EQ(std::count_if(f.begin(), f.end(), [](const OgrFeature& x) { return x.type == 16; }), 2); // arc, elliptic arc
    const OgrFeature* arc = startingAt(f, 16, 20 + 4 * std::cos(M_PI / 6), 4 * std::sin(M_PI / 6));
    ASSERT_NE(arc, nullptr);
    EXPECT_TRUE(samePoints({arc->points.back()}, {{20 + 4 * std::cos(2 * M_PI / 3), 4 * std::sin(2 * M_PI / 3), 0}}));

    const OgrFeature* spline = startingAt(f, 4, 0, 30);
    ASSERT_NE(spline, nullptr);
    EXPECT_TRUE(samePoints({spline->points.back()}, {{10, 30, 0}}));

    const OgrFeature* point = startingAt(f, 3, 3, 4); // a line of no length; Z dropped in 2D
    ASSERT_NE(point, nullptr);
    EXPECT_TRUE(samePoints(point->points, {{3, 4, 0}, {3, 4, 0}}));

    const OgrFeature* fill = startingAt(f, 6, 30, 0);
    ASSERT_NE(fill, nullptr);
    EXPECT_EQ(fill->level, 4);
    EXPECT_NE(fill->styleString.find("BRUSH(fc:#00ffff"), std::string::npos) << fill->styleString;
}

TEST_F(ExportedFixture, TextsKeepStringHeightRotationAndPlace)
{
    const auto& f = *features;
    const OgrFeature* hello = withText(f, "Hello DGN");
    ASSERT_NE(hello, nullptr);
    EXPECT_EQ(hello->level, 5);
    EXPECT_EQ(hello->colour, 200); // colour 5 through the colour table
    EXPECT_TRUE(samePoints(hello->points, {{1, 2, 0}}));
    EXPECT_NE(hello->styleString.find("s:1.500g"), std::string::npos) << hello->styleString;
    EXPECT_NE(hello->styleString.find("a:30"), std::string::npos) << hello->styleString;

    // Middle centre at (10, 10), 7 characters 2 high: the lower left corner.
    const OgrFeature* centred = withText(f, "Centred");
    ASSERT_NE(centred, nullptr);
    EXPECT_TRUE(samePoints(centred->points, {{3, 9, 0}}));

    // The multi-line text: each line its own text, formatting codes gone,
    // baselines one line spacing apart from its top at (50, 50).
    const OgrFeature* first = withText(f, "First line");
    const OgrFeature* second = withText(f, "Second line");
    ASSERT_NE(first, nullptr);
    ASSERT_NE(second, nullptr);
    EXPECT_NEAR(first->points[0].y, 50 - 0.7, 1e-5);
    EXPECT_NEAR(second->points[0].y, 50 - 0.7 - 0.7 * 5 / 3, 1e-5);
}

TEST_F(ExportedFixture, BlockReferencesBecomeNestedCellsInPlace)
{
    const auto& f = *features;
    // Chair at (120, 100), base (1, 1), scale 2, turned 90 degrees.
    const OgrFeature* chairLine = startingAt(f, 3, 122, 98);
    ASSERT_NE(chairLine, nullptr);
    EXPECT_TRUE(samePoints(chairLine->points, {{122, 98, 0}, {122, 102, 0}}));
    EXPECT_EQ(chairLine->level, 7); // on layer "0" inside the block: the reference's layer
    // Table at (100, 100) holds its line and a chair; layer "0" and ByBlock
    // take the reference's layer Doors.
    const OgrFeature* tableLine = startingAt(f, 3, 100, 100);
    ASSERT_NE(tableLine, nullptr);
    EXPECT_EQ(tableLine->level, 3);
    EXPECT_EQ(tableLine->colour, 3);

    const Design d = design(*folder / "plan.dgn");
    std::vector<const Element*> cells;
    for (const Element& e : d.elements)
        if (e.as<CellHeader>()) cells.push_back(&e);
    ASSERT_EQ(cells.size(), 3u); // Table, the chair inside it, the chair alone
    EXPECT_EQ(radix50Name(cells[0]->as<CellHeader>()->name), "TABLE");
    EXPECT_FALSE(cells[0]->header.complex);
    EXPECT_EQ(radix50Name(cells[1]->as<CellHeader>()->name), "CHAIR");
    EXPECT_TRUE(cells[1]->header.complex);
    EXPECT_FALSE(cells[2]->header.complex);
    // The outer cell's length covers the inner one: the element after it
    // is the second top-level chair.
    const std::size_t end = cells[0]->offset + 38 + 2 * cells[0]->as<CellHeader>()->totalWords;
    EXPECT_EQ(end, cells[2]->offset);
}

TEST_F(ExportedFixture, OurReaderFindsWhatTheReportCounts)
{
    const Design d = design(*folder / "plan.dgn");
    EXPECT_FALSE(d.info.is3d);
    ASSERT_TRUE(d.colourTable.has_value()); // the seed has none: the drawing palette is written
    EXPECT_EQ(d.colourTable->colour(1), (ColourTable::Rgb{255, 0, 0}));
    const auto counts = countByType(d);
    EXPECT_EQ(counts.at(7), 1);   // the multi-line text's node
    EXPECT_EQ(counts.at(12), 1);  // the long polyline
    EXPECT_EQ(counts.at(14), 1);  // the outline with an arc
    std::size_t graphic = 0;
    for (const Element& e : d.elements)
        graphic += e.type() != ElementType::Tcb && e.type() != ElementType::DigitizerSetup
                   && e.type() != ElementType::LevelSymbology && e.type() != ElementType::GroupData;
    const auto& report = exporter->report();
    EXPECT_EQ(report.direction, DgnTranslationReport::Direction::Export);
    EXPECT_EQ(report.itemsRead, 17u); // 16 in model space, the sheet's line
    // Each file's graphic elements; the sheet holds one line.
    EXPECT_EQ(report.itemsWritten, graphic + 1);
    EXPECT_NE(printed.toUtf8().find("DGN elements written: " + std::to_string(report.itemsWritten)), std::string::npos);
}

TEST(DgnExportUnits, MasterOrSubUnitsPerDrawingUnitAndPointsOffThePlaneFail)
{
    KoDbDatabase db;
    appendToModel(db, new KoDbLine({1.5, -2, 0}, {3, 4, 0}));
    const auto folder = scratch("export-units");
    DgnExport exporter;
    exporter.seedFile = seed("V7-Metric-Seed2D.dgn"); // m / mm, 100 UOR a millimetre
    ASSERT_EQ(runExport(exporter, folder / "master.dgn", db), KORTNORM);
    exporter.useMasterUnits = false;
    ASSERT_EQ(runExport(exporter, folder / "sub.dgn", db), KORTNORM);
    auto lineOf = [](const Design& d) {
        for (const Element& e : d.elements)
            if (const Line* l = e.as<Line>()) return *l;
        return Line{};
    };
    EXPECT_EQ(lineOf(design(folder / "master.dgn")), (Line{{150000, -200000, 0}, {300000, 400000, 0}}));
    EXPECT_EQ(lineOf(design(folder / "sub.dgn")), (Line{{150, -200, 0}, {300, 400, 0}}));

    // 30 km does not fit a plane of about 21.5 km at 0.01 mm: nothing is written.
    appendToModel(db, new KoDbLine({0, 0, 0}, {30000, 0, 0}));
    exporter.useMasterUnits = true;
    KoString printed;
    EXPECT_EQ(runExport(exporter, folder / "far.dgn", db, nullptr, &printed), KORTERROR);
    EXPECT_FALSE(std::filesystem::exists(folder / "far.dgn"));
    EXPECT_NE(printed.toUtf8().find("outside the design plane"), std::string::npos) << printed.toUtf8();
    // In sub units the same drawing is 30 m long and fits.
    exporter.useMasterUnits = false;
    EXPECT_EQ(runExport(exporter, folder / "far.dgn", db), KORTNORM);
}

TEST(DgnExportUnits, ThreeDSeedKeepsZAndTurnedArcs)
{
    KoDbDatabase db;
    appendToModel(db, new KoDbLine({0, 0, 5}, {1, 2, -3}));
    appendToModel(db, new KoDbCircle({0, 0, 2}, {1, 0, 0}, 1.5)); // in the plane x = 2
    const auto folder = scratch("export-3d");
    DgnExport exporter;
    exporter.seedFile = seed("V7-Metric-Seed3D.dgn");
    ASSERT_EQ(runExport(exporter, folder / "solid.dgn", db), KORTNORM);
    const Design d = design(folder / "solid.dgn");
    EXPECT_TRUE(d.info.is3d);
    const auto features = ogrFeatures(folder / "solid.dgn");
    const OgrFeature* line = startingAt(features, 3, 0, 0);
    ASSERT_NE(line, nullptr);
    EXPECT_TRUE(samePoints(line->points, {{0, 0, 5}, {1, 2, -3}}));
    // The circle's axes: its quaternion takes the element's plane to x = 2.
    const Element* circle = nullptr;
    for (const Element& e : d.elements)
        if (e.as<Ellipse>()) circle = &e;
    ASSERT_NE(circle, nullptr);
    const auto m = quaternionMatrix(circle->as<Ellipse>()->orientation.quaternion);
    const DoublePoint centre = d.info.units.toMaster(circle->as<Ellipse>()->origin);
    EXPECT_NEAR(centre.x, 2, 1e-9); // the centre (0, 0, 2) of the circle's own plane
    EXPECT_NEAR(m[0][2], 1, 1e-6); // the element's normal is the x axis
    EXPECT_NEAR(m[0][0], 0, 1e-6);
    EXPECT_NEAR(m[0][1], 0, 1e-6);

    exporter.seedFile = seed("V7-Metric-Seed2D.dgn");
    ASSERT_EQ(runExport(exporter, folder / "flat.dgn", db), KORTNORM);
    const auto flat = ogrFeatures(folder / "flat.dgn");
    line = startingAt(flat, 3, 0, 0);
    ASSERT_NE(line, nullptr);
    EXPECT_TRUE(samePoints(line->points, {{0, 0, 0}, {1, 2, 0}}));
    // Seen from above the tilted circle is a stroked line, not an ellipse.
    EXPECT_TRUE(std::none_of(flat.begin(), flat.end(), [](const OgrFeature& f) { return f.type == 15; }));
}

TEST(DgnExportLevels, LayerMappedToANumberAndLayersBeyondTheLastLevel)
{
    KoDbDatabase db;
    for (int i = 0; i < 70; ++i) {
        wchar_t name[16];
        std::swprintf(name, 16, L"L%02d", i);
        addRecord<KoDbLayerTable, KoDbLayerTableRecord>(db.layerTableId(), name);
        auto* line = new KoDbLine({0, static_cast<double>(i), 0}, {1, static_cast<double>(i), 0});
        line->setDatabaseDefaults(&db);
        appendToModel(db, line);
        KoDbObjectPointer<KoDbBlockTableRecord> model(db.modelSpaceId());
        KoDbObjectPointer<KoDbEntity> last(model->entityIds().back(), KoDb::kForWrite);
        ASSERT_EQ(last->setLayer(KoString(name)), Kora::eOk);
    }
    DgnExport exporter;
    exporter.seedFile = seed("V7-Metric-Seed2D.dgn");
    exporter.layerMap = {{L"L69", L"5"}, {L"L68", L"level nine"}};
    const auto folder = scratch("export-levels");
    ASSERT_EQ(runExport(exporter, folder / "many.dgn", db), KORTNORM);
    std::map<int, int> levelOfLine; // line y -> level
    for (const OgrFeature& f : ogrFeatures(folder / "many.dgn")) levelOfLine[static_cast<int>(f.points[0].y)] = f.level;
    // "0" 1, L00 2, L01 3, L02 4, level 5 is L69's, L03 6 ... L60 63.
    EXPECT_EQ(levelOfLine[69], 5);
    EXPECT_EQ(levelOfLine[0], 2);
    EXPECT_EQ(levelOfLine[3], 6);
    EXPECT_EQ(levelOfLine[60], 63);
    // L61 .. L68 found no level: level 63, and named in the report.
    for (int i = 61; i <= 68; ++i) EXPECT_EQ(levelOfLine[i], 63) << i;
    const auto& notes = exporter.report().notes;
    const auto overflow = std::find_if(notes.begin(), notes.end(), [](const KoString& n) { return n.find(L"no free DGN level") >= 0; });
    ASSERT_NE(overflow, notes.end());
    EXPECT_GE(overflow->find(L"8 layer(s)"), 0) << overflow->toUtf8();
    EXPECT_GE(overflow->find(L"L61, L62"), 0) << overflow->toUtf8();
    EXPECT_TRUE(std::any_of(notes.begin(), notes.end(), [](const KoString& n) { return n.find(L"level nine") >= 0; }));
}

TEST(DgnExportSkips, SolidsUnderlaysAndUnknownKindsAreCountedByKind)
{
    const auto folder = scratch("export-skips");
    DgnExport exporter;
    exporter.seedFile = seed("V7-Metric-Seed3D.dgn");
    auto opaque = readDrawing(fixture("opaque.dxf"));
    ASSERT_EQ(runExport(exporter, folder / "opaque.dgn", *opaque), KORTNORM);
    auto count = [&](const std::string& kind) {
        for (const auto& s : exporter.report().skipped)
            if (s.kind == kind) return s.count;
        return std::size_t{0};
    };
    EXPECT_EQ(count("3DSOLID"), 1u);
    EXPECT_EQ(count("BODY"), 1u);
    EXPECT_EQ(count("REGION"), 1u);
    EXPECT_EQ(count("EXTRUDEDSURFACE"), 1u);
    EXPECT_EQ(exporter.report().itemsWritten, 1u); // the line

    auto underlays = readDrawing(fixture("underlays.dxf"));
    ASSERT_EQ(runExport(exporter, folder / "underlays.dgn", *underlays), KORTNORM);
    EXPECT_EQ(count("DGNUNDERLAY"), 3u);

    // Faces, solids, construction lines and dimensions of the entities
    // drawing have no V7 element either; everything else is written.
    auto entities = readDrawing(fixture("entities.dxf"));
    ASSERT_EQ(runExport(exporter, folder / "entities.dgn", *entities), KORTNORM);
    EXPECT_EQ(count("3DFACE"), 1u);
    EXPECT_EQ(count("DIMENSION"), 1u);
    EXPECT_EQ(count("POLYLINE"), 1u); // the polyface mesh; the 2D polyline is a line string
    const auto features = ogrFeatures(folder / "entities.dgn");
    EXPECT_NE(withText(features, "Hello DXF"), nullptr);
    EXPECT_TRUE(std::any_of(features.begin(), features.end(), [](const OgrFeature& f) {
        return f.type == 4 && samePoints(f.points, {{0, 0, 0}, {5, 0, 0}, {5, 5, 0}});
    }));
    EXPECT_EQ(std::count_if(features.begin(), features.end(), [](const OgrFeature& f) { return f.styleString.find("BRUSH") != std::string::npos; }), 3);
}

TEST(DgnExportTexts, PlacedByInsertionOrAlignmentPointAndCutAt255Characters)
{
    KoDbDatabase db;
    auto text = [&](KoDbText::TextHorzMode h, KoDbText::TextVertMode v, const wchar_t* s) {
        auto* t = new KoDbText;
        t->setTextString(s);
        t->setHeight(2);
        t->setPosition({1, 1, 0});      // where a left aligned or fitted text starts
        t->setAlignmentPoint({20, 10, 0});
        t->setHorizontalMode(h);
        t->setVerticalMode(v);
        appendToModel(db, t);
    };
    text(KoDbText::kTextLeft, KoDbText::kTextTop, L"top");     // hangs 2 below the point
    text(KoDbText::kTextRight, KoDbText::kTextBase, L"right"); // ends 5 x 2 left of it
    text(KoDbText::kTextFit, KoDbText::kTextBase, L"fit");     // starts at the insertion point
    text(KoDbText::kTextLeft, KoDbText::kTextBase, std::wstring(300, L'x').c_str());
    const auto folder = scratch("export-texts");
    DgnExport exporter;
    exporter.seedFile = seed("V7-Metric-Seed2D.dgn");
    ASSERT_EQ(runExport(exporter, folder / "texts.dgn", db), KORTNORM);
    const Design d = design(folder / "texts.dgn");
    std::map<std::string, DoublePoint> origins;
    std::vector<std::size_t> lengths;
    for (const Element& e : d.elements)
        if (const Text* t = e.as<Text>()) {
            origins[t->text] = d.info.units.toMaster(t->origin);
            if (t->text[0] == 'x') lengths.push_back(t->text.size());
        }
    EXPECT_TRUE(samePoints({origins["top"]}, {{20, 8, 0}}));
    EXPECT_TRUE(samePoints({origins["right"]}, {{10, 10, 0}}));
    EXPECT_TRUE(samePoints({origins["fit"]}, {{1, 1, 0}}));
    EXPECT_EQ(lengths, (std::vector<std::size_t>{255, 45})); // two lines of a text node
    EXPECT_EQ(countByType(d).at(7), 1);
}
