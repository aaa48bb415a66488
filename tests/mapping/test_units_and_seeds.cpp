#include <gtest/gtest.h>

#include <filesystem>
#include <fstream>

#include "export/DgnSeedCatalogue.h"
#include "kora/dxf/dxf.h"
#include "kora/config.h"
#include "kora/userpaths.h"
#include "kora/db/database.h"
#include "mapping/DgnUnits.h"
#include "module.h"
#include "testeditor.h"

namespace fs = std::filesystem;

namespace {

KoString templateFolder()
{
    wchar_t folder[1024] = {};
    GetUserLocalApplicationDataTemplatePath(folder, 1024);
    return folder;
}

fs::path touch(const fs::path& path)
{
    fs::create_directories(path.parent_path());
    std::ofstream(path) << "x";
    return path;
}

KoString wide(const fs::path& path) { return KoString::fromUtf8(path.string()); }

TEST(UnitsVocabulary, AbbreviationsAreExactAndMilesAndMilsShareOneString)
{
    EXPECT_EQ(Kora::DgnCommands::dgnUnitFullName(L"Mm"), L"Megameters");
    EXPECT_EQ(Kora::DgnCommands::dgnUnitFullName(L"mm"), L"Millimeters");
    EXPECT_EQ(Kora::DgnCommands::dgnUnitFullName(L"MM"), L"custom");
    EXPECT_EQ(Kora::DgnCommands::dgnUnitFullName(L"ui"), L"Microinches");
    EXPECT_EQ(Kora::DgnCommands::dgnUnitFullName(L""), L"custom");
    EXPECT_EQ(Kora::DgnCommands::dgnUnitFullName(L"mi"), L"Miles");
    EXPECT_EQ(Kora::DgnCommands::dgnUnitFullName(L"mil"), L"Mils");

    // With the resource library, both read string 703; an unknown unit
    // reads string 700.
    const KoInstanceHandle resources = LoadResourceDll(KoString::fromUtf8(KORA_BIN_DIR "/DgnCommandsRes.so"));
    ASSERT_NE(resources, nullptr);
    Kora::DgnCommands::moduleState().resourceInstance = resources;
    EXPECT_EQ(Kora::DgnCommands::dgnUnitFullName(L"mil"), L"Miles");
    EXPECT_EQ(Kora::DgnCommands::dgnUnitFullName(L"mi"), L"Miles");
    EXPECT_EQ(Kora::DgnCommands::dgnUnitFullName(L"MM"), L"Custom");
    Kora::DgnCommands::moduleState().resourceInstance = nullptr;
}

TEST(UnitsVocabulary, DgnFileUnitsComeFromTheFileHeader)
{
    const fs::path samples = KORA_TEST_DATA_DIR "/dgn";
    KoString master, sub;
    bool is3d = false;
    ASSERT_TRUE(Kora::DgnCommands::dgnFileUnits(wide(samples / "seed3d-metric.dgn"), master, sub, is3d));
    EXPECT_EQ(master, L"Meters");
    EXPECT_EQ(sub, L"Millimeters");
    EXPECT_TRUE(is3d);
    // The built civil seed's sub unit (tenths of a foot) has no name of its
    // own, whatever its file name says.
    ASSERT_TRUE(Kora::DgnCommands::dgnFileUnits(KoString::fromUtf8(KORA_SEED_DIR "/V7-Imperial-Civil-01-Seed2D.dgn"), master, sub, is3d));
    EXPECT_EQ(master, L"Feet");
    EXPECT_EQ(sub, L"custom");
    EXPECT_FALSE(is3d);

    // A V8 file: the units of its model "my_model", metres and millimetres.
    ASSERT_TRUE(Kora::DgnCommands::dgnFileUnits(wide(samples / "v8" / "test_dgnv8.dgn"), master, sub, is3d));
    EXPECT_EQ(master, L"Meters");
    EXPECT_EQ(sub, L"Millimeters");
    EXPECT_TRUE(is3d);
    int version = 5;
    ASSERT_TRUE(Kora::DgnCommands::seedVersion(wide(samples / "v8" / "test_dgnv8.dgn"), version));
    EXPECT_EQ(version, kDgnVersionV8);
    // What is no DGN file is not read: nothing is changed.
    master = L"unchanged";
    version = 5;
    EXPECT_FALSE(Kora::DgnCommands::dgnFileUnits(wide(samples / "v8" / "test_dgnv8_ref.csv"), master, sub, is3d));
    EXPECT_EQ(master, L"unchanged");
    EXPECT_FALSE(Kora::DgnCommands::seedVersion(wide(samples / "v8" / "test_dgnv8_ref.csv"), version));
    EXPECT_EQ(version, 5);
    ASSERT_TRUE(Kora::DgnCommands::seedVersion(wide(samples / "smalltest.dgn"), version));
    EXPECT_EQ(version, kDgnVersionV7);

    // The names by file name stand in only for a header without models.
    Kora::DgnCommands::seedUnitNamesByFileName(L"/seeds/V8-Metric-Seed3D.dgn", master, sub);
    EXPECT_EQ(master, L"Feet");
    EXPECT_EQ(sub, L"Inches");
    Kora::DgnCommands::seedUnitNamesByFileName(L"/seeds/v7-metric-seed2d.DGN", master, sub);
    EXPECT_EQ(master, L"Meters");
    EXPECT_EQ(sub, L"Millimeters");
}

TEST(UnitsVocabulary, DrawingNamesComeFromDxfFilesOnly)
{
    const fs::path folder = fs::path(std::getenv("KORA_USER_ROOT")) / "drawing-names";
    fs::create_directories(folder);
    KoDbDatabase drawing;
    KoDbLayerTable* layers = nullptr;
    ASSERT_EQ(drawing.getLayerTable(layers, KoDb::kForWrite), Kora::eOk);
    for (const wchar_t* name : {L"Walls", L"Doors"}) {
        auto* layer = new KoDbLayerTableRecord;
        layer->setName(name);
        ASSERT_EQ(layers->add(layer), Kora::eOk);
        layer->close();
    }
    layers->close();
    const KoString dxf = wide(folder / "plan.DXF");
    ASSERT_EQ(kodbWriteDxfFile(drawing, dxf), Kora::eOk);

    DgnMappingSetup record;
    record.layerMap = {{L"Kept", L"Kept"}};
    Kora::DgnCommands::readDrawingNames(dxf, record);
    EXPECT_EQ(record.layerMap, (DgnMappingTable{{L"0", L"0"}, {L"Doors", L"Doors"}, {L"Kept", L"Kept"}, {L"Walls", L"Walls"}}));
    EXPECT_EQ(record.layerCount, 3);
    EXPECT_EQ(record.lineTypeCount, 3);
    EXPECT_EQ(record.lineTypeMap.at(L"Continuous"), L"Continuous");

    // Other kinds of file, and drawings that cannot be read, change nothing.
    fs::copy_file(folder / "plan.DXF", folder / "plan.dwg", fs::copy_options::overwrite_existing);
    std::ofstream(folder / "broken.dxf") << "0\nSECTION\n2\nENTITIES\n0\nLINE\n10\nx\n";
    DgnMappingSetup untouched;
    for (const char* name : {"plan.dwg", "broken.dxf", "missing.dxf", "plan"})
        Kora::DgnCommands::readDrawingNames(wide(folder / name), untouched);
    EXPECT_EQ(untouched, DgnMappingSetup());
}

class SeedCatalogueTest : public ::testing::Test {
protected:
    void SetUp() override
    {
        koraConfig()->removeItem(4, L"UserInterfaceSettings\\DgnExportDialog\\");
        fs::remove_all(templateFolder().toUtf8());
    }

    static KoString setting(const wchar_t* version, const wchar_t* name)
    {
        KoraVariant value;
        const KoString path = KoString(L"UserInterfaceSettings\\DgnExportDialog\\") + version + L"\\" + name;
        if (koraConfig()->getValue(4, path, value) != Kora::eOk) return L"<missing>";
        return value.type() == KoraVariant::kInteger ? KoString::format(L"%d", value.intValue()) : value.stringValue();
    }
};

TEST_F(SeedCatalogueTest, BuiltInSeedsAndTheDefaultSeed)
{
    DgnSeedCatalogue v7, v8, none;
    Kora::DgnCommands::buildSeedCatalogue(kDgnVersionV7, v7);
    Kora::DgnCommands::buildSeedCatalogue(kDgnVersionV8, v8);
    Kora::DgnCommands::buildSeedCatalogue(2, none);
    ASSERT_EQ(v7.size(), 10u);
    ASSERT_EQ(v8.size(), 4u);
    EXPECT_TRUE(none.empty());
    const KoString folder = templateFolder() + L"/";
    EXPECT_EQ(*v7.begin(), folder + L"V7-Imperial-Arch-01-Seed2D.dgn");
    EXPECT_EQ(*v7.rbegin(), folder + L"V7-Metric-Seed3D.dgn");
    EXPECT_EQ(*v8.begin(), folder + L"V8-Imperial-Seed2D.dgn");

    const KoString civil = folder + L"V7-Imperial-Civil-02-Seed3D.dgn";
    EXPECT_EQ(Kora::DgnCommands::defaultSeedFile(kDgnVersionV7, civil), civil);
    EXPECT_EQ(Kora::DgnCommands::defaultSeedFile(kDgnVersionV7, folder + L"v7-imperial-civil-02-seed3d.dgn"), *v7.begin());
    EXPECT_EQ(Kora::DgnCommands::defaultSeedFile(kDgnVersionV8, civil), *v8.begin());
    EXPECT_TRUE(Kora::DgnCommands::defaultSeedFile(-1, civil).isEmpty());

    TestEditor editor;
    Kora::DgnCommands::listSeedCatalogue(v8);
    KoString listed;
    for (const KoString& path : v8) listed += path;
    EXPECT_EQ(editor.transcript(), listed);
}

TEST_F(SeedCatalogueTest, ValidityAndUnitNamesByFileName)
{
    const fs::path dir = fs::path(templateFolder().toUtf8()) / "seeds.d";
    EXPECT_TRUE(Kora::DgnCommands::isValidSeedFile(wide(touch(dir / "my.DGN"))));
    EXPECT_FALSE(Kora::DgnCommands::isValidSeedFile(wide(touch(dir / "my"))));
    EXPECT_FALSE(Kora::DgnCommands::isValidSeedFile(wide(dir / "missing.dgn")));
    EXPECT_FALSE(Kora::DgnCommands::isValidSeedFile(L""));
    EXPECT_FALSE(Kora::DgnCommands::isValidSeedFile(wide(touch(dir / "plan.dgn.bak"))));

    KoString master, sub;
    Kora::DgnCommands::seedUnitNamesByFileName(L"/t/v7-imperial-civil-01-seed2d.dgn", master, sub);
    EXPECT_EQ(master, L"Feet");
    EXPECT_EQ(sub, L"Custom");
    Kora::DgnCommands::seedUnitNamesByFileName(L"V7-Metric-Seed3D.dgn", master, sub);
    EXPECT_EQ(master, L"Meters");
    EXPECT_EQ(sub, L"Millimeters");
    Kora::DgnCommands::seedUnitNamesByFileName(L"/t/V8-Metric-Seed3D.dgn", master, sub);
    EXPECT_EQ(master, L"Feet");
    EXPECT_EQ(sub, L"Inches");
    Kora::DgnCommands::seedUnitNamesByFileName(L"/V7-Metric-Seed3D.dgn/other.dgn", master, sub);
    EXPECT_EQ(master, L"Feet");
}

TEST_F(SeedCatalogueTest, PersistedListsKeepOnlyUsableSeedsPerVersion)
{
    const fs::path dir(templateFolder().toUtf8());
    const KoString a = wide(touch(dir / "a.dgn")), b = wide(dir / "b.dgn"), c = wide(touch(dir / "c.dgn"));

    // An older, longer list is replaced whole.
    for (int i = 0; i < 5; ++i)
        koraConfig()->setValue(4, KoString::format(L"UserInterfaceSettings\\DgnExportDialog\\V7\\SeedFile%d", i),
                               KoraVariant(KoString(L"/old.dgn")));
    koraConfig()->setValue(4, L"UserInterfaceSettings\\DgnExportDialog\\V7\\SeedFileCount", KoraVariant(5));
    Kora::DgnCommands::savePersistedSeeds(kDgnVersionV7, {a, b, c});
    EXPECT_EQ(setting(L"V7", L"SeedFileCount"), L"2");
    EXPECT_EQ(setting(L"V7", L"SeedFile0"), a);
    EXPECT_EQ(setting(L"V7", L"SeedFile1"), c);
    EXPECT_EQ(setting(L"V7", L"SeedFile2"), L"<missing>");
    EXPECT_EQ(setting(L"V7", L"SeedFile4"), L"<missing>");

    Kora::DgnCommands::savePersistedSeeds(kDgnVersionV7, {});
    EXPECT_EQ(setting(L"V7", L"SeedFileCount"), L"2");

    DgnSeedCatalogue v7, v8;
    Kora::DgnCommands::loadPersistedSeeds(kDgnVersionV7, v7);
    EXPECT_EQ(v7, (DgnSeedCatalogue{a, c}));
    Kora::DgnCommands::loadSeedList(kDgnVersionV8, v8);
    DgnSeedCatalogue builtInV8;
    Kora::DgnCommands::buildSeedCatalogue(kDgnVersionV8, builtInV8);
    EXPECT_EQ(v8, builtInV8);
    DgnSeedCatalogue unset;
    Kora::DgnCommands::loadPersistedSeeds(2, unset);
    EXPECT_TRUE(unset.empty());

    // Deleted seed files make the list load empty, so the dialog falls
    // back to the built-in catalogue.
    fs::remove(a.toUtf8());
    fs::remove(c.toUtf8());
    DgnSeedCatalogue refilled;
    Kora::DgnCommands::loadSeedList(kDgnVersionV7, refilled);
    DgnSeedCatalogue builtInV7;
    Kora::DgnCommands::buildSeedCatalogue(kDgnVersionV7, builtInV7);
    EXPECT_EQ(refilled, builtInV7);

    // A count that is not an integer reads as no list; an entry that is
    // not a text is skipped.
    touch(a.toUtf8());
    koraConfig()->setValue(4, L"UserInterfaceSettings\\DgnExportDialog\\V8\\SeedFileCount", KoraVariant(KoString(L"2")));
    koraConfig()->setValue(4, L"UserInterfaceSettings\\DgnExportDialog\\V8\\SeedFile0", KoraVariant(a));
    DgnSeedCatalogue none;
    Kora::DgnCommands::loadPersistedSeeds(kDgnVersionV8, none);
    EXPECT_TRUE(none.empty());
    koraConfig()->setValue(4, L"UserInterfaceSettings\\DgnExportDialog\\V8\\SeedFileCount", KoraVariant(2));
    koraConfig()->setValue(4, L"UserInterfaceSettings\\DgnExportDialog\\V8\\SeedFile0", KoraVariant(7));
    koraConfig()->setValue(4, L"UserInterfaceSettings\\DgnExportDialog\\V8\\SeedFile1", KoraVariant(a));
    Kora::DgnCommands::loadPersistedSeeds(kDgnVersionV8, none);
    EXPECT_EQ(none, DgnSeedCatalogue{a});
}

}  // namespace
