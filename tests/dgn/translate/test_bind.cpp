// Binding and inserting DGN underlays: a drawing with a sample attached
// (its definition in the underlay dictionary, references in model space, a
// layout and a block) becomes one with a block and block references.
#include "import_test_support.h"

#include "kora/db/underlay.h"
#include "kora/dgn/underlayservice.h"

using namespace Kora::Test;

namespace {

KoDbObjectId attach(KoDbDatabase& db, const KoString& key, const std::filesystem::path& file)
{
    KoDbObjectId dictionaryId, id;
    EXPECT_EQ(KoDbUnderlayService::createUnderlayDictionary(&db, KoDbDgnDefinition::desc(), dictionaryId), Kora::eOk);
    KoDbObjectPointer<KoDbDictionary> dictionary(dictionaryId, KoDb::kForWrite);
    auto* definition = new KoDbDgnDefinition;
    definition->setItemName(L"Default");
    EXPECT_EQ(dictionary->setAt(key, definition, id), Kora::eOk);
    definition->setUnderlayItem(wide(file), wide(file));
    definition->close();
    return id;
}

struct Placed {
    KoGePoint3d position;
    KoGeScale3d scale;
    double rotation;
};

KoDbObjectId place(KoDbDatabase& db, KoDbObjectId blockId, KoDbObjectId definitionId, const Placed& at,
                   KoDbObjectId layer = {})
{
    auto* reference = new KoDbDgnReference;
    reference->setDatabaseDefaults(&db);
    if (!layer.isNull()) reference->setLayer(layer);
    reference->setDefinitionId(definitionId);
    reference->setPosition(at.position);
    reference->setScaleFactors(at.scale);
    reference->setRotation(at.rotation);
    KoDbObjectPointer<KoDbBlockTableRecord> block(blockId, KoDb::kForWrite);
    KoDbObjectId id;
    EXPECT_EQ(block->appendKoDbEntity(id, reference), Kora::eOk);
    reference->close();
    return id;
}

KoDbObjectId addLayer(KoDbDatabase& db, const wchar_t* name, bool locked = false, int colour = 7)
{
    const KoDbObjectId id = addRecord<KoDbLayerTable, KoDbLayerTableRecord>(db.layerTableId(), name);
    KoDbObjectPointer<KoDbLayerTableRecord> layer(id, KoDb::kForWrite);
    layer->setIsLocked(locked);
    layer->setColor(KoCmColor::fromIndex(colour));
    return id;
}

// A drawing with mixed-elements attached three times: twice in model space
// (once moved, scaled and turned, on a layer of its own) and once in a
// block.
struct Attached {
    KoDbDatabase db;
    KoDbObjectId definition, frame, layer;
    std::vector<Placed> placements = {{{0, 0, 0}, {1, 1, 1}, 0.0}, {{100, 50, 0}, {2, 2, 2}, 0.5}, {{-5, 5, 0}, {1, 1, 1}, 0.0}};

    explicit Attached(bool lockTheLayer = false, const std::filesystem::path& file = sample("mixed-elements.dgn"))
    {
        layer = addLayer(db, L"Underlays", lockTheLayer);
        frame = addRecord<KoDbBlockTable, KoDbBlockTableRecord>(db.blockTableId(), L"FRAME");
        definition = attach(db, L"site", file);
        place(db, db.modelSpaceId(), definition, placements[0]);
        place(db, db.modelSpaceId(), definition, placements[1], layer);
        place(db, frame, definition, placements[2]);
    }
};

std::vector<KoDbObjectId> ofClass(KoDbObjectId blockId, const KoRxClass* cls)
{
    std::vector<KoDbObjectId> ids;
    for (const KoDbObjectId id : entitiesOf(blockId))
        if (id.objectClass() == cls) ids.push_back(id);
    return ids;
}

std::string describe(const KoDbDatabase& db)
{
    std::string out;
    for (const auto& n : recordNames(db.layerTableId())) out += "layer " + n + "\n";
    for (const auto& n : recordNames(db.blockTableId())) out += "block " + n + "\n";
    for (const auto& n : recordNames(db.linetypeTableId())) out += "linetype " + n + "\n";
    for (const KoDbObjectId id : entitiesOf(db.modelSpaceId())) out += dxfNameOf(id) + "\n";
    out += "dictionary " + std::to_string(!KoDbUnderlayService::underlayDictionary(&db, KoDbDgnDefinition::desc()).isNull());
    return out;
}

} // namespace

TEST(DgnBind, BindReplacesEveryReferenceAndKeepsTheNamesApart)
{
    Attached drawing;
    KoDbDatabase& db = drawing.db;
    addLayer(db, L"15", false, 1); // a layer the design's level 15 would merge with
    bool locked = true;
    DgnTranslationReport report;
    ASSERT_TRUE(doDgnBind(drawing.definition, L"site", locked, false, &report));
    EXPECT_FALSE(locked);
    EXPECT_EQ(db.openObjectCount(), 0);

    // The design is one block; its layers carry the block's name.
    KoDbObjectPointer<KoDbBlockTable> blocks(db.blockTableId());
    KoDbObjectId site;
    ASSERT_EQ(blocks->getAt(L"site", site), Kora::eOk);
    // The design's cell is a block of its own, placed inside.
    KoDbObjectId cell;
    ASSERT_EQ(blocks->getAt(L"site$0$BE70", cell), Kora::eOk);
    blocks.close();
    EXPECT_EQ(entitiesOf(site).size() + entitiesOf(cell).size(), report.itemsWritten);
    const auto layers = recordNames(db.layerTableId());
    EXPECT_TRUE(hasName(layers, "site$0$15"));
    EXPECT_TRUE(hasName(layers, "site$0$9"));

    // Each reference became a block reference where it stood.
    std::vector<KoDbObjectId> inserts = ofClass(db.modelSpaceId(), KoDbBlockReference::desc());
    const auto inFrame = ofClass(drawing.frame, KoDbBlockReference::desc());
    inserts.insert(inserts.end(), inFrame.begin(), inFrame.end());
    ASSERT_EQ(inserts.size(), 3u);
    for (std::size_t i = 0; i < inserts.size(); ++i) {
        KoDbObjectPointer<KoDbBlockReference> insert(inserts[i]);
        EXPECT_EQ(insert->blockTableRecord(), site);
        EXPECT_EQ(insert->position(), drawing.placements[i].position);
        EXPECT_EQ(insert->scaleFactors(), drawing.placements[i].scale);
        EXPECT_EQ(insert->rotation(), drawing.placements[i].rotation);
    }
    KoDbObjectPointer<KoDbBlockReference> second(inserts[1]);
    EXPECT_EQ(second->layerId(), drawing.layer);
    second.close();
    EXPECT_TRUE(ofClass(db.modelSpaceId(), KoDbDgnReference::desc()).empty());
    EXPECT_TRUE(ofClass(drawing.frame, KoDbDgnReference::desc()).empty());
    EXPECT_TRUE(KoDbUnderlayService::underlayDictionary(&db, KoDbDgnDefinition::desc()).isNull());
    EXPECT_TRUE(drawing.definition.isErased());
    expectAuditClean(db, scratch("bind") / "bound.dxf");
}

TEST(DgnBind, InsertMergesNamesWithTheDrawings)
{
    Attached drawing;
    KoDbDatabase& db = drawing.db;
    const KoDbObjectId existing = addLayer(db, L"15", false, 1);
    // A second underlay keeps the dictionary alive.
    const KoDbObjectId other = attach(db, L"other", sample("smalltest.dgn"));
    bool locked = false;
    DgnTranslationReport report;
    ASSERT_TRUE(doDgnBind(drawing.definition, L"site", locked, true, &report));
    const auto layers = recordNames(db.layerTableId());
    EXPECT_TRUE(hasName(layers, "9"));
    EXPECT_FALSE(hasName(layers, "site$0$15"));
    EXPECT_EQ(std::count(layers.begin(), layers.end(), "15"), 1);
    KoDbObjectPointer<KoDbLayerTableRecord> reused(existing);
    EXPECT_EQ(reused->color().colorIndex(), 1);
    reused.close();
    EXPECT_TRUE(hasName(recordNames(db.blockTableId()), "BE70"));
    const KoDbObjectId dictionaryId = KoDbUnderlayService::underlayDictionary(&db, KoDbDgnDefinition::desc());
    ASSERT_FALSE(dictionaryId.isNull());
    KoDbObjectPointer<KoDbDictionary> dictionary(dictionaryId);
    KoDbObjectId left;
    EXPECT_EQ(dictionary->getAt(L"other", left), Kora::eOk);
    EXPECT_EQ(left, other);
    EXPECT_NE(dictionary->getAt(L"site", left), Kora::eOk);
    dictionary.close();
    expectAuditClean(db, scratch("bind-insert") / "inserted.dxf");
}

TEST(DgnBind, LockedLayerOrMissingFileChangesNothing)
{
    {
        Attached drawing(true);
        const std::string before = describe(drawing.db);
        bool locked = false;
        EXPECT_FALSE(doDgnBind(drawing.definition, L"site", locked, false));
        EXPECT_TRUE(locked);
        EXPECT_EQ(describe(drawing.db), before);
        EXPECT_EQ(ofClass(drawing.db.modelSpaceId(), KoDbDgnReference::desc()).size(), 2u);
    }
    const std::filesystem::path folder = scratch("bind-missing");
    std::filesystem::copy_file(sample("smalltest.dgn"), folder / "gone.dgn");
    Attached drawing(false, folder / "gone.dgn");
    std::filesystem::remove(folder / "gone.dgn");
    const std::string before = describe(drawing.db);
    bool locked = true;
    DgnTranslationReport report;
    EXPECT_FALSE(doDgnBind(drawing.definition, L"site", locked, false, &report));
    EXPECT_FALSE(locked);
    EXPECT_EQ(report.referencesNotFound.size(), 1u);
    EXPECT_EQ(describe(drawing.db), before);
}

TEST(DgnBind, AV8UnderlayBindsItsModelWithTheNamesApart)
{
    Attached drawing(false, sample("v8/test_dgnv8.dgn"));
    KoDbDatabase& db = drawing.db;
    bool locked = true;
    DgnTranslationReport report;
    ASSERT_TRUE(doDgnBind(drawing.definition, L"site", locked, false, &report));
    const auto blocks = recordNames(db.blockTableId());
    for (const char* name : {"site", "site$0$CELL", "site$0$CELL_2", "site$0$Named definition"})
        EXPECT_TRUE(hasName(blocks, name)) << name;
    const auto layers = recordNames(db.layerTableId());
    EXPECT_TRUE(hasName(layers, "site$0$Default"));
    EXPECT_TRUE(hasName(layers, "site$0$1"));
    EXPECT_FALSE(hasName(layers, "site$0$0")); // the cells' level 0 is layer 0
    EXPECT_EQ(ofClass(db.modelSpaceId(), KoDbBlockReference::desc()).size(), 2u);
    expectAuditClean(db, scratch("bind-v8") / "bound.dxf");
}
