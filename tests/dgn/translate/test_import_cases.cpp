// What can go wrong in an import, on small designs made here with the
// codec's writer where no sample holds the element kind: mapping tables,
// units, cells, text nodes, references, cancelling and unreadable files.
#include "import_test_support.h"

#include <fstream>

#include "kora/dgn/v7/numbers.h"
#include "kora/dgn/v7/writer.h"

using namespace Kora::Test;
using namespace Kora::Dgn::V7;
namespace fs = std::filesystem;

namespace {

// 10 UOR per millimetre, 1000 mm per metre.
const Units kUnits{"m", "mm", 1000, 10, {}};

Element element(ElementType type, int level, Body body, std::uint8_t colour = 1, std::uint8_t style = 0)
{
    Element e;
    e.header.type = type;
    e.header.level = static_cast<std::uint8_t>(level);
    e.header.symbology = {colour, 0, style};
    e.body = std::move(body);
    return e;
}

Element line(int level, IntPoint a, IntPoint b, std::uint8_t style = 0)
{
    return element(ElementType::Line, level, Line{a, b}, 1, style);
}

Element text(int level, const std::string& s, IntPoint origin)
{
    Text t;
    t.text = s;
    t.origin = origin;
    t.heightMultiplier = t.lengthMultiplier = textMultiplierFromUor(25.0);
    return element(ElementType::Text, level, t);
}

// The Radix-50 value of a name of up to six characters.
std::uint32_t radix50(const std::string& name)
{
    static const std::string kChars = " ABCDEFGHIJKLMNOPQRSTUVWXYZ$.%0123456789";
    std::uint32_t words[2] = {0, 0};
    for (std::size_t i = 0; i < 6; ++i) {
        const std::size_t c = i < name.size() ? kChars.find(name[i]) : 0;
        words[i / 3] = words[i / 3] * 40 + static_cast<std::uint32_t>(c);
    }
    return (words[0] << 16) | words[1];
}

// A 2D cell turned by `quarterTurns` times 90 degrees and scaled; the
// matrix's lowest bit is worth 10000 / 2^31.
Element cell(const std::string& name, IntPoint origin, int quarterTurns = 0, int scale = 1)
{
    CellHeader c;
    c.name = radix50(name);
    c.origin = origin;
    const std::int32_t one = 214748 * scale;
    c.transform = quarterTurns % 2 == 0 ? std::array<std::int32_t, 9>{one, 0, 0, one} : std::array<std::int32_t, 9>{0, -one, one, 0};
    return element(ElementType::CellHeader, 0, c);
}

// A cell's bytes: its header and components, as one complex element.
std::vector<Element> encodedComplex(const Element& header, const std::vector<Element>& components)
{
    Writer w = Writer::create(false, kUnits);
    EXPECT_TRUE(w.appendComplex(header, components));
    auto design = readDesign(w.finish());
    EXPECT_TRUE(design);
    return {design->elements.begin() + 3, design->elements.end()};
}

fs::path save(Writer& writer, const fs::path& file)
{
    const std::vector<std::byte> bytes = writer.finish();
    std::ofstream out(file, std::ios::binary);
    out.write(reinterpret_cast<const char*>(bytes.data()), static_cast<std::streamsize>(bytes.size()));
    return file;
}

fs::path design(const fs::path& file, const std::vector<Element>& elements)
{
    Writer w = Writer::create(false, kUnits);
    for (const Element& e : elements) EXPECT_TRUE(w.append(e)) << elementTypeName(e.type());
    return save(w, file);
}

// What a drawing holds: names of its tables and the handles of its
// model-space entities.
template <class T>
std::vector<KoDbObjectId> ofKind(KoDbObjectId blockId)
{
    std::vector<KoDbObjectId> ids;
    for (const KoDbObjectId id : entitiesOf(blockId))
        if (id.objectClass() == T::desc()) ids.push_back(id);
    return ids;
}

KoDbObjectId blockId(const KoDbDatabase& db, const wchar_t* name)
{
    KoDbObjectPointer<KoDbBlockTable> table(db.blockTableId());
    KoDbObjectId id;
    table->getAt(name, id);
    return id;
}

// A reference file attachment (type 5, level 9) as the element structure
// lays it out after the display header.
Element attachment(const std::string& file, IntPoint masterOrigin, double conversion = 1.0)
{
    std::vector<std::byte> d(300, std::byte{0});
    auto put = [&](std::size_t at, auto bytes) { std::copy(bytes.begin(), bytes.end(), d.begin() + static_cast<std::ptrdiff_t>(at)); };
    put(0, encodeWord(static_cast<std::uint16_t>(file.size())));
    for (std::size_t i = 0; i < file.size(); ++i) d[2 + i] = static_cast<std::byte>(file[i]);
    for (std::size_t i = 0; i < 9; ++i) put(164 + 8 * i, encodeVaxDouble(i % 4 == 0 ? 1.0 : 0.0));
    put(236, encodeVaxDouble(conversion));
    put(244, encodeInt32(masterOrigin.x));
    put(248, encodeInt32(masterOrigin.y));
    put(252, encodeInt32(masterOrigin.z));
    return element(ElementType::GroupData, 9, GroupData{d});
}

struct ScriptedService : KxDgnExportInternalService {
    std::vector<int> answers;
    std::vector<std::string> asked;
    bool isEnabled() override { return true; }
    int promptFileOverwrite(KoString name) override
    {
        asked.push_back(name.toUtf8());
        const int answer = answers.empty() ? kDgnOverwriteKeep : answers.front();
        if (!answers.empty()) answers.erase(answers.begin());
        return answer;
    }
    bool isUcsIconVisible() override { return false; }
};

} // namespace

TEST(DgnImportCases, MappingTablesNameLayersColoursAndWeights)
{
    DgnImportState state;
    state.tables.levels = {{L"15", L"Walls"}, {L"9", L"  "}};
    state.tables.colours = {{L"3", L"5"}};
    state.tables.weights = {{L"1", L"50"}};
    KoDbDatabase db;
    DgnTranslationReport report;
    ASSERT_EQ(importFile(sample("mixed-elements.dgn"), db, report, state), KORTNORM);
    const auto layers = recordNames(db.layerTableId());
    EXPECT_TRUE(hasName(layers, "Walls"));
    EXPECT_TRUE(hasName(layers, "9")); // an empty target keeps the level's name
    EXPECT_TRUE(hasName(layers, "10"));
    EXPECT_FALSE(hasName(layers, "15"));
    KoDbObjectPointer<KoDbLine> first(ofKind<KoDbLine>(db.modelSpaceId()).at(0));
    EXPECT_EQ(first->layer(), KoString(L"Walls"));
    EXPECT_EQ(first->colorIndex(), 5);
    EXPECT_EQ(first->lineWeight(), KoDb::kLnWt050);

    // Without a weight table the default import table applies (1 -> 0.13 mm).
    KoDbDatabase plain;
    ASSERT_EQ(importFile(sample("mixed-elements.dgn"), plain, report), KORTNORM);
    KoDbObjectPointer<KoDbLine> line(ofKind<KoDbLine>(plain.modelSpaceId()).at(0));
    EXPECT_EQ(line->lineWeight(), KoDb::kLnWt013);
    EXPECT_EQ(line->linetypeId(), plain.continuousLinetype());
}

TEST(DgnImportCases, ColourTableGivesPaletteIndexOnExactMatchElseTrueColour)
{
    // smalltest's colour table: index 0 is white (palette 7); the fill
    // colour 83 is #b40000, which the palette lacks.
    KoDbDatabase db;
    DgnTranslationReport report;
    ASSERT_EQ(importFile(sample("smalltest.dgn"), db, report), KORTNORM);
    KoDbObjectPointer<KoDbText> text(ofKind<KoDbText>(db.modelSpaceId()).at(0));
    EXPECT_TRUE(text->color().isByACI());
    EXPECT_EQ(text->colorIndex(), 7);
    KoDbObjectPointer<KoDbHatch> fill(ofKind<KoDbHatch>(db.modelSpaceId()).at(0));
    EXPECT_TRUE(fill->isSolidFill());
    EXPECT_TRUE(fill->color().isByColor());
    EXPECT_EQ(fill->color().rgb(), 0xB40000u);
}

TEST(DgnImportCases, LineStylesBecomeLinetypesWithDashes)
{
    const fs::path folder = scratch("import-styles");
    const fs::path file = design(folder / "styles.dgn", {line(1, {0, 0, 0}, {10, 0, 0}, 0), line(1, {0, 0, 0}, {10, 0, 0}, 2),
                                                          line(1, {0, 0, 0}, {10, 0, 0}, 1)});
    DgnImportState state;
    state.tables.lineStyles = {{L"Dotted", L"DOTS"}};
    KoDbDatabase db;
    DgnTranslationReport report;
    ASSERT_EQ(importFile(file, db, report, state), KORTNORM);
    const auto lines = ofKind<KoDbLine>(db.modelSpaceId());
    ASSERT_EQ(lines.size(), 3u);
    KoDbObjectPointer<KoDbLine> solid(lines[0]), dashed(lines[1]), dotted(lines[2]);
    EXPECT_EQ(solid->linetype(), KoString(L"Continuous"));
    EXPECT_EQ(dashed->linetype(), KoString(L"Medium Dashed"));
    EXPECT_EQ(dotted->linetype(), KoString(L"DOTS"));
    KoDbObjectPointer<KoDbLinetypeTableRecord> medium(dashed->linetypeId());
    ASSERT_EQ(medium->numDashes(), 2);
    EXPECT_GT(medium->dashLengthAt(0), 0.0);
    EXPECT_LT(medium->dashLengthAt(1), 0.0);
    expectAuditClean(db, folder / "styles.dxf");
}

TEST(DgnImportCases, SubUnitsScaleEveryCoordinate)
{
    KoDbDatabase master, sub;
    DgnTranslationReport report;
    ASSERT_EQ(importFile(sample("smalltest.dgn"), master, report), KORTNORM);
    DgnImportState state;
    state.masterUnits = 0;
    ASSERT_EQ(importFile(sample("smalltest.dgn"), sub, report, state), KORTNORM);
    auto design = readDesignFile(sample("smalltest.dgn"));
    ASSERT_TRUE(design);
    const double factor = design->info.units.subPerMaster;
    ASSERT_GT(factor, 1.0);
    KoDbObjectPointer<KoDbLine> a(ofKind<KoDbLine>(master.modelSpaceId()).at(0));
    KoDbObjectPointer<KoDbLine> b(ofKind<KoDbLine>(sub.modelSpaceId()).at(0));
    EXPECT_TRUE(near(b->endPoint().x, a->endPoint().x * factor));
    EXPECT_TRUE(near(b->endPoint().y, a->endPoint().y * factor));
    KoDbObjectPointer<KoDbText> ta(ofKind<KoDbText>(master.modelSpaceId()).at(0));
    KoDbObjectPointer<KoDbText> tb(ofKind<KoDbText>(sub.modelSpaceId()).at(0));
    EXPECT_TRUE(near(tb->height(), ta->height() * factor));
}

TEST(DgnImportCases, CellsBecomeBlocksNestedCellsIncluded)
{
    ASSERT_EQ(radix50Name(radix50("OUTER")), "OUTER");
    const fs::path folder = scratch("import-cells");
    Writer w = Writer::create(false, kUnits);
    // An inner cell inside an outer one, and the outer placed twice.
    const std::vector<Element> inner = encodedComplex(cell("INNER", {150, 150, 0}), {line(2, {150, 150, 0}, {160, 160, 0})});
    std::vector<Element> outerComponents = {line(1, {100, 100, 0}, {200, 100, 0})};
    outerComponents.insert(outerComponents.end(), inner.begin(), inner.end());
    for (Element& e : outerComponents) e.header.range.reset();
    ASSERT_TRUE(w.appendComplex(cell("OUTER", {100, 100, 0}), outerComponents));
    ASSERT_TRUE(w.appendComplex(cell("OUTER", {500, 0, 0}), std::vector{line(1, {500, 0, 0}, {600, 0, 0})}));
    const fs::path file = save(w, folder / "cells.dgn");

    KoDbDatabase db;
    DgnTranslationReport report;
    ASSERT_EQ(importFile(file, db, report), KORTNORM);
    EXPECT_TRUE(report.skipped.empty());
    const auto inserts = ofKind<KoDbBlockReference>(db.modelSpaceId());
    ASSERT_EQ(inserts.size(), 2u);
    const auto blocks = recordNames(db.blockTableId());
    EXPECT_TRUE(hasName(blocks, "OUTER"));
    EXPECT_TRUE(hasName(blocks, "OUTER_2"));
    EXPECT_TRUE(hasName(blocks, "INNER"));

    // The outer block holds its line and a reference to the inner block;
    // placed, every line is where the design draws it (10000 UOR a metre).
    KoDbObjectPointer<KoDbBlockReference> outer(inserts[0]);
    EXPECT_TRUE(near(outer->position(), DoublePoint{0.01, 0.01, 0}));
    const auto outerLines = ofKind<KoDbLine>(outer->blockTableRecord());
    ASSERT_EQ(outerLines.size(), 1u);
    KoDbObjectPointer<KoDbLine> outerLine(outerLines[0]);
    EXPECT_TRUE(near(outerLine->endPoint(), DoublePoint{0.01, 0, 0}));
    const auto nested = ofKind<KoDbBlockReference>(outer->blockTableRecord());
    ASSERT_EQ(nested.size(), 1u);
    KoDbObjectPointer<KoDbBlockReference> innerInsert(nested[0]);
    EXPECT_TRUE(near(innerInsert->position(), DoublePoint{0.005, 0.005, 0}));
    const auto innerLines = ofKind<KoDbLine>(innerInsert->blockTableRecord());
    ASSERT_EQ(innerLines.size(), 1u);
    KoDbObjectPointer<KoDbLine> innerLine(innerLines[0]);
    EXPECT_EQ(innerLine->layer(), KoString(L"2"));
    EXPECT_TRUE(near(innerLine->endPoint(), DoublePoint{0.001, 0.001, 0}));
    expectAuditClean(db, folder / "cells.dxf");
}

TEST(DgnImportCases, TextNodesAsMTextOrExploded)
{
    const fs::path folder = scratch("import-nodes");
    TextNode node;
    node.origin = {100, 200, 0};
    node.heightMultiplier = node.lengthMultiplier = textMultiplierFromUor(25.0);
    Writer w = Writer::create(false, kUnits);
    ASSERT_TRUE(w.appendComplex(element(ElementType::TextNode, 4, node),
                                std::vector{text(4, "First {line}", {100, 200, 0}), text(4, "Second", {100, 160, 0})}));
    const fs::path file = save(w, folder / "node.dgn");

    KoDbDatabase db;
    DgnTranslationReport report;
    ASSERT_EQ(importFile(file, db, report), KORTNORM);
    const auto mtexts = ofKind<KoDbMText>(db.modelSpaceId());
    ASSERT_EQ(mtexts.size(), 1u);
    {
        KoDbObjectPointer<KoDbMText> m(mtexts[0]);
        EXPECT_EQ(m->contents(), KoString(L"First \\{line\\}\\PSecond"));
        EXPECT_TRUE(near(m->location(), DoublePoint{0.01, 0.02, 0}));
        EXPECT_TRUE(near(m->textHeight(), 0.0025, 1e-3));
    }
    EXPECT_TRUE(ofKind<KoDbText>(db.modelSpaceId()).empty());
    expectAuditClean(db, folder / "node.dxf");

    DgnImportState state;
    state.explodeTextNodes = 1;
    KoDbDatabase exploded;
    ASSERT_EQ(importFile(file, exploded, report, state), KORTNORM);
    EXPECT_TRUE(ofKind<KoDbMText>(exploded.modelSpaceId()).empty());
    const auto texts = ofKind<KoDbText>(exploded.modelSpaceId());
    ASSERT_EQ(texts.size(), 2u);
    KoDbObjectPointer<KoDbText> second(texts[1]);
    EXPECT_EQ(second->textString(), KoString(L"Second"));
    EXPECT_TRUE(near(second->position(), DoublePoint{0.01, 0.016, 0}));
}

TEST(DgnImportCases, TargetModeTwoPutsTheDesignInOneBlock)
{
    KoDbDatabase db;
    DgnTranslationReport report;
    DgnImportState state;
    state.targetMode = 2;
    ASSERT_EQ(importFile(sample("smalltest.dgn"), db, report, state), KORTNORM);
    ASSERT_EQ(importFile(sample("smalltest.dgn"), db, report, state), KORTNORM);
    const auto model = entitiesOf(db.modelSpaceId());
    ASSERT_EQ(model.size(), 2u);
    KoDbObjectPointer<KoDbBlockReference> first(model[0]), second(model[1]);
    EXPECT_EQ(first->position(), KoGePoint3d::kOrigin());
    EXPECT_EQ(blockId(db, L"smalltest"), first->blockTableRecord());
    EXPECT_EQ(blockId(db, L"smalltest_2"), second->blockTableRecord());
    EXPECT_EQ(entitiesOf(first->blockTableRecord()).size(), 5u);
}

TEST(DgnImportCases, CancelledImportLeavesTheDrawingAsItWas)
{
    const fs::path folder = scratch("import-cancel");
    std::vector<Element> lines;
    // One report inside the loop (after 4096 elements), one at the end.
    for (int i = 0; i < 6000; ++i) lines.push_back(line(1 + i % 60, {i, 0, 0}, {i, 100, 0}, static_cast<std::uint8_t>(i % 8)));
    const fs::path file = design(folder / "many.dgn", lines);

    KoDbDatabase db;
    DgnTranslationReport report;
    ASSERT_EQ(importFile(sample("smalltest.dgn"), db, report), KORTNORM);
    const Snapshot before = snapshot(db);

    // Cancelled at the first report, in model space and in a block of its
    // own, and at the last one.
    for (const auto& [answerAt, targetMode] : {std::pair{1, 1}, std::pair{2, 1}, std::pair{1, 2}}) {
        SCOPED_TRACE(answerAt);
        std::vector<double> fractions;
        DgnImportState state;
        state.progress = [&](double f) {
            fractions.push_back(f);
            return static_cast<int>(fractions.size()) < answerAt;
        };
        state.targetMode = targetMode;
        EXPECT_EQ(importFile(file, db, report, state), KORTERROR);
        EXPECT_TRUE(report.cancelled);
        EXPECT_EQ(static_cast<int>(fractions.size()), answerAt);
        EXPECT_LT(fractions.front(), 1.0);
        EXPECT_EQ(fractions.back(), answerAt == 2 ? 1.0 : fractions.front());
        EXPECT_EQ(snapshot(db), before);
        EXPECT_EQ(db.openObjectCount(), 0);
        EXPECT_NE(report.summary().back().toUtf8().find("Cancelled"), std::string::npos);
    }
    expectAuditClean(db, folder / "after.dxf");
}

TEST(DgnImportCases, UnreadableFilesChangeNothing)
{
    const fs::path folder = scratch("import-unreadable");
    std::vector<std::byte> bytes = sampleBytes("mixed-elements.dgn");
    bytes.resize(bytes.size() - 100);
    const fs::path truncated = folder / "truncated.dgn";
    std::ofstream(truncated, std::ios::binary).write(reinterpret_cast<const char*>(bytes.data()), static_cast<std::streamsize>(bytes.size()));

    // A V8 design cut short fails in its container, before any model is read.
    std::vector<std::byte> v8 = sampleBytes("v8/test_dgnv8.dgn");
    v8.resize(v8.size() / 2);
    const fs::path truncatedV8 = folder / "truncated-v8.dgn";
    std::ofstream(truncatedV8, std::ios::binary).write(reinterpret_cast<const char*>(v8.data()), static_cast<std::streamsize>(v8.size()));

    KoDbDatabase db;
    const Snapshot before = snapshot(db);
    for (const fs::path& file : {truncated, folder / "missing.dgn", truncatedV8}) {
        SCOPED_TRACE(file.string());
        DgnTranslationReport report;
        EXPECT_EQ(importFile(file, db, report), KORTERROR);
        EXPECT_EQ(snapshot(db), before);
        ASSERT_FALSE(report.notes.empty());
        EXPECT_EQ(report.itemsWritten, 0u);
    }
}

TEST(DgnImportCases, SummaryCountsWhatWasNotTranslated)
{
    const fs::path folder = scratch("import-summary");
    Cone cone;
    cone.radius1 = cone.radius2 = 10;
    Writer w = Writer::create(true, kUnits);
    ASSERT_TRUE(w.append(element(ElementType::Cone, 1, cone)));
    ASSERT_TRUE(w.append(element(ElementType::Cone, 1, cone)));
    ASSERT_TRUE(w.append(line(1, {0, 0, 0}, {10, 0, 0})));
    const fs::path file = save(w, folder / "cones.dgn");
    KoDbDatabase db;
    DgnTranslationReport report;
    ASSERT_EQ(importFile(file, db, report), KORTNORM);
    EXPECT_EQ(report.itemsWritten, 1u);
    ASSERT_EQ(report.skipped.size(), 1u);
    EXPECT_EQ(report.skipped[0].count, 2u);
    const auto lines = report.summary();
    EXPECT_TRUE(std::any_of(lines.begin(), lines.end(), [](const KoString& l) {
        return l.toUtf8() == "Not translated: 2 Cone (3D surface or solid)";
    }));
}

TEST(DgnImportCases, ReferenceAttachmentsBecomeBlocks)
{
    const fs::path folder = scratch("import-refs");
    design(folder / "ref.dgn", {line(3, {0, 0, 0}, {1000, 0, 0})});
    const fs::path master =
        design(folder / "master.dgn", {line(1, {0, 0, 0}, {10, 0, 0}), attachment("C:\\old\\place\\ref.dgn", {20000, 0, 0}),
                                       attachment("gone.dgn", {0, 0, 0})});

    // Master file only: the attachments are counted, nothing is made.
    {
        KoDbDatabase db;
        DgnTranslationReport report;
        ASSERT_EQ(importFile(master, db, report), KORTNORM);
        EXPECT_TRUE(blockId(db, L"ref").isNull());
        ASSERT_EQ(report.skipped.size(), 1u);
        EXPECT_EQ(report.skipped[0].count, 2u);
    }
    DgnImportState state;
    state.translationMode = 1;
    state.existingXRefOperation = kDgnExistingAsk;
    KoDbDatabase db;
    DgnTranslationReport report;
    ASSERT_EQ(importFile(master, db, report, state), KORTNORM);
    ASSERT_EQ(report.referencesNotFound.size(), 1u);
    EXPECT_EQ(report.referencesNotFound[0], KoString(L"gone.dgn"));
    const KoDbObjectId ref = blockId(db, L"ref");
    ASSERT_FALSE(ref.isNull());
    ASSERT_EQ(ofKind<KoDbLine>(ref).size(), 1u);
    const auto inserts = ofKind<KoDbBlockReference>(db.modelSpaceId());
    ASSERT_EQ(inserts.size(), 1u);
    {
        KoDbObjectPointer<KoDbBlockReference> insert(inserts[0]);
        EXPECT_TRUE(near(insert->position(), DoublePoint{2.0, 0, 0}));
        EXPECT_EQ(insert->blockTableRecord(), ref);
        EXPECT_TRUE(near(insert->scaleFactors().sx, 1.0));
    }
    expectAuditClean(db, folder / "refs.dxf");

    // Imported again: asked about the existing block. Keep leaves it; cancel
    // stops the import and leaves the drawing as it was.
    ScriptedService service;
    service.answers = {kDgnOverwriteKeep, kDgnOverwriteCancel};
    ASSERT_EQ(importFile(master, db, report, state, &service), KORTNORM);
    EXPECT_EQ(blockId(db, L"ref"), ref);
    const Snapshot before = snapshot(db);
    EXPECT_EQ(importFile(master, db, report, state, &service), KORTERROR);
    EXPECT_TRUE(report.cancelled);
    EXPECT_EQ(snapshot(db), before);
    EXPECT_EQ(service.asked, (std::vector<std::string>{"ref", "ref"}));

    // Replace: the block of that name now holds the new content and every
    // reference of the old one shows it.
    design(folder / "ref.dgn", {line(3, {0, 0, 0}, {2000, 0, 0}), line(3, {0, 0, 0}, {0, 2000, 0})});
    state.existingXRefOperation = kDgnExistingOverwrite;
    ASSERT_EQ(importFile(master, db, report, state), KORTNORM);
    const KoDbObjectId replaced = blockId(db, L"ref");
    EXPECT_NE(replaced, ref);
    EXPECT_EQ(ofKind<KoDbLine>(replaced).size(), 2u);
    for (const KoDbObjectId id : ofKind<KoDbBlockReference>(db.modelSpaceId())) {
        KoDbObjectPointer<KoDbBlockReference> insert(id);
        EXPECT_EQ(insert->blockTableRecord(), replaced);
    }
    expectAuditClean(db, folder / "replaced.dxf");
}

TEST(DgnImportCases, ComplexChainsBecomeOnePolylineWithArcsAsBulges)
{
    const fs::path folder = scratch("import-chain");
    Arc arc;
    arc.primaryAxis = arc.secondaryAxis = 500;
    arc.origin = {1000, 500, 0};
    arc.startAngle = angleFromDegrees(-90);
    arc.sweepAngle = angleFromDegrees(180);
    const std::vector<Element> components = {line(1, {0, 0, 0}, {1000, 0, 0}), element(ElementType::Arc, 1, arc),
                                             line(1, {1000, 1000, 0}, {0, 1000, 0})};
    // The same outline as a chain, and as a filled shape (fill linkage
    // 0x0041 with colour 4) closed by a last line.
    Element shape = element(ElementType::ComplexShapeHeader, 1, ComplexHeader{});
    shape.header.attributes = {std::byte{0x07}, std::byte{0x10}, std::byte{0x41}, std::byte{0x00}, std::byte{0x01},
                               std::byte{0x00}, std::byte{0x00}, std::byte{0x00}, std::byte{0x04}, std::byte{0x00},
                               std::byte{0x00}, std::byte{0x00}, std::byte{0x00}, std::byte{0x00}, std::byte{0x00},
                               std::byte{0x00}};
    std::vector<Element> closed = components;
    closed.push_back(line(1, {0, 1000, 0}, {0, 0, 0}));
    Writer w = Writer::create(false, kUnits);
    ASSERT_TRUE(w.appendComplex(element(ElementType::ComplexChainHeader, 1, ComplexHeader{}), components));
    ASSERT_TRUE(w.appendComplex(shape, closed));
    const fs::path file = save(w, folder / "chain.dgn");

    KoDbDatabase db;
    DgnTranslationReport report;
    ASSERT_EQ(importFile(file, db, report), KORTNORM);
    const auto polylines = ofKind<KoDbPolyline>(db.modelSpaceId());
    ASSERT_EQ(polylines.size(), 2u);
    for (std::size_t i = 0; i < 2; ++i) {
        KoDbObjectPointer<KoDbPolyline> p(polylines[i]);
        EXPECT_EQ(p->isClosed(), i == 1);
        ASSERT_EQ(p->numVerts(), 4);
        const auto& v = p->vertices();
        EXPECT_TRUE(near(v[1].point.x, 0.1) && near(v[1].point.y, 0.0));
        EXPECT_TRUE(near(v[1].bulge, 1.0)); // a half circle, counter-clockwise
        EXPECT_EQ(v[0].bulge, 0.0);
        EXPECT_TRUE(near(v[3].point.x, 0.0) && near(v[3].point.y, 0.1));
    }
    const auto fills = ofKind<KoDbHatch>(db.modelSpaceId());
    ASSERT_EQ(fills.size(), 1u);
    KoDbObjectPointer<KoDbHatch> fill(fills[0]);
    ASSERT_EQ(fill->numLoops(), 1);
    EXPECT_EQ(fill->loops()[0].vertices.size(), 4u);
    ASSERT_EQ(fill->loops()[0].bulges.size(), 4u);
    EXPECT_TRUE(near(fill->loops()[0].bulges[1], 1.0));
    EXPECT_EQ(fill->colorIndex(), 2); // default colour 4 is yellow
    fill.close();
    expectAuditClean(db, folder / "chain.dxf");
}

TEST(DgnImportCases, TurnedAndScaledCellsKeepTheirFrameInTheBlock)
{
    const fs::path folder = scratch("import-turned-cell");
    Writer w = Writer::create(false, kUnits);
    // A cell turned a quarter and scaled twice: its line runs up from the
    // origin in the design, along x in the cell's own frame.
    ASSERT_TRUE(w.appendComplex(cell("TURNED", {1000, 0, 0}, 1, 2), std::vector{line(1, {1000, 0, 0}, {1000, 400, 0})}));
    const fs::path file = save(w, folder / "turned.dgn");
    KoDbDatabase db;
    DgnTranslationReport report;
    ASSERT_EQ(importFile(file, db, report), KORTNORM);
    const auto inserts = ofKind<KoDbBlockReference>(db.modelSpaceId());
    ASSERT_EQ(inserts.size(), 1u);
    KoDbObjectPointer<KoDbBlockReference> insert(inserts[0]);
    EXPECT_TRUE(near(insert->rotation(), M_PI / 2));
    EXPECT_TRUE(near(insert->scaleFactors().sx, 2.0, 1e-5));
    EXPECT_TRUE(near(insert->position(), DoublePoint{0.1, 0, 0}));
    const auto lines = ofKind<KoDbLine>(insert->blockTableRecord());
    ASSERT_EQ(lines.size(), 1u);
    KoDbObjectPointer<KoDbLine> local(lines[0]);
    EXPECT_TRUE(near(local->startPoint(), DoublePoint{0, 0, 0}));
    EXPECT_NEAR(local->endPoint().y, 0.0, 1e-15);
    // Placed back by the reference, the line ends where the design has it.
    const double s = insert->scaleFactors().sx, r = insert->rotation();
    const KoGePoint3d e = local->endPoint();
    const KoGePoint3d placed{insert->position().x + s * (e.x * std::cos(r) - e.y * std::sin(r)),
                             insert->position().y + s * (e.x * std::sin(r) + e.y * std::cos(r)), 0};
    EXPECT_TRUE(near(placed, DoublePoint{0.1, 0.04, 0}));
    local.close();
    insert.close();
    expectAuditClean(db, folder / "turned.dxf");
}

TEST(DgnImportCases, CurvesAndBSplinesBecomeSplines)
{
    const fs::path folder = scratch("import-splines");
    Vertices curve;
    for (int i = 0; i < 7; ++i) curve.points.push_back({i * 100, (i % 2) * 100, 0});
    BSplineCurveHeader header;
    header.flags = 2; // order 4
    header.poleCount = 5;
    header.knotCount = 1;
    Vertices poles;
    for (int i = 0; i < 5; ++i) poles.points.push_back({i * 100, (i % 2) * 200, 0});
    BSplineValues knots;
    knots.values = {1073741823}; // one interior knot at 0.5
    BSplineCurveHeader closed = header;
    closed.flags |= 0x80;
    const fs::path file = design(folder / "splines.dgn",
                                 {element(ElementType::Curve, 1, curve), element(ElementType::BSplineCurveHeader, 1, header),
                                  element(ElementType::BSplinePole, 1, poles), element(ElementType::BSplineKnot, 1, knots),
                                  element(ElementType::BSplineCurveHeader, 1, closed),
                                  element(ElementType::BSplinePole, 1, poles)});
    KoDbDatabase db;
    DgnTranslationReport report;
    ASSERT_EQ(importFile(file, db, report), KORTNORM);
    const auto splines = ofKind<KoDbSpline>(db.modelSpaceId());
    ASSERT_EQ(splines.size(), 2u);
    {
        // The curve passes through its points but the two at each end.
        KoDbObjectPointer<KoDbSpline> fitted(splines[0]);
        ASSERT_EQ(fitted->fitPoints().size(), 3u);
        EXPECT_TRUE(near(fitted->fitPoints()[0], DoublePoint{0.02, 0, 0}));
        KoDbObjectPointer<KoDbSpline> nurbs(splines[1]);
        EXPECT_EQ(nurbs->degree(), 3);
        ASSERT_EQ(nurbs->controlPoints().size(), 5u);
        EXPECT_EQ(nurbs->knots(), (std::vector<double>{0, 0, 0, 0, 1073741823 / 2147483647.0, 1, 1, 1, 1}));
    }
    ASSERT_EQ(report.skipped.size(), 1u);
    EXPECT_EQ(report.skipped[0].reason, "closed B-spline curve");
    expectAuditClean(db, folder / "splines.dxf");
}
