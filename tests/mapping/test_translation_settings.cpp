#include <gtest/gtest.h>

#include "kora/editor.h"
#include "kora/sysvars.h"
#include "mapping/DgnTranslationSettings.h"
#include "storefile.h"

namespace {

class TranslationSettingsTest : public ::testing::Test {
protected:
    void SetUp() override
    {
        removeStoreFile();
        koraResetSysVars();
    }
    void TearDown() override { koraResetSysVars(); }
};

short importMode()
{
    koresbuf value;
    EXPECT_EQ(koedGetVar(L"DGNIMPORTMODE", &value), KORTNORM);
    return value.resval.rint;
}

TEST_F(TranslationSettingsTest, MissingSectionLeavesEverythingAsItWas)
{
    DgnImportSettings imported;
    imported.translationOption = 1;
    EXPECT_FALSE(Kora::DgnCommands::readImportSettings(imported));
    EXPECT_EQ(imported.translationOption, 1);
    DgnExportSettings exported;
    EXPECT_FALSE(Kora::DgnCommands::readExportSettings(exported));

    writeStoreFile("[EXPORTSECTION]\nSeedFileName=/seeds/a.dgn\n");
    EXPECT_TRUE(Kora::DgnCommands::readExportSettings(exported));
    EXPECT_EQ(exported.seedFileName, L"/seeds/a.dgn");
    EXPECT_EQ(exported.existingXRefOperation, -1);
    EXPECT_EQ(exported.isMasterUnits, -1);
    EXPECT_EQ(exported.translationOption, -1);
    EXPECT_TRUE(exported.mappingSetupName.isEmpty());
}

TEST_F(TranslationSettingsTest, TheFirstMatchingSectionIsReadAndTheExactOneWritten)
{
    writeStoreFile("[OLDIMPORTSECTION]\nTranslationOption=0\nMappingSetupName=Old\n"
                   "[IMPORTSECTION]\nTranslationOption=1\nMappingSetupName=Current\n");
    DgnImportSettings settings;
    ASSERT_TRUE(Kora::DgnCommands::readImportSettings(settings));
    EXPECT_EQ(settings.translationOption, 0);
    EXPECT_EQ(settings.mappingSetupName, L"Old");

    settings.mappingSetupName = L"Saved";
    settings.explodeTextNode = 1;
    Kora::DgnCommands::writeImportSettings(settings);
    EXPECT_EQ(readStoreFile(),
              "[OLDIMPORTSECTION]\nTranslationOption=0\nMappingSetupName=Old\n"
              "[IMPORTSECTION]\nTranslationOption=0\nMappingSetupName=Saved\n"
              "ExistingXRefOperation=-1\nIsMasterUnits=-1\nExplodeTextNode=1\n");

    removeStoreFile();
    DgnExportSettings exported{1, 0, L"Roads", L"/seeds/V8-Metric-Seed2D.dgn", 2};
    Kora::DgnCommands::writeExportSettings(exported);
    EXPECT_EQ(readStoreFile(), "[EXPORTSECTION]\nExistingXRefOperation=1\nIsMasterUnits=0\nTranslationOption=2\n"
                               "MappingSetupName=Roads\nSeedFileName=/seeds/V8-Metric-Seed2D.dgn\n");
}

TEST_F(TranslationSettingsTest, StoredValuesOutOfRangeAreIgnoredOneByOne)
{
    DgnImportChoices choices;
    choices.translationOption = 1;
    Kora::DgnCommands::takeStoredSettings(DgnImportSettings{5, 1, 0, L"Roads", 3}, choices);
    EXPECT_EQ(choices.existingXRefOperation, 2);
    EXPECT_EQ(choices.explodeTextNode, 1);
    EXPECT_EQ(choices.units, 1);  // IsMasterUnits 0: sub units
    EXPECT_EQ(choices.mappingSetupName, L"Roads");
    EXPECT_EQ(choices.translationOption, 1);

    Kora::DgnCommands::takeStoredSettings(DgnImportSettings{0, -1, -1, L"", 0}, choices);
    EXPECT_EQ(choices.existingXRefOperation, 0);
    EXPECT_EQ(choices.explodeTextNode, 1);
    EXPECT_EQ(choices.units, 1);
    EXPECT_TRUE(choices.mappingSetupName.isEmpty());
    EXPECT_EQ(choices.translationOption, 0);

    DgnExportChoices exported;
    Kora::DgnCommands::takeStoredSettings(DgnExportSettings{-1, -1, L"Rivers", L"/s.dgn", 7}, exported);
    EXPECT_EQ(exported.translationOption, 2);
    EXPECT_EQ(exported.useSubUnits, 0);
    EXPECT_EQ(exported.existingXRefOperation, 2);
    EXPECT_EQ(exported.seedFileName, L"/s.dgn");
    Kora::DgnCommands::takeStoredSettings(DgnExportSettings{1, 0, L"Rivers", L"/s.dgn", 1}, exported);
    EXPECT_EQ(exported.translationOption, 1);
    EXPECT_EQ(exported.useSubUnits, 1);
    EXPECT_EQ(exported.existingXRefOperation, 1);
}

TEST_F(TranslationSettingsTest, ImportChoicesRoundTripThroughTheFileAndTheImportMode)
{
    writeStoreFile("[IMPORTSECTION]\nIsMasterUnits=0\nExplodeTextNode=1\n");
    // Any value other than 0 and 1 reads as the second way and is saved
    // back as 2.
    ASSERT_EQ(koraSetSysVarText(L"DGNIMPORTMODE", L"7"), KORTNORM);
    DgnImportChoices choices;
    Kora::DgnCommands::loadImportChoices(choices);
    EXPECT_TRUE(choices.importIntoCurrent);
    EXPECT_EQ(choices.importAlternative, 0);
    EXPECT_EQ(choices.units, 1);

    koraSetSysVarText(L"DGNIMPORTMODE", L"1");
    Kora::DgnCommands::saveImportChoices(choices);
    EXPECT_EQ(importMode(), 2);
    EXPECT_EQ(storedValue(L"IMPORTSECTION", L"IsMasterUnits"), L"0");
    EXPECT_EQ(storedValue(L"IMPORTSECTION", L"ExplodeTextNode"), L"1");
    EXPECT_EQ(storedValue(L"IMPORTSECTION", L"TranslationOption"), L"2");

    koraSetSysVarText(L"DGNIMPORTMODE", L"0");
    Kora::DgnCommands::loadImportChoices(choices);
    EXPECT_FALSE(choices.importIntoCurrent);
    EXPECT_EQ(choices.importAlternative, 1);
    koraSetSysVarText(L"DGNIMPORTMODE", L"2");
    Kora::DgnCommands::saveImportChoices(choices);
    EXPECT_EQ(importMode(), 0);

    choices.importIntoCurrent = true;
    Kora::DgnCommands::saveImportChoices(choices);
    EXPECT_EQ(importMode(), 1);

    // A units value other than master or sub keeps what the file holds.
    choices.units = 7;
    Kora::DgnCommands::saveImportChoices(choices);
    EXPECT_EQ(storedValue(L"IMPORTSECTION", L"IsMasterUnits"), L"0");
}

TEST_F(TranslationSettingsTest, ExportChoicesRoundTrip)
{
    DgnExportChoices choices;
    Kora::DgnCommands::loadExportChoices(choices);
    EXPECT_EQ(choices.translationOption, 2);
    EXPECT_EQ(choices.existingXRefOperation, 2);
    EXPECT_EQ(choices.useSubUnits, 0);

    choices = {0, 1, L"Rivers", L"/seeds/a.dgn", 1};
    Kora::DgnCommands::saveExportChoices(choices);
    DgnExportChoices loaded;
    Kora::DgnCommands::loadExportChoices(loaded);
    EXPECT_EQ(loaded.existingXRefOperation, 0);
    EXPECT_EQ(loaded.useSubUnits, 1);
    EXPECT_EQ(loaded.mappingSetupName, L"Rivers");
    EXPECT_EQ(loaded.seedFileName, L"/seeds/a.dgn");
    EXPECT_EQ(loaded.translationOption, 1);
    EXPECT_EQ(storedValue(L"EXPORTSECTION", L"IsMasterUnits"), L"0");
}

}  // namespace
