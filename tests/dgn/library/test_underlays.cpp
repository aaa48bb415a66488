// DGN underlays against real files and real drawings: loading files to
// attach, the items of a drawing read from a DXF file that ezdxf wrote,
// definition names, the underlay dictionary, and definitions that load
// their model through the library.
#include <gtest/gtest.h>

#include <filesystem>
#include <vector>

#include "dgn_library_test_support.h"
#include "kora/dxf/dxf.h"
#include "kora/db/database.h"
#include "kora/db/underlay.h"
#include "kora/dgn/underlayservice.h"

namespace fs = std::filesystem;
using namespace Kora::Test;

namespace {

// Stores a new DGN definition under `key`, creating the dictionary when the
// drawing has none; the definition loads its model as its names are set.
KoDbObjectId addDefinition(KoDbDatabase& db, const KoString& key, const KoString& path, const KoString& model,
                           bool useMasterUnits = true)
{
    KoDbObjectId dictionaryId, id;
    EXPECT_EQ(KoDbUnderlayService::createUnderlayDictionary(&db, KoDbDgnDefinition::desc(), dictionaryId), Kora::eOk);
    KoDbObjectPointer<KoDbDictionary> dictionary(dictionaryId, KoDb::kForWrite);
    auto* definition = new KoDbDgnDefinition;
    definition->setItemName(model);
    definition->setUseMasterUnits(useMasterUnits);
    EXPECT_EQ(dictionary->setAt(key, definition, id), Kora::eOk);
    EXPECT_EQ(definition->setUnderlayItem(path, path), Kora::eOk);
    definition->close();
    return id;
}

std::vector<KxUnderlayItemInfo> itemsOf(const KoDbDatabase& db)
{
    std::vector<KxUnderlayItemInfo> items;
    EXPECT_EQ(KoDbDgnUnderlayService::collectUnderlayItems(&db, items), Kora::eOk);
    return items;
}

}  // namespace

TEST(DgnUnderlayFiles, LoadsV7AndV8FilesAndRefusesTheRest)
{
    const fs::path folder = scratch("load");
    std::vector<char> cellLibrary(2048, '\0');
    cellLibrary[0] = 0x08, cellLibrary[1] = 0x05, cellLibrary[2] = 0x17;
    writeFile(folder / "library.cel", cellLibrary);
    std::vector<char> truncated = fileBytes(sample("mixed-elements.dgn"));
    truncated.resize(2200);
    writeFile(folder / "truncated.dgn", truncated);

    KoDbUnderlayFile file;
    for (const char* name : {"smalltest.dgn", "mixed-elements.dgn", "seed3d-metric.dgn", "seed_2d.dgn", "seed_3d.dgn"}) {
        SCOPED_TRACE(name);
        ASSERT_EQ(KoDbDgnUnderlayService::LoadDgnUnderlayFile(wide(sample(name)), file), Kora::eOk);
        EXPECT_EQ(file.fileName(), wide(sample(name)));
        ASSERT_EQ(file.modelCount(), 1);
    }
    const DgnModelProp* model = nullptr;
    ASSERT_EQ(file.getModel(0, model), Kora::eOk);
    EXPECT_EQ(model->name, KoString(L"Default"));
    EXPECT_EQ(model->masterUnits, KoDb::kUnitsMeters);
    const DgnModelProp* byName = nullptr;
    EXPECT_EQ(file.getModel(KoString(L"Default"), byName), Kora::eOk);
    EXPECT_EQ(byName, model);
    EXPECT_EQ(file.getModel(KoString(L"default"), byName), Kora::eKeyNotFound) << "model names keep their case";
    EXPECT_EQ(byName, nullptr);
    EXPECT_EQ(file.getModel(1, model), Kora::eInvalidIndex);
    EXPECT_EQ(file.getModel(-1, model), Kora::eInvalidIndex);

    // Every refusal is non-zero and leaves the loaded file as it was.
    const KoString loaded = file.fileName();
    const struct {
        fs::path path;
        Kora::ErrorStatus status;
    } refused[] = {
        {folder / "library.cel", Kora::eUnsupportedFileFormat},
        {sample("v8/test_dgnv8_ref.csv"), Kora::eUnsupportedFileFormat},
        {folder / "truncated.dgn", Kora::eBadDgnFile},
        {folder / "missing.dgn", Kora::eFileNotFound},
        {folder, Kora::eFileAccessErr},
    };
    for (const auto& r : refused) {
        SCOPED_TRACE(r.path.string());
        EXPECT_EQ(KoDbDgnUnderlayService::LoadDgnUnderlayFile(wide(r.path), file), r.status);
        EXPECT_EQ(file.fileName(), loaded);
        EXPECT_EQ(file.modelCount(), 1);
    }

    // The item record of a file about to be attached.
    KxUnderlayItemInfo item;
    const fs::path roundabout = fs::path(KORA_TEST_DATA_DIR) / "dgn" / "v8" / ".." / "smalltest.dgn";
    ASSERT_EQ(KoDbDgnUnderlayService::dgnItemFromPath(wide(roundabout), item), Kora::eOk);
    EXPECT_EQ(item.sourceFileName, wide(roundabout));
    EXPECT_EQ(item.activeFileName, wide(fs::canonical(sample("smalltest.dgn"))));
    EXPECT_EQ(item.itemName, KoString(L"Default"));
    EXPECT_TRUE(item.definitionName.isEmpty());
    EXPECT_TRUE(item.definitionId.isNull());

    // A V8 file offers its models by name.
    KoDbUnderlayFile v8;
    ASSERT_EQ(KoDbDgnUnderlayService::LoadDgnUnderlayFile(wide(sample("v8/test_dgnv8.dgn")), v8), Kora::eOk);
    ASSERT_EQ(v8.modelCount(), 1);
    EXPECT_EQ(v8.getModel(KoString(L"my_model"), byName), Kora::eOk);
    EXPECT_EQ(byName->masterUnits, KoDb::kUnitsMeters);
    ASSERT_EQ(KoDbDgnUnderlayService::dgnItemFromPath(wide(sample("v8/test_dgnv8.dgn")), item), Kora::eOk);
    EXPECT_EQ(item.itemName, KoString(L"my_model"));
}

TEST(DgnUnderlayNames, UniqueInTheDrawingAndReusedForTheSameFileAndModel)
{
    KoDbDatabase db(false);
    KoString message;
    ASSERT_EQ(kodbReadDxfFile(db, wide(drawing("dgn-underlays.dxf")), &message), Kora::eOk) << message.toUtf8();
    const fs::path small = sample("smalltest.dgn"), mixed = sample("mixed-elements.dgn");

    // The items of the drawing, in key order, with ezdxf's keys.
    std::vector<KxUnderlayItemInfo> items = itemsOf(db);
    ASSERT_EQ(items.size(), 2u);
    EXPECT_EQ(items[0].definitionName, KoString(L"Underlay00001"));
    EXPECT_EQ(items[0].sourceFileName, wide(small));
    EXPECT_EQ(items[0].itemName, KoString(L"Default"));
    EXPECT_FALSE(items[0].definitionId.isNull());
    EXPECT_EQ(items[1].definitionName, KoString(L"Underlay00002"));
    EXPECT_EQ(items[1].sourceFileName, wide(mixed));

    EXPECT_EQ(KoDbUnderlayService::defaultDictName(wide(small), L"Default"), KoString(L"smalltest-Default"));
    EXPECT_EQ(KoDbUnderlayService::defaultDictName(L"/a/b/site.plan.dgn", L""), KoString(L"site.plan"));
    const auto name = [&](const fs::path& path, const KoString& model) {
        return KoDbUnderlayService::getDictName(wide(path), model,
                                                KoDbUnderlayService::defaultDictName(wide(path), model), items);
    };

    // The same file and model, however the path is spelt, reuses the
    // definition the drawing has.
    const fs::path folder = scratch("names");
    fs::create_symlink(small, folder / "link.dgn");
    EXPECT_EQ(name(small, L"Default"), KoString(L"Underlay00001"));
    EXPECT_EQ(name(small.parent_path() / "." / "smalltest.dgn", L"Default"), KoString(L"Underlay00001"));
    EXPECT_EQ(name(folder / "link.dgn", L"Default"), KoString(L"Underlay00001"));
    EXPECT_EQ(name(mixed, L"Default"), KoString(L"Underlay00002"));
    // Another model of the file is another definition.
    EXPECT_EQ(name(small, L"default"), KoString(L"smalltest-default"));

    // A definition of the default name for another file, and one of the
    // next name in other letters, push a new name further.
    fs::create_directories(folder / "a");
    fs::create_directories(folder / "b");
    fs::copy_file(small, folder / "a" / "smalltest.dgn");
    fs::copy_file(small, folder / "b" / "smalltest.dgn");
    addDefinition(db, L"smalltest-Default", wide(folder / "a" / "smalltest.dgn"), L"Default");
    addDefinition(db, L"SMALLTEST-DEFAULT (2)", wide(folder / "b" / "smalltest.dgn"), L"Default");
    items = itemsOf(db);
    ASSERT_EQ(items.size(), 4u);
    EXPECT_EQ(name(small, L"Default"), KoString(L"Underlay00001"));
    EXPECT_EQ(name(folder / "a" / "smalltest.dgn", L"Default"), KoString(L"smalltest-Default"));
    EXPECT_EQ(name(folder / "b" / "smalltest.dgn", L"Default"), KoString(L"SMALLTEST-DEFAULT (2)"));
    fs::copy_file(small, folder / "smalltest.dgn");
    EXPECT_EQ(name(folder / "smalltest.dgn", L"Default"), KoString(L"smalltest-Default (3)"));

    // Names survive the drawing's round trip through DXF.
    const fs::path out = folder / "written.dxf";
    ASSERT_EQ(kodbWriteDxfFile(db, wide(out), &message), Kora::eOk) << message.toUtf8();
    KoDbDatabase back(false);
    ASSERT_EQ(kodbReadDxfFile(back, wide(out), &message), Kora::eOk) << message.toUtf8();
    const std::vector<KxUnderlayItemInfo> reread = itemsOf(back);
    ASSERT_EQ(reread.size(), 4u);
    for (size_t i = 0; i < items.size(); ++i) {
        EXPECT_EQ(reread[i].definitionName, items[i].definitionName);
        EXPECT_EQ(reread[i].activeFileName, items[i].activeFileName);
    }
    EXPECT_EQ(KoDbUnderlayService::getDictName(wide(folder / "b" / "smalltest.dgn"), L"Default", L"smalltest-Default",
                                               reread),
              KoString(L"SMALLTEST-DEFAULT (2)"));
    EXPECT_EQ(kodbOpenObjectCount(), 0);
}

TEST(DgnUnderlayDefinitions, LoadTheirModelWithLevelsAndExtents)
{
    KoDbDatabase db(false);
    KoString message;
    ASSERT_EQ(kodbReadDxfFile(db, wide(drawing("dgn-underlays.dxf")), &message), Kora::eOk) << message.toUtf8();
    const std::vector<KxUnderlayItemInfo> items = itemsOf(db);
    ASSERT_EQ(items.size(), 2u);

    // A definition read from a file loads on request.
    {
        KoDbObjectPointer<KoDbDgnDefinition> definition(items[1].definitionId, KoDb::kForWrite);
        ASSERT_TRUE(definition);
        EXPECT_FALSE(definition->isLoaded());
        ASSERT_EQ(definition->load(), Kora::eOk);
        const KoDbUnderlayItem* item = definition->getUnderlayItem();
        EXPECT_EQ(item->getName(), KoString(L"Default"));
        ASSERT_EQ(item->underlayLayerCount(), 3);
        KoDbUnderlayLayer layer;
        EXPECT_EQ(item->getUnderlayLayer(2, layer), Kora::eOk);
        EXPECT_EQ(layer, (KoDbUnderlayLayer{L"15", KoDbUnderlayLayer::kOn}));
        EXPECT_EQ(item->getUnderlayLayer(3, layer), Kora::eInvalidIndex);
    }

    // The extents cover the elements, in master or in sub units.
    const KoString small = wide(sample("smalltest.dgn"));
    const KoDbObjectId inMaster = addDefinition(db, L"master", small, L"Default");
    const KoDbObjectId inSub = addDefinition(db, L"sub", small, L"Default", false);
    KoDbExtents master, sub;
    {
        KoDbObjectPointer<KoDbDgnDefinition> a(inMaster), b(inSub);
        ASSERT_TRUE(a->isLoaded());
        ASSERT_TRUE(b->isLoaded());
        ASSERT_EQ(a->getUnderlayItem()->getExtents(master), Kora::eOk);
        ASSERT_EQ(b->getUnderlayItem()->getExtents(sub), Kora::eOk);
    }
    // The text's origin and the line's end point, in master units.
    for (const KoGePoint3d& p : {KoGePoint3d(0.7365, 4.2198, 0), KoGePoint3d(2.5242, 6.0709, 0)}) {
        EXPECT_LE(master.minPoint().x, p.x);
        EXPECT_LE(master.minPoint().y, p.y);
        EXPECT_GE(master.maxPoint().x, p.x);
        EXPECT_GE(master.maxPoint().y, p.y);
    }
    EXPECT_LT(master.maxPoint().x, 11.0);
    EXPECT_EQ(master.minPoint().z, 0.0);
    EXPECT_NEAR(sub.minPoint().x, master.minPoint().x * 10, 1e-9);
    EXPECT_NEAR(sub.maxPoint().y, master.maxPoint().y * 10, 1e-9);

    // A reference to a loaded definition shows its levels as layers and is
    // placed by its extents.
    auto* reference = new KoDbDgnReference;
    reference->setDatabaseDefaults(&db);
    ASSERT_EQ(reference->setDefinitionId(inMaster), Kora::eOk);
    reference->setPosition({100, 0, 0});
    EXPECT_EQ(reference->underlayLayerCount(), 2);
    KoDbUnderlayLayer layer;
    EXPECT_EQ(reference->getUnderlayLayer(0, layer), Kora::eOk);
    EXPECT_EQ(layer.name, KoString(L"1"));
    KoDbExtents placed;
    ASSERT_EQ(reference->getGeomExtents(placed), Kora::eOk);
    EXPECT_NEAR(placed.minPoint().x, master.minPoint().x + 100, 1e-9);
    delete reference;

    // A V8 model: its levels by name, its extents those of its elements.
    KoDbDgnDefinition v8;
    v8.setItemName(L"my_model");
    const KoString v8File = wide(sample("v8/test_dgnv8.dgn"));
    ASSERT_EQ(v8.setUnderlayItem(v8File, v8File), Kora::eOk);
    ASSERT_TRUE(v8.isLoaded());
    EXPECT_EQ(v8.getUnderlayItem()->underlayLayerCount(), 2);
    EXPECT_EQ(v8.getUnderlayItem()->getUnderlayLayer(1, layer), Kora::eOk);
    EXPECT_EQ(layer, (KoDbUnderlayLayer{L"Default", KoDbUnderlayLayer::kOn}));
    KoDbExtents v8Extents;
    ASSERT_EQ(v8.getUnderlayItem()->getExtents(v8Extents), Kora::eOk);
    EXPECT_NEAR(v8Extents.minPoint().x, -1.958, 1e-3); // the B-spline curve reaches x = -1.958
    EXPECT_NEAR(v8Extents.maxPoint().z, 8, 1e-9);  // the 3D line string reaches z = 8

    // Definitions that cannot load say why.
    KoDbDgnDefinition wrongModel;
    wrongModel.setItemName(L"Level 2");
    EXPECT_EQ(wrongModel.setUnderlayItem(small, small), Kora::eKeyNotFound);
    EXPECT_EQ(kodbOpenObjectCount(), 0);
}

TEST(DgnUnderlayDictionary, CreatedOnceAndRemovedOnlyWhenEmpty)
{
    KoDbDatabase db;
    const KoRxClass* dgn = KoDbDgnDefinition::desc();
    EXPECT_TRUE(KoDbUnderlayService::underlayDictionary(&db, dgn).isNull());
    EXPECT_EQ(KoDbUnderlayService::removeUnderlayDictionary(&db, dgn), Kora::eKeyNotFound);
    std::vector<KxUnderlayItemInfo> items(1);
    EXPECT_EQ(KoDbDgnUnderlayService::collectUnderlayItems(&db, items), Kora::eOk);
    EXPECT_TRUE(items.empty());

    KoDbObjectId first, second;
    ASSERT_EQ(KoDbUnderlayService::createUnderlayDictionary(&db, dgn, first), Kora::eOk);
    ASSERT_EQ(KoDbUnderlayService::createUnderlayDictionary(&db, dgn, second), Kora::eOk);
    EXPECT_EQ(first, second);
    EXPECT_EQ(KoDbUnderlayService::underlayDictionary(&db, dgn), first);
    {
        KoDbObjectPointer<KoDbDictionary> root(db.namedObjectsDictionaryId());
        KoDbObjectId id;
        ASSERT_EQ(root->getAt(L"ACAD_DGNDEFINITIONS", id), Kora::eOk);
        EXPECT_EQ(id, first);
    }

    const KoDbObjectId definition = addDefinition(db, L"smalltest-Default", wide(sample("smalltest.dgn")), L"Default");
    EXPECT_EQ(KoDbUnderlayService::removeUnderlayDictionary(&db, dgn), Kora::eNotApplicable);
    EXPECT_EQ(KoDbUnderlayService::underlayDictionary(&db, dgn), first);
    {
        KoDbObjectPointer<KoDbDgnDefinition> open(definition, KoDb::kForWrite);
        ASSERT_EQ(open->erase(), Kora::eOk);
    }
    EXPECT_EQ(KoDbUnderlayService::removeUnderlayDictionary(&db, dgn), Kora::eOk);
    EXPECT_TRUE(KoDbUnderlayService::underlayDictionary(&db, dgn).isNull());
    EXPECT_TRUE(itemsOf(db).empty());
    // Only DGN definitions have a dictionary here.
    KoDbObjectId none;
    EXPECT_EQ(KoDbUnderlayService::createUnderlayDictionary(&db, KoDbDictionary::desc(), none), Kora::eInvalidInput);
    EXPECT_EQ(KoDbDgnUnderlayService::collectUnderlayItems(nullptr, items), Kora::eNullPtr);
    EXPECT_EQ(kodbOpenObjectCount(), 0);
}
