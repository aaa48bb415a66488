#include <gtest/gtest.h>

#include <fstream>

#include "dbtest.h"
#include "export/DgnExportManager.h"
#include "import/DgnImportManager.h"
#include "kora/db/symboltables.h"
#include "kora/editor.h"
#include "kora/sysvars.h"
#include "storefile.h"

using namespace Kora::DgnCommands;
namespace fs = std::filesystem;

namespace {

const KoString kSmallTest = KoString::fromUtf8(KORA_TEST_DATA_DIR "/dgn/smalltest.dgn");

class ManagerTest : public ::testing::Test {
protected:
    void SetUp() override
    {
        removeStoreFile();
        koraResetSysVars();
    }
    void TearDown() override
    {
        removeStoreFile();
        koraResetSysVars();
    }
};

short importMode()
{
    koresbuf value;
    EXPECT_EQ(koedGetVar(L"DGNIMPORTMODE", &value), KORTNORM);
    return value.resval.rint;
}

}  // namespace

TEST_F(ManagerTest, ImportManagerLoadsTheFileAndTheStoredChoicesAndSavesThemBack)
{
    writeStoreFile("[IMPORTSECTION]\nIsMasterUnits=0\nTranslationOption=7\nMappingSetupName=Roads\n");
    ASSERT_EQ(koraSetSysVarText(L"DGNIMPORTMODE", L"2"), KORTNORM);
    CKoraDgnImportManger manager;
    manager.load(kSmallTest);
    ASSERT_EQ(manager.models().size(), 1u);
    EXPECT_EQ(manager.models().begin()->first, L"Default");
    EXPECT_EQ(manager.choices().units, 1);              // sub units
    EXPECT_EQ(manager.choices().translationOption, 2);  // 7 is out of range
    EXPECT_TRUE(manager.choices().importIntoCurrent);
    EXPECT_EQ(manager.choices().importAlternative, 0);
    EXPECT_EQ(manager.mappingSetupName(), L"Roads");

    manager.setMappingSetupName(L"Rivers");
    ASSERT_TRUE(manager.save());
    EXPECT_EQ(storedValue(L"IMPORTSECTION", L"IsMasterUnits"), L"0");
    EXPECT_EQ(storedValue(L"IMPORTSECTION", L"MappingSetupName"), L"Rivers");
    EXPECT_EQ(importMode(), 2);

    manager.load(KoString::fromUtf8(KORA_TEST_DATA_DIR "/dgn/LICENSE.GDAL.txt"));
    EXPECT_TRUE(manager.models().empty());  // the library cannot read it
}

TEST_F(ManagerTest, ASetupAppliesOnlyToTheNamesTheFileHolds)
{
    const DgnMappingTable setup{{L"1", L"Text"}, {L"2", L""}, {L"9", L"Absent"}};
    EXPECT_EQ(applySetupToNames({L"1", L"2", L"3"}, setup), (DgnNameMap{{L"1", L"Text"}, {L"2", L"2"}, {L"3", L"3"}}));
}

TEST_F(ManagerTest, ImportModesFollowTheOptionAndTheTarget)
{
    struct Case {
        int option;
        bool current;
        int alternative;
        int translationMode;
        int targetMode;
    };
    // Option 1 leaves the state's initial translation mode (seeded with 5).
    for (const Case c : {Case{0, true, 1, 0, 1}, {2, true, 1, 2, 1}, {2, true, 0, 2, 2}, {2, false, 1, 1, 0},
                         {1, true, 0, 5, 2}, {1, false, 0, 5, 0}}) {
        DgnImportChoices choices;
        choices.translationOption = c.option;
        choices.importIntoCurrent = c.current;
        choices.importAlternative = c.alternative;
        DgnImportState state;
        state.translationMode = 5;
        setImportModes(choices, state);
        EXPECT_EQ(state.translationMode, c.translationMode) << "option " << c.option << " current " << c.current;
        EXPECT_EQ(state.targetMode, c.targetMode) << "option " << c.option << " alternative " << c.alternative;
    }
}

TEST_F(ManagerTest, ImportStateCarriesTheChosenSetupAppliedToTheFile)
{
    writeStoreFile("[MappingSetup1]\nName=Levels\nisImport=1\nLayerCount=1\nDGNLevel0=1\nDWGLayer0=Texts\n");
    CKoraDgnImportManger manager;
    manager.load(kSmallTest);
    manager.setMappingSetupName(L"levels");
    manager.choices().units = 1;
    manager.choices().explodeTextNode = 1;
    manager.choices().existingXRefOperation = 0;

    DgnImportState state = manager.importState(L"Default");
    EXPECT_EQ(state.file, kSmallTest);
    EXPECT_EQ(state.model, L"Default");
    EXPECT_EQ(state.masterUnits, 0);
    EXPECT_EQ(state.explodeTextNodes, 1);
    EXPECT_EQ(state.existingXRefOperation, 0);
    EXPECT_EQ(state.tables.levels, (DgnNameMap{{L"1", L"Texts"}, {L"2", L"2"}}));
    // The dialogs give any setup without weights the default table; the
    // command line only the standard setup.
    ASSERT_FALSE(manager.fileProperties().weights.empty());
    const KoString weight = manager.fileProperties().weights.front();
    DgnMappingTable defaults;
    fillDefaultLineWeights(defaults, true);
    EXPECT_EQ(state.tables.weights.at(weight), defaults.at(weight));
    state = manager.importState(L"Default", CKoraDgnImportManger::DefaultWeights::ForStandardOnly);
    EXPECT_EQ(state.tables.weights.at(weight), weight);

    manager.setMappingSetupName(L"no longer there");
    state = manager.importState(L"Default", CKoraDgnImportManger::DefaultWeights::ForStandardOnly);
    EXPECT_EQ(state.tables.levels, (DgnNameMap{{L"1", L"1"}, {L"2", L"2"}}));
    EXPECT_EQ(state.tables.weights.at(weight), defaults.at(weight));
}

TEST_F(ManagerTest, ExportTablesAddTheDrawingsNamesAndFollowReferencedLayers)
{
    KoDbDatabase db;
    for (const wchar_t* layer : {L"Walls", L"site$0$Walls", L"site$0$Doors"})
        Kora::Test::addRecord<KoDbLayerTable, KoDbLayerTableRecord>(db.layerTableId(), layer);
    DgnMappingSetup roads;
    roads.name = L"Roads";
    roads.isImport = 0;
    roads.layerMap = {{L"Walls", L"10"}, {L"Gone", L"11"}};
    roads.lineWeightMap = {{L"25", L"3"}};
    DgnExport parameters;
    buildExportMapping(roads, &db, parameters);
    EXPECT_EQ(parameters.layerMap, (DgnNameMap{{L"0", L"0"},
                                               {L"Gone", L"11"},
                                               {L"Walls", L"10"},
                                               {L"site$0$Doors", L"site$0$Doors"},
                                               {L"site$0$Walls", L"10"}}));
    EXPECT_EQ(parameters.lineWeightMap, (DgnNameMap{{L"25", L"3"}}));
    EXPECT_EQ(parameters.lineTypeMap.at(L"Continuous"), L"Continuous");

    DgnExport standard;
    buildExportMapping(standardMappingSetup(), &db, standard);
    EXPECT_EQ(standard.layerMap.at(L"site$0$Walls"), L"site$0$Walls");
    DgnMappingTable defaults;
    fillDefaultLineWeights(defaults, false);
    EXPECT_EQ(standard.lineWeightMap, defaults);
}

TEST_F(ManagerTest, ExportManagerKeepsASeedListPerVersion)
{
    const fs::path dir = Kora::Test::workDir("export-manager");
    const KoString seed = Kora::Test::wide(dir / "mine.DGN");
    std::ofstream(seed.toUtf8()) << "x";
    writeStoreFile("[EXPORTSECTION]\nTranslationOption=7\nExistingXRefOperation=1\nMappingSetupName=Roads\n");

    CKoraDgnExportManger v8;
    v8.initialise(kDgnVersionV8);
    EXPECT_EQ(v8.choices().translationOption, 2);
    EXPECT_EQ(v8.choices().existingXRefOperation, 1);
    EXPECT_EQ(v8.mappingSetupName(), L"Roads");
    EXPECT_FALSE(v8.addSeed(Kora::Test::wide(dir / "missing.dgn")));
    EXPECT_TRUE(v8.addSeed(seed));
    ASSERT_TRUE(v8.save());

    CKoraDgnExportManger again;
    again.initialise(kDgnVersionV8);
    EXPECT_EQ(again.seeds().count(seed), 1u);
    CKoraDgnExportManger v7;
    v7.initialise(kDgnVersionV7);
    EXPECT_EQ(v7.seeds().count(seed), 0u);
    EXPECT_EQ(v7.seeds().size(), 10u);  // the built-in V7 seeds
}
