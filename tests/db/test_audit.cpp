// The audit of a drawing: each test breaks a database in one way and checks
// the code reported and the state left, and a second audit finds nothing;
// drawings written by another program open in recover mode with their
// repairs, save, and pass that program's own audit.
#include <gtest/gtest.h>

#include <cmath>
#include <limits>

#include "dbtest.h"
#include "kora/db/audit.h"
#include "kora/dxf/dxf.h"

using namespace Kora::Test;
using Kora::Db::AuditCode;
using Kora::Severity;

namespace {

// Audits `db`, expects exactly one problem, of `code`, and that a second
// audit finds the drawing sound.
void expectOne(KoDbDatabase& db, AuditCode code, Severity severity = Severity::kRepaired)
{
    const auto found = Kora::Db::audit(db);
    ASSERT_EQ(found.size(), 1u) << (found.empty() ? std::string() : found.front().message);
    EXPECT_EQ(found[0].code, code) << found[0].message;
    EXPECT_EQ(found[0].severity, severity) << found[0].message;
    EXPECT_FALSE(found[0].message.empty());
    EXPECT_EQ(db.openObjectCount(), 0);
    if (severity == Severity::kRepaired) {
        const auto again = Kora::Db::audit(db);
        EXPECT_TRUE(again.empty()) << again.front().message;
    }
}

bool has(const Kora::Diagnostics<AuditCode>& found, AuditCode code)
{
    for (const auto& d : found)
        if (d.code == code) return true;
    return false;
}

void eraseObject(KoDbObjectId id)
{
    KoDbObjectPointer<KoDbObject> object(id, KoDb::kForWrite);
    ASSERT_TRUE(object);
    ASSERT_EQ(object->erase(), Kora::eOk);
}

KoDbObjectId addLayer(KoDbDatabase& db, const wchar_t* name)
{
    return addRecord<KoDbLayerTable, KoDbLayerTableRecord>(db.layerTableId(), name);
}

}  // namespace

TEST(Audit, SoundDrawingsHaveNothingToReport)
{
    KoDbDatabase fresh;
    appendToModel(fresh, new KoDbLine({0, 0, 0}, {1, 1, 0}));
    EXPECT_TRUE(Kora::Db::audit(fresh).empty());
    // Nor do the drawings ezdxf wrote, read in strict mode.
    for (const char* name : {"entities.dxf", "layouts.dxf", "underlays.dxf", "opaque.dxf", "three_d.dxf", "release2000.dxf"}) {
        KoDbDatabase db(false);
        KoString message;
        KoDbDxfReadReport report;
        EXPECT_EQ(kodbReadDxfFile(db, wide(fixture(name)), &message, &report, KoDbDxfReadMode::kStrict), Kora::eOk)
            << name << ": " << message.toUtf8();
        EXPECT_TRUE(report.audit.empty()) << name;
    }
}

TEST(Audit, EntityOnALayerThatIsGoneMovesToLayerZero)
{
    KoDbDatabase db;
    const KoDbObjectId walls = addLayer(db, L"Walls");
    auto* line = new KoDbLine({0, 0, 0}, {1, 0, 0});
    line->setLayer(walls);
    const KoDbObjectId id = appendToModel(db, line);
    eraseObject(walls);
    expectOne(db, AuditCode::kUndefinedLayer);
    KoDbObjectPointer<KoDbEntity> entity(id);
    EXPECT_EQ(entity->layerId(), db.layerZero());
}

TEST(Audit, EntityWithALinetypeThatIsGoneBecomesByLayer)
{
    KoDbDatabase db;
    const KoDbObjectId dashed = addRecord<KoDbLinetypeTable, KoDbLinetypeTableRecord>(db.linetypeTableId(), L"Dashed");
    const KoDbObjectId id = appendToModel(db, new KoDbCircle({0, 0, 0}, KoGeVector3d::kZAxis(), 2.0));
    {
        KoDbObjectPointer<KoDbEntity> circle(id, KoDb::kForWrite);
        ASSERT_EQ(circle->setLinetype(dashed), Kora::eOk);
    }
    eraseObject(dashed);
    expectOne(db, AuditCode::kUndefinedLinetype);
    KoDbObjectPointer<KoDbEntity> entity(id);
    EXPECT_EQ(entity->linetypeId(), db.byLayerLinetype());
}

TEST(Audit, ReferenceToABlockThatIsGoneIsErased)
{
    KoDbDatabase db;
    const KoDbObjectId door = addRecord<KoDbBlockTable, KoDbBlockTableRecord>(db.blockTableId(), L"Door");
    const KoDbObjectId reference = appendToModel(db, new KoDbBlockReference({5, 5, 0}, door));
    const KoDbObjectId kept = appendToModel(db, new KoDbLine({0, 0, 0}, {1, 0, 0}));
    eraseObject(door);
    expectOne(db, AuditCode::kUndefinedBlock);
    EXPECT_TRUE(reference.isErased());
    EXPECT_FALSE(kept.isErased());
}

TEST(Audit, EntitiesWithCoordinatesThatAreNotNumbersAreErased)
{
    KoDbDatabase db;
    const double nan = std::numeric_limits<double>::quiet_NaN();
    const double inf = std::numeric_limits<double>::infinity();
    // A NaN hides from extents (every comparison with it is false), so the
    // second point of this line must not let it pass.
    const KoDbObjectId line = appendToModel(db, new KoDbLine({nan, 0, 0}, {1, 1, 0}));
    const KoDbObjectId circle = appendToModel(db, new KoDbCircle({0, inf, 0}, KoGeVector3d::kZAxis(), 1.0));
    auto* polyline = new KoDbPolyline;
    polyline->addVertexAt(0, {0, 0});
    polyline->addVertexAt(1, {inf, 0});
    const KoDbObjectId pline = appendToModel(db, polyline);
    const KoDbObjectId sound = appendToModel(db, new KoDbLine({0, 0, 0}, {1, 1, 0}));
    const auto found = Kora::Db::audit(db);
    ASSERT_EQ(found.size(), 3u);
    for (const auto& d : found) {
        EXPECT_EQ(d.code, AuditCode::kNonFiniteCoordinate);
        EXPECT_EQ(d.severity, Severity::kRepaired);
    }
    EXPECT_EQ(found[0].place.element, line.handle().value());
    EXPECT_TRUE(line.isErased() && circle.isErased() && pline.isErased());
    EXPECT_FALSE(sound.isErased());
}

TEST(Audit, OwnersAreSetToWhatHoldsTheObject)
{
    KoDbDatabase db;
    const KoDbObjectId line = appendToModel(db, new KoDbLine({0, 0, 0}, {1, 0, 0}));
    {
        KoDbObjectPointer<KoDbEntity> entity(line, KoDb::kForWrite);
        entity->setOwnerId(db.paperSpaceId());
    }
    expectOne(db, AuditCode::kWrongOwner);
    KoDbObjectPointer<KoDbEntity> entity(line);
    EXPECT_EQ(entity->ownerId(), db.modelSpaceId());
    entity.close();

    const KoDbObjectId walls = addLayer(db, L"Walls");
    {
        KoDbObjectPointer<KoDbObject> layer(walls, KoDb::kForWrite);
        layer->setOwnerId(db.linetypeTableId());
    }
    expectOne(db, AuditCode::kWrongOwner);
    KoDbObjectPointer<KoDbObject> layer(walls);
    EXPECT_EQ(layer->ownerId(), db.layerTableId());
}

TEST(Audit, RequiredLayerAndLinetypesAreAddedAgain)
{
    KoDbDatabase db;
    eraseObject(db.layerZero());
    expectOne(db, AuditCode::kMissingLayerZero);
    EXPECT_TRUE(db.layerZero().isValid());

    eraseObject(db.continuousLinetype());
    eraseObject(db.byBlockLinetype());
    const auto found = Kora::Db::audit(db);
    ASSERT_EQ(found.size(), 2u);
    EXPECT_EQ(found[0].code, AuditCode::kMissingLinetype);
    EXPECT_TRUE(db.continuousLinetype().isValid());
    EXPECT_TRUE(db.byBlockLinetype().isValid());
}

TEST(Audit, MissingModelSpaceIsAnError)
{
    KoDbDatabase db;
    eraseObject(db.modelSpaceId());
    expectOne(db, AuditCode::kMissingModelSpace, Severity::kError);
}

TEST(Audit, LostLayoutDictionaryIsRebuiltFromTheLayoutBlocks)
{
    KoDbDatabase db;
    {
        KoDbObjectPointer<KoDbDictionary> named(db.namedObjectsDictionaryId(), KoDb::kForWrite);
        ASSERT_EQ(named->remove(KODB_LAYOUT_DICTIONARY), Kora::eOk);
    }
    ASSERT_TRUE(db.layoutDictionaryId().isNull());
    expectOne(db, AuditCode::kMissingLayoutDictionary);
    KoDbObjectPointer<KoDbDictionary> layouts(db.layoutDictionaryId());
    ASSERT_TRUE(layouts);
    EXPECT_TRUE(layouts->has(L"Model"));
    EXPECT_TRUE(layouts->has(L"Layout1"));
    EXPECT_EQ(layouts->numEntries(), 2);
}

// Found by the fuzzer: the named-objects entry of the layouts names an
// object of another kind.
TEST(Audit, LayoutEntryOfAnotherKindIsReplacedByARebuiltDictionary)
{
    KoDbDatabase db;
    {
        KoDbObjectPointer<KoDbDictionary> named(db.namedObjectsDictionaryId(), KoDb::kForWrite);
        KoDbObjectPointer<KoDbUnknownObject> odd;
        odd.create();
        KoDbObjectId id;
        ASSERT_EQ(named->setAt(KODB_LAYOUT_DICTIONARY, odd.object(), id), Kora::eOk);
    }
    expectOne(db, AuditCode::kMissingLayoutDictionary);
    KoDbObjectPointer<KoDbDictionary> layouts(db.layoutDictionaryId());
    ASSERT_TRUE(layouts);
    EXPECT_TRUE(layouts->has(L"Layout1"));
}

TEST(Audit, LayoutWithoutItsBlockIsLinkedOrGivenOne)
{
    KoDbDatabase db;
    KoDbObjectId layoutId;
    {
        KoDbObjectPointer<KoDbDictionary> layouts(db.layoutDictionaryId());
        ASSERT_EQ(layouts->getAt(L"Layout1", layoutId), Kora::eOk);
    }
    const KoDbObjectId sheet = db.paperSpaceId();
    {
        KoDbObjectPointer<KoDbLayout> layout(layoutId, KoDb::kForWrite);
        layout->setBlockTableRecordId(KoDbObjectId::kNull);
    }
    // The block still names its layout: the link is made again.
    expectOne(db, AuditCode::kLayoutWithoutBlock);
    {
        KoDbObjectPointer<KoDbLayout> layout(layoutId);
        EXPECT_EQ(layout->getBlockTableRecordId(), sheet);
    }
    // With the block gone, the sheet gets an empty one.
    eraseObject(sheet);
    expectOne(db, AuditCode::kLayoutWithoutBlock);
    KoDbObjectPointer<KoDbLayout> layout(layoutId);
    EXPECT_TRUE(layout->getBlockTableRecordId().isValid());
    EXPECT_NE(layout->getBlockTableRecordId(), sheet);
    EXPECT_EQ(layout->getBlockTableRecordId(), db.paperSpaceId());
}

TEST(Audit, DrawingWithoutSheetsGetsOne)
{
    KoDbDatabase db;
    KoDbObjectId layoutId;
    {
        KoDbObjectPointer<KoDbDictionary> layouts(db.layoutDictionaryId());
        ASSERT_EQ(layouts->getAt(L"Layout1", layoutId), Kora::eOk);
    }
    eraseObject(db.paperSpaceId());
    eraseObject(layoutId);
    expectOne(db, AuditCode::kMissingPaperSpace);
    EXPECT_TRUE(db.paperSpaceId().isValid());
    KoDbObjectPointer<KoDbDictionary> layouts(db.layoutDictionaryId());
    EXPECT_TRUE(layouts->has(L"Layout1"));
}

// A drawing ezdxf wrote and a fixture script then broke: a line on layer
// "Ghost", which has no table entry, and a reference to a block that does
// not exist.
TEST(AuditDxf, StrictModeRefusesADrawingThatNeedsRepairs)
{
    KoDbDatabase db;
    const KoDbObjectId mine = appendToModel(db, new KoDbLine({0, 0, 0}, {1, 0, 0}));
    KoString message;
    KoDbDxfReadReport report;
    EXPECT_EQ(kodbReadDxfFile(db, wide(fixture("broken_references.dxf")), &message, &report, KoDbDxfReadMode::kStrict),
              Kora::eBadDxfFile);
    EXPECT_NE(message.toUtf8().find("broken_references.dxf"), std::string::npos) << message.toUtf8();
    EXPECT_NE(message.toUtf8().find("Ghost"), std::string::npos) << message.toUtf8();
    EXPECT_TRUE(has(report.audit, AuditCode::kUndefinedBlock));
    ASSERT_EQ(report.diagnostics.size(), 1u);
    EXPECT_EQ(report.diagnostics[0].code, Kora::Dxf::ReadCode::kUndefinedName);
    // Nothing was loaded: the database holds what it held.
    EXPECT_TRUE(mine.isValid());
    EXPECT_EQ(mine.database(), &db);
    EXPECT_TRUE(db.filename().isEmpty());
}

TEST(AuditDxf, RecoverModeRepairsSavesAndEzdxfAuditsTheResultClean)
{
    KoDbDatabase db(false);
    KoString message;
    KoDbDxfReadReport report;
    ASSERT_EQ(kodbReadDxfFile(db, wide(fixture("broken_references.dxf")), &message, &report), Kora::eOk)
        << message.toUtf8();
    ASSERT_EQ(report.audit.size(), 1u);
    EXPECT_EQ(report.audit[0].code, AuditCode::kUndefinedBlock);
    EXPECT_EQ(report.audit[0].severity, Severity::kRepaired);
    ASSERT_EQ(report.diagnostics.size(), 1u);
    EXPECT_EQ(report.diagnostics[0].code, Kora::Dxf::ReadCode::kUndefinedName);
    EXPECT_NE(report.diagnostics[0].message.find("Ghost"), std::string::npos) << report.diagnostics[0].message;

    int lines = 0, references = 0;
    KoDbObjectPointer<KoDbBlockTableRecord> model(db.modelSpaceId());
    for (auto it = model->newIterator(); !it->done(); it->step()) {
        KoDbEntity* e = nullptr;
        ASSERT_EQ(it->getEntity(e), Kora::eOk);
        lines += KoDbLine::cast(e) != nullptr;
        references += KoDbBlockReference::cast(e) != nullptr;
        e->close();
    }
    model.close();
    EXPECT_EQ(lines, 2);
    EXPECT_EQ(references, 0);

    const fs::path out = workDir("audit-recover") / "repaired.dxf";
    ASSERT_EQ(kodbWriteDxfFile(db, wide(out), &message), Kora::eOk) << message.toUtf8();
    expectAuditClean(out);
    // What was saved needs no more repairs.
    KoDbDatabase back(false);
    EXPECT_EQ(kodbReadDxfFile(back, wide(out), &message, nullptr, KoDbDxfReadMode::kStrict), Kora::eOk)
        << message.toUtf8();
}
