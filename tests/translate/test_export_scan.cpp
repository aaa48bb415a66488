#include <gtest/gtest.h>

#include <unistd.h>

#include <fstream>

#include "dbtest.h"
#include "export/DgnExportService.h"
#include "export/DrawingExportScan.h"
#include "kora/db/dictionary.h"
#include "kora/db/entities.h"
#include "kora/db/symboltables.h"
#include "kora/editor.h"
#include "kora/sysvars.h"

using namespace Kora::DgnCommands;
using Kora::Test::appendToModel;
using Kora::Test::wide;
namespace fs = std::filesystem;

namespace {

KoDbLine* flatLineAt(double z) { return new KoDbLine({0, 0, 0}, {10, 0, z}); }

// A paper-space layout; with viewports > 0 it gets that many viewports.
void addLayout(KoDbDatabase& db, const wchar_t* name, int viewports)
{
    KoDbObjectId layoutId, blockId;
    ASSERT_EQ(db.createLayout(name, layoutId, blockId), Kora::eOk);
    KoDbObjectPointer<KoDbBlockTableRecord> block(blockId, KoDb::kForWrite);
    for (int i = 0; i < viewports; ++i) {
        auto* viewport = new KoDbViewport;
        viewport->setDatabaseDefaults(&db);
        viewport->setWidth(80);
        viewport->setHeight(60);
        ASSERT_EQ(block->appendKoDbEntity(viewport), Kora::eOk);
        viewport->close();
    }
}

}  // namespace

TEST(DrawingExportScan, ThreeDimensionalMeansBeyondATenthOfAMillionth)
{
    EXPECT_FALSE(scanDrawingForExport(nullptr).has3dContent);
    KoDbDatabase flat;
    appendToModel(flat, flatLineAt(5e-8));
    appendToModel(flat, flatLineAt(-5e-8));
    EXPECT_FALSE(scanDrawingForExport(&flat).has3dContent);

    KoDbDatabase raised;
    appendToModel(raised, flatLineAt(2e-7));
    EXPECT_TRUE(scanDrawingForExport(&raised).has3dContent);
    KoDbDatabase lowered;
    appendToModel(lowered, flatLineAt(-2e-7));
    EXPECT_TRUE(scanDrawingForExport(&lowered).has3dContent);
    EXPECT_FALSE(scanDrawingForExport(&lowered).hasUnsupportedEntities);
}

TEST(DrawingExportScan, SolidsSurfacesBodiesAndOleFramesCannotBeWritten)
{
    for (KoDbEntity* entity : std::initializer_list<KoDbEntity*>{new KoDb3dSolid, new KoDbSurface, new KoDbBody,
                                                                  new KoDbOleFrame, new KoDbOle2Frame}) {
        KoDbDatabase db;
        const std::wstring kind = entity->isA()->name();
        appendToModel(db, entity);
        EXPECT_TRUE(scanDrawingForExport(&db).hasUnsupportedEntities) << KoString(kind).toUtf8();
    }
    KoDbDatabase regionOnly;
    appendToModel(regionOnly, new KoDbRegion);
    EXPECT_FALSE(scanDrawingForExport(&regionOnly).hasUnsupportedEntities);
}

TEST(DrawingExportScan, BlockDefinitionsCountAndExternalReferencesDoNot)
{
    KoDbDatabase db;
    const KoDbObjectId door = Kora::Test::addRecord<KoDbBlockTable, KoDbBlockTableRecord>(db.blockTableId(), L"Door");
    {
        KoDbObjectPointer<KoDbBlockTableRecord> block(door, KoDb::kForWrite);
        auto* solid = new KoDb3dSolid;
        ASSERT_EQ(block->appendKoDbEntity(solid), Kora::eOk);
        solid->close();
    }
    EXPECT_TRUE(scanDrawingForExport(&db).hasUnsupportedEntities);
    {
        KoDbObjectPointer<KoDbBlockTableRecord> block(door, KoDb::kForWrite);
        block->setFlags(block->flags() | 4);
        block->setPathName(L"other.dwg");
        auto* raised = flatLineAt(1);
        ASSERT_EQ(block->appendKoDbEntity(raised), Kora::eOk);
        raised->close();
    }
    const DrawingExportScan scan = scanDrawingForExport(&db);
    EXPECT_FALSE(scan.hasUnsupportedEntities);
    EXPECT_FALSE(scan.has3dContent);
}

TEST(LayoutFileList, OneFilePerLayoutThatHasViewports)
{
    KoDbDatabase db;
    EXPECT_TRUE(layoutFileList(&db, L"/out/plan.dgn").empty());  // the default sheet was never set up
    addLayout(db, L"Ground floor", 1);
    addLayout(db, L"Never set up", 0);
    addLayout(db, L"Roof", 2);
    EXPECT_EQ(layoutFileList(&db, L"/out/plan.v1.dgn"),
              (std::vector<KoString>{L"/out/plan.v1 - Ground floor.dgn", L"/out/plan.v1 - Roof.dgn"}));
    EXPECT_TRUE(layoutFileList(&db, L"").empty());
    EXPECT_TRUE(layoutFileList(nullptr, L"/out/plan.dgn").empty());
}

TEST(WriteProbe, CreatesOrEmptiesTheFileAndFailsWhereNothingCanBeWritten)
{
    const fs::path dir = Kora::Test::workDir("probe");
    const fs::path existing = dir / "old.dgn";
    std::ofstream(existing) << "old content";
    EXPECT_TRUE(probeWrite(wide(existing)));
    EXPECT_EQ(fs::file_size(existing), 0u);
    EXPECT_TRUE(probeWrite(wide(dir / "new.dgn")));
    EXPECT_TRUE(fs::exists(dir / "new.dgn"));

    // A "folder" that is a file, and one that even root cannot write into.
    EXPECT_FALSE(probeWrite(wide(existing / "inside.dgn")));
    EXPECT_FALSE(probeWrite(L"/proc/plan.dgn"));
    if (geteuid() != 0) {
        const fs::path locked = dir / "locked";
        fs::create_directory(locked);
        fs::permissions(locked, fs::perms::owner_read | fs::perms::owner_exec);
        EXPECT_FALSE(probeWrite(wide(locked / "plan.dgn")));
        fs::permissions(locked, fs::perms::owner_all);
        EXPECT_FALSE(fs::exists(locked / "plan.dgn"));
    }
}

TEST(ExportService, UcsIconBitZeroAndAClosedOverwritePrompt)
{
    koraResetSysVars();
    KxDgnExportInternalServiceImp service;
    for (const auto& [value, visible] : {std::pair{L"0", false}, {L"1", true}, {L"2", false}, {L"3", true}}) {
        ASSERT_EQ(koraSetSysVarText(L"UCSICON", value), KORTNORM);
        EXPECT_EQ(service.isUcsIconVisible(), visible) << "UCSICON " << KoString(value).toUtf8();
    }
    koraUnregisterSysVar(L"UCSICON");
    EXPECT_FALSE(service.isUcsIconVisible());
    koraRegisterSysVar({L"UCSICON", KORTSHORT, L"Display of the coordinate-system icon"}, L"3", 0, 3);
    EXPECT_EQ(service.promptFileOverwrite(L"/out/plan.dgn"), kDgnOverwriteCancel);
}
