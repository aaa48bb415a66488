// The database's own rules: open modes, erase, iterators, containers,
// class descriptors, extents, units, layouts and underlays.
#include <gtest/gtest.h>

#include <cmath>
#include <memory>
#include <numbers>
#include <utility>
#include <vector>

#include "dbtest.h"
#include "kora/db/database.h"
#include "kora/db/underlay.h"
#include "kora/db/units.h"

using namespace Kora::Test;

namespace {

constexpr double kPi = std::numbers::pi;

std::vector<KoDbObjectId> modelEntities(KoDbDatabase& db, bool skipErased = true)
{
    std::vector<KoDbObjectId> ids;
    KoDbObjectPointer<KoDbBlockTableRecord> model(db.modelSpaceId());
    for (auto it = model->newIterator(skipErased); !it->done(); it->step(true, skipErased)) {
        KoDbObjectId id;
        it->getEntityId(id);
        ids.push_back(id);
    }
    return ids;
}

}  // namespace

TEST(KoDbDatabase, NewDrawingHoldsTheDefaults)
{
    KoDbDatabase db;
    KoDbObjectPointer<KoDbLayerTable> layers(db.layerTableId());
    ASSERT_TRUE(layers);
    EXPECT_TRUE(layers->has(L"0"));
    KoDbObjectPointer<KoDbLinetypeTable> linetypes(db.linetypeTableId());
    for (const wchar_t* name : {L"ByLayer", L"BYBLOCK", L"continuous"}) EXPECT_TRUE(linetypes->has(name)) << name;
    EXPECT_FALSE(db.modelSpaceId().isNull());
    EXPECT_FALSE(db.paperSpaceId().isNull());

    KoDbObjectPointer<KoDbDictionary> nod(db.namedObjectsDictionaryId());
    EXPECT_TRUE(nod->has(L"ACAD_LAYOUT"));
    EXPECT_TRUE(nod->has(L"ACAD_GROUP"));
    KoDbObjectPointer<KoDbDictionary> layouts(db.layoutDictionaryId());
    EXPECT_EQ(layouts->numEntries(), 2);
    KoDbObjectPointer<KoDbLayout> sheet;
    KoDbLayout* raw = nullptr;
    ASSERT_EQ(layouts->getAt(L"Layout1", raw, KoDb::kForRead), Kora::eOk);
    EXPECT_EQ(raw->getBlockTableRecordId(), db.paperSpaceId());
    EXPECT_TRUE(raw->getViewportArray().empty());
    raw->close();
    EXPECT_EQ(db.clayer(), db.layerZero());

    // An empty database is ready to be read into and has nothing.
    KoDbDatabase empty(false);
    EXPECT_TRUE(empty.blockTableId().isNull());
    EXPECT_TRUE(empty.modelSpaceId().isNull());
}

TEST(KoDbDatabase, OpenModesFollowTheHostRules)
{
    KoDbDatabase db;
    const KoDbObjectId id = appendToModel(db, new KoDbLine({0, 0, 0}, {1, 1, 0}));
    const int before = kodbOpenObjectCount();
    EXPECT_EQ(db.openObjectCount(), 0);

    KoDbLine *r1 = nullptr, *r2 = nullptr, *w = nullptr;
    ASSERT_EQ(kodbOpenObject(r1, id, KoDb::kForRead), Kora::eOk);
    ASSERT_EQ(kodbOpenObject(r2, id, KoDb::kForRead), Kora::eOk);
    EXPECT_EQ(db.openObjectCount(), 2);
    EXPECT_EQ(kodbOpenObjectCount(), before + 2);
    EXPECT_EQ(kodbOpenObject(w, id, KoDb::kForWrite), Kora::eWasOpenForRead);
    EXPECT_EQ(w, nullptr);
    EXPECT_EQ(r1->setStartPoint({5, 5, 5}), Kora::eNotOpenForWrite);
    EXPECT_EQ(r1->upgradeOpen(), Kora::eWasOpenForRead);  // another reader holds it
    EXPECT_EQ(r2->close(), Kora::eOk);
    EXPECT_EQ(r1->upgradeOpen(), Kora::eOk);
    EXPECT_EQ(r1->setStartPoint({5, 5, 5}), Kora::eOk);
    EXPECT_EQ(kodbOpenObject(w, id, KoDb::kForWrite), Kora::eWasOpenForWrite);
    EXPECT_EQ(kodbOpenObject(r2, id, KoDb::kForRead), Kora::eWasOpenForWrite);
    EXPECT_EQ(r1->close(), Kora::eOk);
    EXPECT_EQ(r1->close(), Kora::eNotOpenForRead);
    EXPECT_EQ(db.openObjectCount(), 0);
    EXPECT_EQ(kodbOpenObjectCount(), before);

    // The wrong class is refused and left closed.
    KoDbCircle* circle = nullptr;
    EXPECT_EQ(kodbOpenObject(circle, id, KoDb::kForWrite), Kora::eNotThatKindOfClass);
    EXPECT_EQ(db.openObjectCount(), 0);
    EXPECT_EQ(kodbOpenObject(circle, KoDbObjectId(), KoDb::kForRead), Kora::eNullObjectId);

    // Ids and handles.
    KoDbObjectId same;
    ASSERT_EQ(db.getKoDbObjectId(same, false, id.handle()), Kora::eOk);
    EXPECT_EQ(same, id);
    EXPECT_EQ(KoDbHandle::fromText(id.handle().ascii().c_str()), id.handle());
    EXPECT_EQ(std::hash<KoDbObjectId>{}(same), std::hash<KoDbObjectId>{}(id));
    EXPECT_EQ(db.getKoDbObjectId(same, false, KoDbHandle(0xFFFFFF)), Kora::eKeyNotFound);
    EXPECT_EQ(id.objectClass(), KoDbLine::desc());
}

TEST(KoDbDatabase, HandlesKeepTheirIdsWhileTheTableGrows)
{
    // Handles of files come in runs, with gaps and with strides that share
    // their low bits; each must keep naming the id made for it.
    KoDbDatabase db;
    std::vector<std::pair<KoDbHandle, KoDbObjectId>> made;
    for (uint64_t k = 1; k <= 3000; ++k)
        for (const uint64_t h : {0x10000 + k, k << 20, (k << 40) | 7}) {
            KoDbObjectId id;
            ASSERT_EQ(db.getKoDbObjectId(id, true, KoDbHandle(h)), Kora::eOk);
            made.emplace_back(KoDbHandle(h), id);
        }
    for (const auto& [handle, id] : made) {
        KoDbObjectId found;
        ASSERT_EQ(db.getKoDbObjectId(found, true, handle), Kora::eOk);
        EXPECT_EQ(found, id);
        EXPECT_EQ(found.handle(), handle);
    }
    KoDbObjectId none;
    EXPECT_EQ(db.getKoDbObjectId(none, false, KoDbHandle(0x10000 + 3001)), Kora::eKeyNotFound);
    EXPECT_EQ(db.getKoDbObjectId(none, false, KoDbHandle(3001ull << 20)), Kora::eKeyNotFound);
    // New objects are numbered above every handle given.
    EXPECT_EQ(db.handseed().value(), (3000ull << 40 | 7) + 1);
    const KoDbObjectId line = appendToModel(db, new KoDbLine({0, 0, 0}, {1, 0, 0}));
    EXPECT_EQ(line.handle().value(), (3000ull << 40 | 7) + 1);
}

TEST(KoDbDatabase, ErasedObjectsAreSkippedButKept)
{
    KoDbDatabase db;
    const KoDbObjectId a = appendToModel(db, new KoDbLine({0, 0, 0}, {1, 0, 0}));
    const KoDbObjectId b = appendToModel(db, new KoDbCircle({0, 0, 0}, {0, 0, 1}, 2));
    const KoDbObjectId c = appendToModel(db, new KoDbPoint({3, 3, 0}));
    {
        KoDbObjectPointer<KoDbEntity> e(b, KoDb::kForRead);
        EXPECT_EQ(e->erase(), Kora::eNotOpenForWrite);
        ASSERT_EQ(e.open(b, KoDb::kForWrite), Kora::eOk);
        EXPECT_EQ(e->erase(), Kora::eOk);
        EXPECT_EQ(e->erase(), Kora::eWasErased);
    }
    EXPECT_EQ(modelEntities(db), (std::vector<KoDbObjectId> {a, c}));
    EXPECT_EQ(modelEntities(db, false), (std::vector<KoDbObjectId> {a, b, c}));
    EXPECT_TRUE(b.isErased());
    EXPECT_FALSE(b.isValid());
    KoDbEntity* e = nullptr;
    EXPECT_EQ(kodbOpenObject(e, b, KoDb::kForRead), Kora::eWasErased);
    ASSERT_EQ(kodbOpenObject(e, b, KoDb::kForWrite, true), Kora::eOk);
    EXPECT_EQ(e->erase(false), Kora::eOk);
    e->close();
    EXPECT_EQ(modelEntities(db).size(), 3u);

    // Symbol tables: an erased record is not found, and its name is free again.
    KoDbObjectId walls;
    {
        KoDbObjectPointer<KoDbLayerTable> layers(db.layerTableId(), KoDb::kForWrite);
        auto* layer = new KoDbLayerTableRecord;
        layer->setName(L"Walls");
        ASSERT_EQ(layers->add(walls, layer), Kora::eOk);
        layer->erase();
        layer->close();
        EXPECT_FALSE(layers->has(L"walls"));
        KoDbObjectId found;
        EXPECT_EQ(layers->getAt(L"Walls", found), Kora::eKeyNotFound);
        EXPECT_EQ(layers->getAt(L"Walls", found, true), Kora::eOk);
        int live = 0;
        for (auto it = layers->newIterator(); !it->done(); it->step()) ++live;
        EXPECT_EQ(live, 1);
        auto* again = new KoDbLayerTableRecord;
        again->setName(L"WALLS");
        EXPECT_EQ(layers->add(again), Kora::eOk);
        again->close();
        auto* twice = new KoDbLayerTableRecord;
        twice->setName(L"walls");
        EXPECT_EQ(layers->add(twice), Kora::eDuplicateKey);
        delete twice;
        const auto linetype = std::make_unique<KoDbLinetypeTableRecord>();  // refused, so still ours
        EXPECT_EQ(layers->add(linetype.get()), Kora::eNotThatKindOfClass);
    }
    EXPECT_EQ(db.openObjectCount(), 0) << "a failed add must not leave anything open";

    // Dictionaries skip erased entries.
    KoDbObjectPointer<KoDbDictionary> nod(db.namedObjectsDictionaryId(), KoDb::kForWrite);
    KoDbObjectId x1, x2;
    auto* d1 = new KoDbDictionary;
    auto* d2 = new KoDbDictionary;
    ASSERT_EQ(nod->setAt(L"ZZ_ONE", d1, x1), Kora::eOk);
    ASSERT_EQ(nod->setAt(L"ZZ_TWO", d2, x2), Kora::eOk);
    d1->erase();
    d1->close();
    d2->close();
    EXPECT_FALSE(nod->has(L"zz_one"));
    EXPECT_TRUE(nod->has(L"zz_two"));
    std::vector<KoString> keys;
    for (auto it = nod->newIterator(); !it->done(); it->next()) keys.push_back(it->name());
    EXPECT_EQ(std::count(keys.begin(), keys.end(), KoString(L"ZZ_ONE")), 0);
    EXPECT_EQ(std::count(keys.begin(), keys.end(), KoString(L"ZZ_TWO")), 1);
}

TEST(KoDbDatabase, ObjectPointerClosesAndOwnsNewObjects)
{
    KoDbDatabase db;
    KoDbObjectId id;
    {
        KoDbObjectPointer<KoDbLine> line;
        line.create();
        line->setEndPoint({2, 0, 0});
        KoDbObjectPointer<KoDbBlockTableRecord> model(db.modelSpaceId(), KoDb::kForWrite);
        ASSERT_EQ(model->appendKoDbEntity(id, line.object()), Kora::eOk);
        EXPECT_EQ(db.openObjectCount(), 2);
    }
    EXPECT_EQ(db.openObjectCount(), 0);
    {
        KoDbObjectPointer<KoDbLine> line(id);
        ASSERT_TRUE(line);
        EXPECT_EQ(line->endPoint(), KoGePoint3d(2, 0, 0));
        EXPECT_EQ(line->layerId(), db.layerZero()) << "appending gives the drawing's current properties";
        KoDbObjectPointer<KoDbCircle> wrong(id);
        EXPECT_EQ(wrong.openStatus(), Kora::eNotThatKindOfClass);
        KoDbObjectPointer<KoDbLine> unused;
        unused.create();  // never appended: deleted at the end of the scope
    }
    EXPECT_EQ(db.openObjectCount(), 0);
}

TEST(KoDbDatabase, ClassDescriptorsAnswerDerivation)
{
    KoDb3dSolid solid;
    KoDbOle2Frame ole;
    KoDbDgnReference dgn;
    EXPECT_TRUE(solid.isA()->isDerivedFrom(KoDbEntity::desc()));
    EXPECT_TRUE(KoDb3dSolid::desc()->isDerivedFrom(KoRxObject::desc()));
    EXPECT_TRUE(ole.isKindOf(KoDbOleFrame::desc()));
    EXPECT_FALSE(KoDbOleFrame::desc()->isDerivedFrom(KoDbOle2Frame::desc()));
    EXPECT_EQ(KoDbUnderlayReference::cast(&dgn), &dgn);
    EXPECT_EQ(KoDbLine::cast(&dgn), nullptr);
    EXPECT_EQ(KoDbBody::cast(&solid), nullptr);
    EXPECT_STREQ(KoDbDgnDefinition::desc()->name(), L"KoDbDgnDefinition");
    EXPECT_EQ(KoDbUnderlayDefinition::dictionaryKey(KoDbDgnDefinition::desc()), KoString(L"ACAD_DGNDEFINITIONS"));
}

TEST(KoDbDatabase, GeometricExtents)
{
    KoDbExtents e;
    KoDbLine line({1, 2, 3}, {-1, 5, 0});
    ASSERT_EQ(line.getGeomExtents(e), Kora::eOk);
    EXPECT_EQ(e.minPoint(), KoGePoint3d(-1, 2, 0));
    EXPECT_EQ(e.maxPoint(), KoGePoint3d(1, 5, 3));

    // A circle standing in the XZ plane has no depth along Y.
    KoDbCircle circle({0, 0, 0}, {0, 1, 0}, 2);
    ASSERT_EQ(circle.getGeomExtents(e), Kora::eOk);
    EXPECT_NEAR(e.maxPoint().x, 2, 1e-12);
    EXPECT_NEAR(e.maxPoint().y, 0, 1e-12);
    EXPECT_NEAR(e.minPoint().z, -2, 1e-12);

    // A quarter arc from 0 to 90 degrees stays in the first quadrant.
    KoDbArc arc({0, 0, 0}, 1, 0, kPi / 2);
    ASSERT_EQ(arc.getGeomExtents(e), Kora::eOk);
    EXPECT_NEAR(e.minPoint().x, 0, 1e-12);
    EXPECT_NEAR(e.minPoint().y, 0, 1e-12);
    EXPECT_NEAR(e.maxPoint().x, 1, 1e-12);
    // The arc from 90 to 0 degrees (counter-clockwise) passes the other three quadrants.
    KoDbArc big({0, 0, 0}, 1, kPi / 2, 0);
    ASSERT_EQ(big.getGeomExtents(e), Kora::eOk);
    EXPECT_NEAR(e.minPoint().x, -1, 1e-12);
    EXPECT_NEAR(e.minPoint().y, -1, 1e-12);

    // A half-circle bulge from (0,0) to (2,0) bulges below the chord (bulge 1, clockwise seen... left of travel).
    KoDbPolyline pl;
    pl.addVertexAt(0, {0, 0}, 1.0);
    pl.addVertexAt(1, {2, 0});
    ASSERT_EQ(pl.getGeomExtents(e), Kora::eOk);
    EXPECT_NEAR(e.minPoint().y, -1, 1e-12);
    EXPECT_NEAR(e.maxPoint().y, 0, 1e-12);

    KoDb3dSolid solid;
    EXPECT_EQ(solid.getGeomExtents(e), Kora::eNotApplicable);

    // A block reference places its block's extents.
    KoDbDatabase db;
    KoDbObjectId blockId;
    {
        KoDbObjectPointer<KoDbBlockTable> blocks(db.blockTableId(), KoDb::kForWrite);
        auto* block = new KoDbBlockTableRecord;
        block->setName(L"Unit");
        ASSERT_EQ(blocks->add(blockId, block), Kora::eOk);
        auto* l = new KoDbLine({0, 0, 0}, {1, 0, 0});
        l->setDatabaseDefaults(&db);
        block->appendKoDbEntity(l);
        l->close();
        block->close();
    }
    KoDbBlockReference ref({10, 10, 0}, blockId);
    ref.setScaleFactors({2, 2, 2});
    ref.setRotation(kPi / 2);
    ASSERT_EQ(ref.getGeomExtents(e), Kora::eOk);
    EXPECT_NEAR(e.minPoint().x, 10, 1e-9);
    EXPECT_NEAR(e.maxPoint().y, 12, 1e-9);

    // A block that holds a reference to itself adds nothing more.
    {
        KoDbObjectPointer<KoDbBlockTableRecord> block(blockId, KoDb::kForWrite);
        for (int i = 0; i < 3; ++i) {
            auto* self = new KoDbBlockReference({5, 0, 0}, blockId);
            block->appendKoDbEntity(self);
            self->close();
        }
    }
    ASSERT_EQ(ref.getGeomExtents(e), Kora::eOk);
    EXPECT_NEAR(e.maxPoint().y, 12, 1e-9);

    appendToModel(db, new KoDbLine({0, 0, -4}, {3, 3, 4}));
    appendToModel(db, new KoDb3dSolid);
    ASSERT_EQ(db.updateExt(), Kora::eOk);
    EXPECT_EQ(db.extmin(), KoGePoint3d(0, 0, -4));
    EXPECT_EQ(db.extmax(), KoGePoint3d(3, 3, 4));
}

TEST(KoDbDatabase, UnitConversion)
{
    double f = 0;
    ASSERT_EQ(koraGetUnitsConversion(KoDb::kUnitsInches, KoDb::kUnitsMillimeters, f), Kora::eOk);
    EXPECT_DOUBLE_EQ(f, 25.4);
    ASSERT_EQ(koraGetUnitsConversion(KoDb::kUnitsFeet, KoDb::kUnitsInches, f), Kora::eOk);
    EXPECT_DOUBLE_EQ(f, 12.0);
    ASSERT_EQ(koraGetUnitsConversion(KoDb::kUnitsMeters, KoDb::kUnitsMeters, f), Kora::eOk);
    EXPECT_EQ(f, 1.0);
    ASSERT_EQ(koraGetUnitsConversion(KoDb::kUnitsUSSurveyFeet, KoDb::kUnitsMeters, f), Kora::eOk);
    EXPECT_DOUBLE_EQ(f, 1200.0 / 3937.0);
    ASSERT_EQ(koraGetUnitsConversion(KoDb::kUnitsKilometers, KoDb::kUnitsMiles, f), Kora::eOk);
    EXPECT_NEAR(f, 0.621371192, 1e-9);
    f = 7;
    EXPECT_EQ(koraGetUnitsConversion(KoDb::kUnitsUndefined, KoDb::kUnitsMeters, f), Kora::eNotApplicable);
    EXPECT_EQ(koraGetUnitsConversion(25, KoDb::kUnitsMeters, f), Kora::eInvalidInput);
    EXPECT_EQ(f, 7) << "the factor is only written on success";
    EXPECT_STREQ(kodbUnitsName(4), L"Millimeters");
}

TEST(KoDbDatabase, LayoutsAndTheirViewports)
{
    KoDbDatabase db;
    KoDbObjectId layoutId, blockId, secondId, secondBlock;
    ASSERT_EQ(db.createLayout(L"Sheet A", layoutId, blockId), Kora::eOk);
    ASSERT_EQ(db.createLayout(L"Sheet B", secondId, secondBlock), Kora::eOk);
    EXPECT_EQ(db.createLayout(L"sheet a", secondId, secondBlock), Kora::eDuplicateKey);
    KoDbObjectPointer<KoDbBlockTableRecord> block(blockId, KoDb::kForWrite);
    EXPECT_EQ(block->getName(), KoString(L"*Paper_Space0"));
    EXPECT_EQ(block->getLayoutId(), layoutId);
    KoDbObjectPointer<KoDbLayout> layout(layoutId);
    EXPECT_EQ(layout->getTabOrder(), 2);
    EXPECT_FALSE(layout->modelType());
    EXPECT_TRUE(layout->getViewportArray().empty());
    auto* vp = new KoDbViewport;
    vp->setDatabaseDefaults(&db);
    vp->setCenterPoint({100, 100, 0});
    vp->setWidth(80);
    vp->setHeight(60);
    KoDbObjectId vpId;
    ASSERT_EQ(block->appendKoDbEntity(vpId, vp), Kora::eOk);
    vp->close();
    EXPECT_EQ(layout->getViewportArray(), KoDbObjectIdArray {vpId});
    KoDbObjectPointer<KoDbBlockTableRecord> second(secondBlock);
    EXPECT_EQ(second->getName(), KoString(L"*Paper_Space1"));
}

namespace {

// Stands for the DGN library: a loaded model with two levels.
class TwoLevelItem : public KoDbUnderlayItem {
public:
    KoString getName() const override { return L"Default"; }
    int underlayLayerCount() const override { return 2; }
    Kora::ErrorStatus getUnderlayLayer(int index, KoDbUnderlayLayer& layer) const override
    {
        if (index < 0 || index > 1) return Kora::eInvalidIndex;
        layer = {index == 0 ? L"Level 1" : L"Level 2", index == 0 ? KoDbUnderlayLayer::kOn : KoDbUnderlayLayer::kOff};
        return Kora::eOk;
    }
    Kora::ErrorStatus getExtents(KoDbExtents& extents) const override
    {
        return extents.set({0, 0, 0}, {10, 5, 0});
    }
};

Kora::ErrorStatus loadTwoLevels(const KoDbUnderlayDefinition& definition, const KoString&,
                                std::unique_ptr<KoDbUnderlayItem>& item)
{
    if (definition.getActiveFileName().isEmpty()) return Kora::eFileNotFound;
    item = std::make_unique<TwoLevelItem>();
    return Kora::eOk;
}

}  // namespace

TEST(KoDbDatabase, DgnUnderlayDefinitionAndReference)
{
    KoDbDatabase db;
    const KoString key = KoDbUnderlayDefinition::dictionaryKey(KoDbDgnDefinition::desc());
    KoDbObjectId dictId, defId, refId;
    {
        KoDbObjectPointer<KoDbDictionary> nod(db.namedObjectsDictionaryId(), KoDb::kForWrite);
        auto* dict = new KoDbDictionary;
        ASSERT_EQ(nod->setAt(key, dict, dictId), Kora::eOk);
        kodbSetUnderlayLoader(KoDbDgnDefinition::desc(), loadTwoLevels);
        auto* def = new KoDbDgnDefinition;
        def->setItemName(L"Default");
        def->setUseMasterUnits(false);
        ASSERT_EQ(def->setUnderlayItem(L"site.dgn", L"/data/site.dgn"), Kora::eOk);
        EXPECT_TRUE(def->isLoaded());
        ASSERT_EQ(dict->setAt(L"site-Default", def, defId), Kora::eOk);
        def->close();
        dict->close();
    }
    auto* ref = new KoDbDgnReference;
    ref->setDatabaseDefaults(&db);
    ASSERT_EQ(ref->setDefinitionId(defId), Kora::eOk);
    EXPECT_EQ(ref->contrast(), KoDbUnderlayReference::contrastDefault());
    EXPECT_EQ(ref->fade(), KoDbUnderlayReference::fadeDefault());
    ref->setScaleFactors({2, 2, 2});
    ref->setPosition({100, 0, 0});
    ASSERT_EQ(ref->underlayLayerCount(), 2);
    for (int i = 0; i < ref->underlayLayerCount(); ++i) {
        KoDbUnderlayLayer layer;
        ASSERT_EQ(ref->getUnderlayLayer(i, layer), Kora::eOk);
        ASSERT_EQ(ref->setUnderlayLayer(i, layer), Kora::eOk);
    }
    EXPECT_EQ(ref->underlayLayers()[1].state, KoDbUnderlayLayer::kOff);
    KoDbExtents e;
    ASSERT_EQ(ref->getGeomExtents(e), Kora::eOk);
    EXPECT_EQ(e.maxPoint(), KoGePoint3d(120, 10, 0));
    refId = appendToModel(db, ref);

    // The definition knows its reference through a persistent reactor.
    KoDbObjectPointer<KoDbDgnDefinition> def(defId, KoDb::kForWrite);
    ASSERT_TRUE(def);
    std::vector<KoDbObjectId> reactors;
    for (void* r : def->reactors())
        if (kodbIsPersistentReactor(r)) reactors.push_back(kodbPersistentReactorObjectId(r));
    EXPECT_EQ(reactors, std::vector<KoDbObjectId> {refId});
    EXPECT_FALSE(def->useMasterUnits());
    def->unload();
    EXPECT_FALSE(def->isLoaded());
    EXPECT_EQ(def->load(), Kora::eOk);
    kodbSetUnderlayLoader(KoDbDgnDefinition::desc(), nullptr);
    def->unload();
    EXPECT_EQ(def->load(), Kora::eNotImplementedYet);

    // Undoing an attachment: with the reference erased the definition goes,
    // then the emptied dictionary.
    {
        KoDbObjectPointer<KoDbEntity> r(refId, KoDb::kForWrite);
        r->erase();
    }
    EXPECT_TRUE(kodbPersistentReactorObjectId(def->reactors().front()).isErased());
    ASSERT_EQ(def->erase(), Kora::eOk);
    def.close();
    KoDbObjectPointer<KoDbDictionary> dict(dictId, KoDb::kForWrite);
    EXPECT_EQ(dict->numEntries(), 0);
    dict->erase();
    dict.close();
    KoDbObjectPointer<KoDbDictionary> nod(db.namedObjectsDictionaryId());
    EXPECT_FALSE(nod->has(key));
}

TEST(KoDbDatabase, DatabaseDefaultsFollowTheCurrentSettings)
{
    KoDbDatabase db;
    KoDbObjectId walls;
    {
        KoDbObjectPointer<KoDbLayerTable> layers(db.layerTableId(), KoDb::kForWrite);
        auto* layer = new KoDbLayerTableRecord;
        layer->setName(L"Walls");
        EXPECT_EQ(layer->setColor(KoCmColor::byLayer()), Kora::eInvalidInput);
        layer->setColor(KoCmColor::fromRGB(1, 2, 3));
        layers->add(walls, layer);
        layer->close();
    }
    ASSERT_EQ(db.setClayer(walls), Kora::eOk);
    db.setCecolor(KoCmColor::fromIndex(3));
    db.setCelweight(KoDb::kLnWt050);
    KoDbPoint p;
    ASSERT_EQ(p.setDatabaseDefaults(&db), Kora::eOk);
    EXPECT_EQ(p.layer(), KoString(L"Walls"));
    EXPECT_EQ(p.colorIndex(), 3);
    EXPECT_EQ(p.lineWeight(), KoDb::kLnWt050);
    EXPECT_EQ(p.linetype(), KoString(L"ByLayer"));
    EXPECT_EQ(p.setLayer(L"no such layer"), Kora::eKeyNotFound);
    EXPECT_EQ(p.setLayer(L"0"), Kora::eOk);
    EXPECT_EQ(KoCmColor::fromIndex(0).isByBlock(), true);
    EXPECT_EQ(KoCmColor::fromRGB(255, 128, 0).rgb(), 0xFF8000u);
}
