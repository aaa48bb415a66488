// The DGN property reader on real files: the samples of tests/data, the seeds the
// build writes, copies of a seed with other unit labels, and files it must
// refuse.
#include <gtest/gtest.h>

#include <cstdint>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <string>
#include <vector>

#include "dgn_library_test_support.h"
#include "kora/dgn/dgnfile.h"
#include "kora/status.h"

namespace fs = std::filesystem;
using namespace Kora::Test;

namespace {

struct Expected {
    bool is3d;
    const wchar_t* master;
    const wchar_t* sub;
    int masterUnits;
    int subUnits;
    std::vector<KoString> levels, lineStyles, weights, colours;
};

void expectProperties(const fs::path& path, const Expected& e)
{
    SCOPED_TRACE(path.string());
    DgnFileProp prop;
    ASSERT_EQ(DgnFile::addPropFromDgnFile(wide(path), prop), KORTNORM);
    EXPECT_EQ(prop.version, kDgnVersionV7);
    EXPECT_EQ(prop.is3d, e.is3d);
    ASSERT_EQ(prop.models.size(), 1u);
    const DgnModelProp& model = prop.models.front();
    EXPECT_EQ(model.name, KoString(L"Default"));
    EXPECT_EQ(model.masterUnit, KoString(e.master));
    EXPECT_EQ(model.subUnit, KoString(e.sub));
    EXPECT_EQ(model.masterUnits, e.masterUnits);
    EXPECT_EQ(model.subUnits, e.subUnits);
    EXPECT_EQ(prop.levels, e.levels);
    EXPECT_EQ(prop.lineStyles, e.lineStyles);
    EXPECT_EQ(prop.weights, e.weights);
    EXPECT_EQ(prop.colours, e.colours);
}

// A copy of a seed whose TCB carries other unit labels and another number
// of sub units per master unit (byte 1112: a middle-endian int32; bytes
// 1120-1123: the two 2-character labels).
fs::path seedWithUnits(const fs::path& folder, int index, const std::string& master, const std::string& sub,
                       std::int32_t subPerMaster)
{
    std::vector<char> bytes = fileBytes(seed("V7-Metric-Seed2D.dgn"));
    const auto value = static_cast<std::uint32_t>(subPerMaster);
    const std::uint16_t high = value >> 16, low = value & 0xFFFF;
    const char patched[] = {static_cast<char>(high & 0xFF), static_cast<char>(high >> 8),
                            static_cast<char>(low & 0xFF), static_cast<char>(low >> 8)};
    std::copy(std::begin(patched), std::end(patched), bytes.begin() + 1112);
    const std::string labels = (master + std::string(2, '\0')).substr(0, 2) + (sub + std::string(2, '\0')).substr(0, 2);
    std::copy(labels.begin(), labels.end(), bytes.begin() + 1120);
    const fs::path path = folder / ("units-" + std::to_string(index) + ".dgn");
    writeFile(path, bytes);
    return path;
}

}  // namespace

TEST(DgnFileProperties, SharedSamples)
{
    expectProperties(sample("smalltest.dgn"),
                     {false, L"mu", L"su", KoDb::kUnitsUndefined, KoDb::kUnitsUndefined,
                      {L"1", L"2"}, {L"Solid"}, {L"0"}, {L"0", L"83"}});
    // Labels "M" and "MM" with 1000 sub units per master are metres and
    // millimetres; the cell header (level 0) adds nothing, its components
    // on levels 9 and 10 do.
    expectProperties(sample("mixed-elements.dgn"),
                     {true, L"m", L"mm", KoDb::kUnitsMeters, KoDb::kUnitsMillimeters,
                      {L"9", L"10", L"15"}, {L"Solid"}, {L"1"}, {L"3"}});
    // The two solids on level 10 and their markers on level 50; the
    // elements of types 61 to 63 on level 0, the colour table and the
    // application elements are no graphics.
    expectProperties(sample("seed3d-metric.dgn"),
                     {true, L"m", L"mm", KoDb::kUnitsMeters, KoDb::kUnitsMillimeters,
                      {L"10", L"50"}, {L"Solid"}, {L"2", L"10"}, {L"13", L"17"}});
    // "tf" is no unit of the vocabulary: both labels stay as the file has them.
    expectProperties(sample("seed_2d.dgn"),
                     {false, L"ft", L"tf", KoDb::kUnitsFeet, KoDb::kUnitsUndefined, {}, {}, {}, {}});
    expectProperties(sample("seed_3d.dgn"),
                     {true, L"m", L"mm", KoDb::kUnitsMeters, KoDb::kUnitsMillimeters, {}, {}, {}, {}});
    // A TCB without working units and a stray knot element on level 0: the
    // file reads, with empty unit labels and no names.
    expectProperties(sample("malformed/knot_oob.dgn"),
                     {false, L"", L"", KoDb::kUnitsUndefined, KoDb::kUnitsUndefined, {}, {}, {}, {}});
}

TEST(DgnFileProperties, BuiltSeeds)
{
    struct Seed {
        const char* name;
        const wchar_t* master;
        const wchar_t* sub;
        int masterUnits, subUnits;
    };
    const Seed seeds[] = {
        {"V7-Imperial-Arch-01", L"ft", L"in", KoDb::kUnitsFeet, KoDb::kUnitsInches},
        {"V7-Imperial-Arch-02", L"ft", L"in", KoDb::kUnitsFeet, KoDb::kUnitsInches},
        {"V7-Imperial-Civil-01", L"ft", L"th", KoDb::kUnitsFeet, KoDb::kUnitsUndefined},
        {"V7-Imperial-Civil-02", L"ft", L"th", KoDb::kUnitsFeet, KoDb::kUnitsUndefined},
        {"V7-Metric", L"m", L"mm", KoDb::kUnitsMeters, KoDb::kUnitsMillimeters},
    };
    for (const Seed& s : seeds) {
        for (const bool is3d : {false, true}) {
            const std::string file = std::string(s.name) + (is3d ? "-Seed3D.dgn" : "-Seed2D.dgn");
            expectProperties(seed(file), {is3d, s.master, s.sub, s.masterUnits, s.subUnits, {}, {}, {}, {}});
        }
    }
}

TEST(DgnFileProperties, UnitLabelsAndRatios)
{
    struct Case {
        const char* master;
        const char* sub;
        std::int32_t subPerMaster;
        const wchar_t* reportedMaster;
        const wchar_t* reportedSub;
        int masterUnits, subUnits;
    };
    const Case cases[] = {
        // Case and the feet and inch marks do not hide a standard unit...
        {"FT", "IN", 12, L"ft", L"in", KoDb::kUnitsFeet, KoDb::kUnitsInches},
        {"'", "\"", 12, L"ft", L"in", KoDb::kUnitsFeet, KoDb::kUnitsInches},
        {"mi", "YD", 1760, L"mi", L"yd", KoDb::kUnitsMiles, KoDb::kUnitsYards},
        {"m", "CM", 100, L"m", L"cm", KoDb::kUnitsMeters, KoDb::kUnitsCentimeters},
        {"KM", "M", 1000, L"km", L"m", KoDb::kUnitsKilometers, KoDb::kUnitsMeters},
        // ...and the ratio tells megametres from millimetres.
        {"MM", "KM", 1000, L"Mm", L"km", KoDb::kUnitsUndefined, KoDb::kUnitsKilometers},
        {"mm", "um", 1000, L"mm", L"um", KoDb::kUnitsMillimeters, KoDb::kUnitsMicrons},
        // A ratio that does not fit the labels leaves them as they stand.
        {"FT", "IN", 10, L"FT", L"IN", KoDb::kUnitsUndefined, KoDb::kUnitsUndefined},
        {"ft", "in", 10, L"ft", L"in", KoDb::kUnitsFeet, KoDb::kUnitsInches},
        {"M", "MM", 0, L"M", L"MM", KoDb::kUnitsUndefined, KoDb::kUnitsUndefined},
        {"mu", "su", 10, L"mu", L"su", KoDb::kUnitsUndefined, KoDb::kUnitsUndefined},
    };
    const fs::path folder = scratch("units");
    int index = 0;
    for (const Case& c : cases) {
        SCOPED_TRACE(std::string(c.master) + "/" + c.sub + " " + std::to_string(c.subPerMaster));
        DgnFileProp prop;
        ASSERT_EQ(DgnFile::addPropFromDgnFile(wide(seedWithUnits(folder, index++, c.master, c.sub, c.subPerMaster)), prop),
                  KORTNORM);
        ASSERT_EQ(prop.models.size(), 1u);
        EXPECT_EQ(prop.models[0].masterUnit, KoString(c.reportedMaster));
        EXPECT_EQ(prop.models[0].subUnit, KoString(c.reportedSub));
        EXPECT_EQ(prop.models[0].masterUnits, c.masterUnits);
        EXPECT_EQ(prop.models[0].subUnits, c.subUnits);
    }
}

TEST(DgnFileProperties, V8Sample)
{
    DgnFileProp prop;
    ASSERT_EQ(DgnFile::addPropFromDgnFile(wide(sample("v8/test_dgnv8.dgn")), prop), KORTNORM);
    EXPECT_EQ(prop.version, kDgnVersionV8);
    EXPECT_TRUE(prop.is3d);
    ASSERT_EQ(prop.models.size(), 1u);
    EXPECT_EQ(prop.models[0].name, KoString(L"my_model"));
    EXPECT_EQ(prop.models[0].masterUnit, KoString(L"m"));
    EXPECT_EQ(prop.models[0].subUnit, KoString(L"mm"));
    EXPECT_EQ(prop.models[0].masterUnits, KoDb::kUnitsMeters);
    EXPECT_EQ(prop.models[0].subUnits, KoDb::kUnitsMillimeters);
    // One line lies on level 1 (no table entry: its number) with style 4,
    // weight 5, colour 3; the rest on level 64, "Default". The text's
    // colour 256 is no colour index and is not listed.
    EXPECT_EQ(prop.levels, (std::vector<KoString>{L"1", L"Default"}));
    EXPECT_EQ(prop.lineStyles, (std::vector<KoString>{L"Solid", L"Dot Dashed"}));
    EXPECT_EQ(prop.weights, (std::vector<KoString>{L"0", L"5"}));
    EXPECT_EQ(prop.colours, (std::vector<KoString>{L"0", L"3"}));
}

TEST(DgnFileProperties, FilesThatAreNoDesignFailAndLeaveTheRecord)
{
    const fs::path folder = scratch("refused");
    std::vector<char> truncated = fileBytes(sample("smalltest.dgn"));
    truncated.resize(10300);  // inside the ellipse that starts at byte 10206
    writeFile(folder / "truncated.dgn", truncated);
    std::vector<char> cellLibrary(2048, '\0');
    cellLibrary[0] = 0x08, cellLibrary[1] = 0x05, cellLibrary[2] = 0x17;
    writeFile(folder / "library.cel", cellLibrary);
    writeFile(folder / "empty.dgn", {});
    std::vector<char> v8 = fileBytes(sample("v8/test_dgnv8.dgn"));
    v8.resize(v8.size() / 2);
    writeFile(folder / "truncated-v8.dgn", v8);

    DgnFileProp prop;
    ASSERT_EQ(DgnFile::addPropFromDgnFile(wide(sample("smalltest.dgn")), prop), KORTNORM);
    const DgnFileProp before = prop;
    for (const fs::path& path : {folder / "truncated-v8.dgn", folder / "library.cel", folder / "empty.dgn",
                                 sample("v8/test_dgnv8_ref.csv"), folder / "truncated.dgn", folder / "missing.dgn",
                                 folder, fs::path("/dev/zero")}) {
        SCOPED_TRACE(path.string());
        EXPECT_EQ(DgnFile::addPropFromDgnFile(wide(path), prop), KORTERROR);
        EXPECT_EQ(prop.models.size(), 1u);
        EXPECT_EQ(prop.levels, before.levels);
        EXPECT_EQ(prop.colours, before.colours);
    }
}
