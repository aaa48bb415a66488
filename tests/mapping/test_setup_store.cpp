#include <gtest/gtest.h>

#include <algorithm>
#include <chrono>
#include <filesystem>
#include <fstream>
#include <string>
#include <vector>

#include "mapping/DgnMappingSetup.h"
#include "mapping/DgnSetupFile.h"
#include "mapping/DgnTranslationSettings.h"
#include "testeditor.h"
#include "storefile.h"

namespace {

class SetupStoreTest : public ::testing::Test {
protected:
    void SetUp() override { removeStoreFile(); }

    static DgnMappingSetupStore load()
    {
        DgnMappingSetupStore store;
        Kora::DgnCommands::loadMappingSetups(store);
        return store;
    }
};

std::vector<KoString> names(const DgnMappingSetupStore& store)
{
    std::vector<KoString> out;
    for (const auto& [key, setup] : store) out.push_back(setup.name);
    return out;
}

DgnMappingSetup setup(const wchar_t* name, int kind)
{
    DgnMappingSetup s;
    s.name = name;
    s.isImport = kind;
    return s;
}

TEST(MappingSetupModel, KeysAreUpperCasedNamesInOrdinalOrderAndTheFirstInsertionStays)
{
    DgnMappingSetupStore store;
    EXPECT_TRUE(store.insert(setup(L"b", 1)));
    EXPECT_TRUE(store.insert(setup(L"A", 1)));
    EXPECT_TRUE(store.insert(setup(L"C", 0)));
    EXPECT_EQ(names(store), (std::vector<KoString>{L"A", L"b", L"C"}));

    DgnMappingSetup other = setup(L"B", 0);
    other.description = L"later";
    EXPECT_FALSE(store.insert(other));
    ASSERT_NE(store.find(L"B"), nullptr);
    EXPECT_EQ(store.find(L"B")->name, L"b");
    EXPECT_EQ(store.find(L"B")->isImport, 1);

    // Map keys are ordinal too: upper case sorts before lower case, and
    // empty text is a key like any other.
    DgnMappingTable table{{L"b", L"1"}, {L"A", L"2"}, {L"", L""}, {L"a", L"3"}};
    std::vector<KoString> keys;
    for (const auto& [key, value] : table) keys.push_back(key);
    EXPECT_EQ(keys, (std::vector<KoString>{L"", L"A", L"a", L"b"}));
}

TEST(MappingSetupModel, StandardSetupAndDefaultLineWeights)
{
    const DgnMappingSetup standard = Kora::DgnCommands::standardMappingSetup();
    EXPECT_EQ(standard.name, L"Standard");
    EXPECT_EQ(standard.description, L"Standard mapping setup");
    EXPECT_EQ(standard.isImport, -1);
    EXPECT_TRUE(standard.layerMap.empty() && standard.lineTypeMap.empty() && standard.lineWeightMap.empty()
                && standard.colorMap.empty());
    EXPECT_TRUE(standard.section.isEmpty());
    EXPECT_TRUE(Kora::DgnCommands::isStandardSetupName(L"STANDARD"));
    EXPECT_FALSE(Kora::DgnCommands::isStandardSetupName(L"Standard "));

    DgnMappingTable weights{{L"stale", L"x"}};
    Kora::DgnCommands::fillDefaultLineWeights(weights, true);
    EXPECT_EQ(weights.size(), 34u);
    EXPECT_FALSE(weights.contains(L"stale"));
    EXPECT_EQ(weights[L"11"], L"158");
    EXPECT_EQ(weights[L"12"], L"158");
    EXPECT_EQ(weights[L"13"], L"158");
    EXPECT_EQ(weights[L"15"], L"211");
    EXPECT_EQ(weights[L"31"], L"211");
    EXPECT_EQ(weights[L"ByCell"], L"ByBlock");
    EXPECT_EQ(weights[L"ByLevel"], L"ByLayer");

    Kora::DgnCommands::fillDefaultLineWeights(weights, false);
    EXPECT_EQ(weights.size(), 26u);
    EXPECT_EQ(weights[L"5"], L"0");
    EXPECT_EQ(weights[L"158"], L"11");  // not the inverse of 12 and 13 importing as 158
    EXPECT_EQ(weights[L"211"], L"15");
    EXPECT_EQ(weights[L"ByBlock"], L"ByCell");
    EXPECT_EQ(weights[L"ByLayer"], L"ByLevel");
    EXPECT_FALSE(weights.contains(L"12"));
}

TEST_F(SetupStoreTest, MissingFileGivesOnlyTheStandardSetup)
{
    const DgnMappingSetupStore store = load();
    ASSERT_EQ(store.size(), 1u);
    EXPECT_EQ(*store.find(L"standard"), Kora::DgnCommands::standardMappingSetup());
    EXPECT_TRUE(storeFilePath().string().ends_with("/Support/DgnSetups.ini"));
}

TEST_F(SetupStoreTest, ReadingFollowsTheFileRules)
{
    writeStoreFile("[MappingSetup1]\nName=STANDARD\nLayerCount=1\nDGNLevel0=a\nDWGLayer0=b\n"
                   "[MappingSetup2]\nName=Roads\nisImport=1\nDescription=first\n"
                   "LayerCount=2\nDGNLevel0=L1\nDWGLayer0=first\nDGNLevel1=L1\nDWGLayer1=second\n"
                   "[MappingSetup3]\nName=ROADS\nDescription=second\n"
                   "[MappingSetup4]\nName=Export\nisImport=0\nLayerCount=1\nLTCount=1\n"
                   "DGNLevel0=level\nDWGLayer0=layer\nDWGLType0=DASHED\nDGNLStyle0=2\n"
                   "[MappingSetup5]\nName=NoKind\nColorCount=1\nDGNColor0=3\nDWGColor0=red\n"
                   "[MappingSetup6]\nDescription=no name\n"
                   "[MappingSetup7]\nName=Short\nLayerCount=3\nDGNLevel0=L0\nDWGLayer0=W0\nLWCount=abc\n"
                   "[IMPORTSECTION]\nName=not a setup\n");
    const DgnMappingSetupStore store = load();
    EXPECT_EQ(names(store), (std::vector<KoString>{L"Export", L"NoKind", L"Roads", L"Short", L"Standard"}));

    const DgnMappingSetup& standard = *store.find(L"Standard");
    EXPECT_TRUE(standard.layerMap.empty());
    EXPECT_TRUE(standard.section.isEmpty());

    const DgnMappingSetup& roads = *store.find(L"roads");
    EXPECT_EQ(roads.description, L"first");
    EXPECT_EQ(roads.section, L"MappingSetup2");
    EXPECT_EQ(roads.layerMap, (DgnMappingTable{{L"L1", L"first"}}));
    EXPECT_EQ(roads.layerCount, 2);

    // An export setup is keyed by the drawing's names.
    const DgnMappingSetup& exportSetup = *store.find(L"Export");
    EXPECT_EQ(exportSetup.isImport, 0);
    EXPECT_EQ(exportSetup.layerMap, (DgnMappingTable{{L"layer", L"level"}}));
    EXPECT_EQ(exportSetup.lineTypeMap, (DgnMappingTable{{L"DASHED", L"2"}}));

    // A missing kind reads as -1, which translates from the DGN side.
    const DgnMappingSetup& noKind = *store.find(L"NoKind");
    EXPECT_EQ(noKind.isImport, -1);
    EXPECT_EQ(noKind.colorMap, (DgnMappingTable{{L"3", L"red"}}));
    EXPECT_EQ(noKind.layerCount, -1);

    // Three announced, one pair present: the missing ones read as one
    // empty pair. A count that is not a number reads as 0.
    const DgnMappingSetup& shortSetup = *store.find(L"Short");
    EXPECT_EQ(shortSetup.layerMap, (DgnMappingTable{{L"", L""}, {L"L0", L"W0"}}));
    EXPECT_EQ(shortSetup.lineWeightCount, 0);
    EXPECT_TRUE(shortSetup.lineWeightMap.empty());
}

TEST_F(SetupStoreTest, LyingCountsCostOnlyTheKeysThatExist)
{
    writeStoreFile("[MappingSetup1]\nName=Huge\nLayerCount=2000000000\nDGNLevel0=a\nDWGLayer0=b\n"
                   "dgnlevel1000=far\nDWGLayer1000=away\nDGNLevel07=leading zero\n"
                   "LTCount=1001\nDGNLStyle1000=only the last\n");
    const auto start = std::chrono::steady_clock::now();
    const DgnMappingSetupStore store = load();
    EXPECT_LT(std::chrono::steady_clock::now() - start, std::chrono::seconds(5));
    const DgnMappingSetup& huge = *store.find(L"Huge");
    EXPECT_EQ(huge.layerMap, (DgnMappingTable{{L"", L""}, {L"a", L"b"}, {L"far", L"away"}}));
    EXPECT_EQ(huge.lineTypeMap, (DgnMappingTable{{L"", L""}, {L"only the last", L""}}));
}

TEST_F(SetupStoreTest, SubstringSectionsAreReadAndStayAfterTheSaveRenumbers)
{
    writeStoreFile("[MyMappingSetup7]\nName=Mine\nisImport=1\nLayerCount=1\nDGNLevel0=1\nDWGLayer0=One\n");
    DgnMappingSetupStore store = load();
    ASSERT_NE(store.find(L"Mine"), nullptr);
    EXPECT_EQ(store.find(L"Mine")->section, L"MyMappingSetup7");

    store.find(L"Mine")->layerMap[L"1"] = L"Edited";
    Kora::DgnCommands::saveMappingSetups(store);
    EXPECT_EQ(storedValue(L"MappingSetup1", L"Name"), L"Mine");
    EXPECT_EQ(storedValue(L"MappingSetup1", L"DWGLayer0"), L"Edited");
    EXPECT_EQ(storedValue(L"MyMappingSetup7", L"Name"), L"Mine");

    // The old section comes first in the file, so the next load reads it
    // and drops the new copy; it must therefore hold the edit too.
    const DgnMappingSetupStore again = load();
    EXPECT_EQ(again.size(), 2u);
    EXPECT_EQ(again.find(L"Mine")->section, L"MyMappingSetup7");
    EXPECT_EQ(again.find(L"Mine")->layerMap, (DgnMappingTable{{L"1", L"Edited"}}));
    EXPECT_EQ(store.find(L"Mine")->section, L"MyMappingSetup7");
}

TEST_F(SetupStoreTest, SavingRenumbersInNameOrderAndErasesNothing)
{
    writeStoreFile("; kept comment\n"
                   "[MappingSetup5]\nName=b\nisImport=2\nLayerCount=3\n"
                   "DGNLevel0=x\nDWGLayer0=X\nDGNLevel1=y\nDWGLayer1=Y\nDGNLevel2=z\nDWGLayer2=Z\nNote=kept\n"
                   "[MappingSetup2]\nName=A\nisImport=0\nLayerCount=1\nDGNLevel0=lvl\nDWGLayer0=lay\n"
                   "[MappingSetup9]\nName=C\n"
                   "[Foreign]\nkey=value\n");
    DgnMappingSetupStore store = load();
    store.find(L"b")->layerMap.erase(L"z");
    Kora::DgnCommands::saveMappingSetups(store);

    EXPECT_EQ(storedValue(L"MappingSetup1", L"Name"), L"A");
    EXPECT_EQ(storedValue(L"MappingSetup2", L"Name"), L"b");
    EXPECT_EQ(storedValue(L"MappingSetup3", L"Name"), L"C");
    // A kind of 2 stays 2; the shorter list leaves its old last pair.
    EXPECT_EQ(storedValue(L"MappingSetup2", L"isImport"), L"2");
    EXPECT_EQ(storedValue(L"MappingSetup2", L"LayerCount"), L"2");
    EXPECT_EQ(storedValue(L"MappingSetup5", L"LayerCount"), L"2");
    EXPECT_EQ(storedValue(L"MappingSetup5", L"DGNLevel2"), L"z");
    EXPECT_EQ(storedValue(L"MappingSetup5", L"Note"), L"kept");
    EXPECT_EQ(storedValue(L"Foreign", L"key"), L"value");
    EXPECT_NE(readStoreFile().find("; kept comment\n"), std::string::npos);

    const std::string text = readStoreFile();
    // New sections list their keys in the fixed order, the source key of
    // each pair first: the DGN side for an import setup, the drawing side
    // for an export setup.
    const std::string section3 = text.substr(text.find("[MappingSetup3]"));
    EXPECT_EQ(section3.substr(0, section3.find("\n[")),
              "[MappingSetup3]\nName=C\nisImport=-1\nDescription=\nLayerCount=0\nLTCount=0\nLWCount=0\nColorCount=0\n");
    const std::string section1 = text.substr(text.find("[MappingSetup1]"));
    EXPECT_LT(section1.find("DWGLayer0=lay"), section1.find("DGNLevel0=lvl"));

    const DgnMappingSetupStore again = load();
    EXPECT_EQ(names(again), (std::vector<KoString>{L"A", L"b", L"C", L"Standard"}));
    EXPECT_EQ(again.find(L"b")->isImport, 2);
    EXPECT_EQ(again.find(L"b")->layerMap, (DgnMappingTable{{L"x", L"X"}, {L"y", L"Y"}}));
    EXPECT_EQ(again.find(L"A")->layerMap, (DgnMappingTable{{L"lay", L"lvl"}}));
    EXPECT_EQ(again.find(L"b")->section, L"MappingSetup5");
    EXPECT_EQ(again.find(L"A")->section, L"MappingSetup1");
    EXPECT_EQ(again.find(L"C")->section, L"MappingSetup9");
}

TEST_F(SetupStoreTest, RoundTripKeepsEveryValueAndEveryUntouchedKey)
{
    DgnMappingSetupStore store = load();
    DgnMappingSetup roads = setup(L"Roads", 1);
    roads.description = L"Straßen\r\nund\nWege";  // the file cannot hold the line breaks
    roads.layerMap = {{L"", L"from empty"}, {L"1", L""}, {L"Level 2", L"Kerbs"}};
    roads.lineTypeMap = {{L"0", L"CONTINUOUS"}};
    Kora::DgnCommands::fillDefaultLineWeights(roads.lineWeightMap, true);
    roads.colorMap = {{L"1", L"red"}, {L"2", L"RGB:10,20,30"}};
    roads.layerCount = 3;
    roads.lineTypeCount = 1;
    roads.lineWeightCount = 34;
    roads.colorCount = 2;
    DgnMappingSetup rivers = setup(L"rivers", 0);
    for (int i = 0; i < 150; ++i) rivers.layerMap.emplace(L"WATER" + std::to_wstring(i), std::to_wstring(i));
    rivers.layerCount = 150;
    store.insert(roads);
    store.insert(rivers);
    Kora::DgnCommands::saveMappingSetups(store);
    koWritePrivateProfileString(L"MappingSetup1", L"Owner", L"survey", Kora::DgnCommands::dgnSetupFilePath());
    EXPECT_EQ(storedValue(L"MappingSetup1", L"DWGLayer149"), L"WATER99");  // rivers sorts first

    DgnMappingSetupStore first = load();
    EXPECT_EQ(first.find(L"Roads")->description, L"Straßen und Wege");
    store.find(L"Roads")->description = L"Straßen und Wege";
    EXPECT_EQ(first, store);
    Kora::DgnCommands::saveMappingSetups(first);
    const DgnMappingSetupStore second = load();
    EXPECT_EQ(second, first);
    EXPECT_EQ(storedValue(L"MappingSetup1", L"Owner"), L"survey");
}

TEST_F(SetupStoreTest, DeleteAndRenameTouchOnlyTheirSection)
{
    writeStoreFile("[MappingSetup1]\nName=Alpha\nisImport=1\n[MappingSetup2]\nName=Beta\nisImport=0\n"
                   "[MappingSetup3]\nName=Gamma\nisImport=1\n[]\nName=nameless\n");
    DgnMappingSetupStore store = load();

    EXPECT_FALSE(Kora::DgnCommands::deleteMappingSetup(store, L"nothing"));
    EXPECT_TRUE(Kora::DgnCommands::deleteMappingSetup(store, L"BETA"));
    EXPECT_EQ(store.find(L"Beta"), nullptr);
    EXPECT_EQ(storedValue(L"MappingSetup2", L"Name"), L"<missing>");

    // The standard setup has no section: deleting it touches no file
    // section, not even one with an empty name.
    const std::string before = readStoreFile();
    EXPECT_TRUE(Kora::DgnCommands::deleteMappingSetup(store, L"Standard"));
    EXPECT_EQ(readStoreFile(), before);

    EXPECT_FALSE(Kora::DgnCommands::renameMappingSetup(store, L"missing", L"Other"));
    EXPECT_EQ(readStoreFile(), before);

    EXPECT_TRUE(Kora::DgnCommands::renameMappingSetup(store, L"alpha", L"Delta"));
    EXPECT_EQ(store.find(L"Alpha"), nullptr);
    EXPECT_EQ(store.find(L"DELTA")->name, L"Delta");
    EXPECT_EQ(store.find(L"DELTA")->section, L"MappingSetup1");
    std::string expected = before;
    expected.replace(expected.find("Name=Alpha"), 10, "Name=Delta");
    EXPECT_EQ(readStoreFile(), expected);

    // A change of letter case alone renames in place.
    EXPECT_TRUE(Kora::DgnCommands::renameMappingSetup(store, L"Delta", L"DELTA"));
    EXPECT_EQ(store.find(L"delta")->name, L"DELTA");
    EXPECT_EQ(storedValue(L"MappingSetup1", L"Name"), L"DELTA");

    Kora::DgnCommands::loadMappingSetups(store);
    EXPECT_EQ(names(store), (std::vector<KoString>{L"DELTA", L"Gamma", L"Standard"}));

    // Renaming onto another setup's name keeps that setup in the store and
    // drops the renamed one; in the file the section listed first wins.
    EXPECT_TRUE(Kora::DgnCommands::renameMappingSetup(store, L"DELTA", L"gamma"));
    EXPECT_EQ(names(store), (std::vector<KoString>{L"Gamma", L"Standard"}));
    EXPECT_EQ(storedValue(L"MappingSetup1", L"Name"), L"gamma");
    Kora::DgnCommands::loadMappingSetups(store);
    EXPECT_EQ(names(store), (std::vector<KoString>{L"gamma", L"Standard"}));
}

// After any save, the section a setup names is the one the next load reads
// it from, so a delete or rename in the same session reaches the file.
// Each case: the file, the setup deleted and the one renamed after a save.
TEST_F(SetupStoreTest, DeleteAndRenameAfterASaveHoldForTheNextLoad)
{
    struct Case {
        const char* file;
        const wchar_t* dropBeforeSave;
        const wchar_t* deleted;
        const wchar_t* renamed;
    };
    const Case cases[] = {
        // The numbering shifts down: the last setup's old section stays.
        {"[MappingSetup1]\nName=Alpha\n[MappingSetup2]\nName=Beta\n[MappingSetup3]\nName=Gamma\n", L"Alpha",
         L"Gamma", L"Beta"},
        // A stale duplicate in another case, read by no load until the
        // section before it goes.
        {"[MappingSetup1]\nName=A\n[MappingSetup2]\nName=a\n[MappingSetup3]\nName=B\n", nullptr, L"A", L"B"},
        {"[MappingSetup1]\nName=A\n[MappingSetup2]\nName=a\n[MappingSetup3]\nName=B\n", L"A", L"B", nullptr},
        // Gaps in the numbering and sections named otherwise.
        {"[MappingSetup2]\nName=Beta\n[MyMappingSetup7]\nName=Gamma\n[MappingSetup9]\nName=Delta\n", nullptr,
         L"Gamma", L"Delta"},
        {"[MappingSetup4]\nName=Alpha\n[MappingSetup1x]\nName=Beta\n[MappingSetup2]\nName=Gamma\n", L"Alpha",
         L"Beta", L"Gamma"},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.file);
        writeStoreFile(c.file);
        DgnMappingSetupStore store = load();
        if (c.dropBeforeSave) {
            ASSERT_TRUE(Kora::DgnCommands::deleteMappingSetup(store, c.dropBeforeSave));
        }
        Kora::DgnCommands::saveMappingSetups(store);
        // Every section field names the section a fresh load reads.
        const DgnMappingSetupStore fresh = load();
        ASSERT_EQ(names(fresh), names(store));
        for (const auto& [key, setup] : store) EXPECT_EQ(setup.section, fresh.find(setup.name)->section);

        std::vector<KoString> expected = names(store);
        ASSERT_TRUE(Kora::DgnCommands::deleteMappingSetup(store, c.deleted));
        std::erase(expected, KoString(c.deleted));
        if (c.renamed) {
            ASSERT_TRUE(Kora::DgnCommands::renameMappingSetup(store, c.renamed, L"Renamed"));
            std::replace(expected.begin(), expected.end(), KoString(c.renamed), KoString(L"Renamed"));
            std::sort(expected.begin(), expected.end(),
                      [](const KoString& x, const KoString& y) {
                          return DgnMappingSetupStore::keyOf(x) < DgnMappingSetupStore::keyOf(y);
                      });
        }
        EXPECT_EQ(names(store), expected);
        EXPECT_EQ(names(load()), expected);
        EXPECT_EQ(readStoreFile().find("=" + KoString(c.deleted).toUtf8() + "\n"), std::string::npos);
    }
}

// Tests run as root, whom permissions do not stop: the support folder is
// made a regular file instead, in which nobody can create a file.
TEST_F(SetupStoreTest, SavesThatCannotWriteSaySoAndKeepTheEdits)
{
    writeStoreFile("[MappingSetup1]\nName=Alpha\n");
    DgnMappingSetupStore store = load();
    store.find(L"Alpha")->description = L"edited";
    store.insert(setup(L"Beta", 1));
    const std::string before = readStoreFile();

    const std::filesystem::path folder = storeFilePath().parent_path();
    const std::filesystem::path aside = folder.string() + ".aside";
    std::filesystem::rename(folder, aside);
    std::ofstream(folder) << "not a folder";
    bool savedSetups = true, savedSettings = true;
    KoString transcript;
    {
        TestEditor editor;
        savedSetups = Kora::DgnCommands::saveMappingSetups(store);
        DgnExportChoices choices;
        savedSettings = Kora::DgnCommands::saveExportChoices(choices);
        transcript = editor.transcript();
    }
    std::filesystem::remove(folder);
    std::filesystem::rename(aside, folder);

    EXPECT_FALSE(savedSetups);
    EXPECT_FALSE(savedSettings);
    const KoString message = L"\nCannot save " + Kora::DgnCommands::dgnSetupFilePath() + L": Not a directory.";
    EXPECT_EQ(transcript, message + message);
    EXPECT_EQ(readStoreFile(), before);
    // The store still holds the edits, and its sections still name the file as it is.
    EXPECT_EQ(store.find(L"Alpha")->description, L"edited");
    EXPECT_EQ(store.find(L"Alpha")->section, L"MappingSetup1");
    EXPECT_TRUE(store.find(L"Beta")->section.isEmpty());

    // Once the folder can be written again, the same store saves.
    EXPECT_TRUE(Kora::DgnCommands::saveMappingSetups(store));
    const DgnMappingSetupStore again = load();
    EXPECT_EQ(again.find(L"Alpha")->description, L"edited");
    EXPECT_NE(again.find(L"Beta"), nullptr);
}

TEST_F(SetupStoreTest, SavingNeverOverwritesASetupTheStoreDoesNotKnow)
{
    writeStoreFile("[MappingSetup1]\nName=Alpha\n");
    DgnMappingSetupStore store = load();
    // Another program adds a setup after the store was read.
    koWritePrivateProfileString(L"MappingSetup2", L"Name", L"Theirs", Kora::DgnCommands::dgnSetupFilePath());
    store.insert(setup(L"Beta", 1));
    Kora::DgnCommands::saveMappingSetups(store);

    EXPECT_EQ(storedValue(L"MappingSetup2", L"Name"), L"Theirs");
    EXPECT_EQ(store.find(L"Beta")->section, L"MappingSetup3");
    EXPECT_EQ(names(load()), (std::vector<KoString>{L"Alpha", L"Beta", L"Standard", L"Theirs"}));
}

TEST_F(SetupStoreTest, OnlySectionNamesThatFitTheListingAreSeen)
{
    // 40 names of 60 characters fill 2440 characters: the last ones are
    // past the 2046 the listing holds.
    std::string file;
    for (int i = 0; i < 40; ++i) {
        const std::string section = "MappingSetup" + std::string(45, 'x') + std::to_string(100 + i);
        file += "[" + section + "]\nName=Setup" + std::to_string(100 + i) + "\n";
    }
    writeStoreFile(file);
    DgnMappingSetupStore store = load();
    EXPECT_EQ(store.size(), 1u + 2046 / 61);
    EXPECT_NE(store.find(L"Setup100"), nullptr);
    EXPECT_EQ(store.find(L"Setup139"), nullptr);

    // Saving writes the setups it knows and loses none of the others.
    Kora::DgnCommands::saveMappingSetups(store);
    for (int i = 0; i < 40; ++i) {
        const KoString section = KoString::fromUtf8("MappingSetup" + std::string(45, 'x') + std::to_string(100 + i));
        EXPECT_EQ(storedValue(section, L"Name"), KoString::format(L"Setup%d", 100 + i));
    }
}

TEST_F(SetupStoreTest, DamagedFilesLoadWhatCanBeReadAndSaveLosesNothing)
{
    // Binary garbage around a good section, and a section header without
    // its closing bracket (its keys then belong to the section before).
    std::string garbage;
    for (int i = 0; i < 4096; ++i) garbage += static_cast<char>((i * 7919) % 256);
    writeStoreFile(garbage + "\n[MappingSetup1]\nName=Good\nLayerCount=1\nDGNLevel0=1\nDWGLayer0=One\n"
                   + "[MappingSetup2\nName=Unterminated\n" + garbage);
    DgnMappingSetupStore store = load();
    ASSERT_NE(store.find(L"Good"), nullptr);
    EXPECT_EQ(store.find(L"Good")->layerMap, (DgnMappingTable{{L"1", L"One"}}));
    store.insert(setup(L"Added", 1));
    Kora::DgnCommands::saveMappingSetups(store);
    const std::string saved = readStoreFile();
    EXPECT_EQ(saved.substr(0, garbage.size()), garbage);
    EXPECT_NE(saved.find("[MappingSetup2\n"), std::string::npos);
    EXPECT_EQ(names(load()), (std::vector<KoString>{L"Added", L"Good", L"Standard"}));

    // A value of 10 MB is cut to 2045 characters.
    writeStoreFile("[MappingSetup1]\nName=Big\nDescription=" + std::string(10 << 20, 'd') + "\n");
    store = load();
    EXPECT_EQ(store.find(L"Big")->description, KoString(L'd', 2045));
}

TEST_F(SetupStoreTest, Utf16FilesFromAnotherSystemReadAndStayUtf16)
{
    const std::wstring text = L"[MappingSetup1]\r\nName=Straßen\r\nisImport=1\r\nLayerCount=1\r\n"
                              L"DGNLevel0=Ebene 1\r\nDWGLayer0=Fahrbahn\r\n";
    std::string bytes = "\xFF\xFE";
    for (wchar_t ch : text) {
        bytes += static_cast<char>(ch & 0xFF);
        bytes += static_cast<char>(ch >> 8);
    }
    writeStoreFile(bytes);
    DgnMappingSetupStore store = load();
    ASSERT_NE(store.find(L"STRAßEN"), nullptr);
    EXPECT_EQ(store.find(L"Straßen")->layerMap, (DgnMappingTable{{L"Ebene 1", L"Fahrbahn"}}));

    store.insert(setup(L"Alpha", 0));
    Kora::DgnCommands::saveMappingSetups(store);
    EXPECT_TRUE(readStoreFile().starts_with("\xFF\xFE[\0M\0"));
    EXPECT_EQ(names(load()), (std::vector<KoString>{L"Alpha", L"Standard", L"Straßen"}));
}

}  // namespace
