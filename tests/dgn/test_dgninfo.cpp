// dgninfo, the tool a user runs to see what a DGN file holds, agrees with
// GDAL's ogrinfo on the samples and refuses what it cannot read.
#include <gtest/gtest.h>

#include <sys/wait.h>

#include <array>
#include <cstdio>
#include <optional>
#include <regex>
#include <set>
#include <sstream>
#include <string>
#include <tuple>

namespace {

struct Output {
    int status = -1;
    std::string text;
};

Output run(const std::string& command)
{
    Output out;
    FILE* pipe = popen((command + " 2>&1").c_str(), "r");
    if (!pipe) return out;
    std::array<char, 4096> buf{};
    size_t n = 0;
    while ((n = fread(buf.data(), 1, buf.size(), pipe)) > 0) out.text.append(buf.data(), n);
    const int raw = pclose(pipe);
    out.status = WIFEXITED(raw) ? WEXITSTATUS(raw) : -1;
    return out;
}

// Type, level, colour, weight and text of one element.
using Element = std::tuple<int, int, int, int, std::string>;

std::multiset<Element> ogrElements(const std::string& file)
{
    std::multiset<Element> elements;
    std::istringstream in(run("ogrinfo -ro -al " + file).text);
    std::string line;
    std::optional<Element> current;
    const std::regex field(R"(^  (Type|Level|ColorIndex|Weight|Text) \((?:Integer|String)\) = (.*)$)");
    std::smatch m;
    while (std::getline(in, line)) {
        if (line.starts_with("OGRFeature(")) {
            if (current) elements.insert(*current);
            current = Element{};
        } else if (current && std::regex_match(line, m, field)) {
            const std::string name = m[1];
            if (name == "Type") std::get<0>(*current) = std::stoi(m[2]);
            else if (name == "Level") std::get<1>(*current) = std::stoi(m[2]);
            else if (name == "ColorIndex") std::get<2>(*current) = std::stoi(m[2]);
            else if (name == "Weight") std::get<3>(*current) = std::stoi(m[2]);
            else std::get<4>(*current) = m[2];
        }
    }
    if (current) elements.insert(*current);
    return elements;
}

std::multiset<Element> dgninfoElements(const std::string& file)
{
    std::multiset<Element> elements;
    std::istringstream in(run(KORA_BIN_DIR "/dgninfo " + file).text);
    std::string line;
    const std::regex element(R"re(^@\d+ #\d+ [^(]*\((\d+)\) level=(\d+) colour=(\d+) weight=(\d+) (?:.*? text="([^"]*)")?.*$)re");
    std::smatch m;
    while (std::getline(in, line))
        if (std::regex_match(line, m, element))
            elements.insert({std::stoi(m[1]), std::stoi(m[2]), std::stoi(m[3]), std::stoi(m[4]), m[5]});
    return elements;
}

}  // namespace

TEST(Dgninfo, ListsEveryElementGdalReportsOnTheSamples)
{
    for (const char* sample : {"smalltest.dgn", "mixed-elements.dgn", "seed3d-metric.dgn"}) {
        const std::string file = std::string(KORA_TEST_DATA_DIR "/dgn/") + sample;
        const std::multiset<Element> ours = dgninfoElements(file);
        const std::multiset<Element> gdal = ogrElements(file);
        ASSERT_FALSE(ours.empty()) << sample;
        ASSERT_FALSE(gdal.empty()) << sample;
        // GDAL folds complex elements into one feature and skips non-graphic
        // ones, so each of its features must be among ours.
        for (const Element& e : gdal)
            EXPECT_TRUE(ours.contains(e)) << sample << ": type " << std::get<0>(e) << " level " << std::get<1>(e)
                                          << " text \"" << std::get<4>(e) << "\" is missing";
    }
}

TEST(Dgninfo, ReportsUnitsAndRefusesWhatItCannotRead)
{
    const Output small = run(KORA_BIN_DIR "/dgninfo " KORA_TEST_DATA_DIR "/dgn/smalltest.dgn");
    EXPECT_EQ(small.status, 0);
    EXPECT_NE(small.text.find("10 sub units per master unit, 1000 UOR per sub unit"), std::string::npos) << small.text;
    EXPECT_NE(small.text.find("Dimension: 2D"), std::string::npos);

    const Output v8 = run(KORA_BIN_DIR "/dgninfo " KORA_TEST_DATA_DIR "/dgn/v8/test_dgnv8.dgn");
    EXPECT_EQ(v8.status, 0) << v8.text;
    EXPECT_NE(v8.text.find("Version: V8"), std::string::npos) << v8.text;
    EXPECT_NE(v8.text.find("my_model: 3D, master \"m\", sub \"mm\", 1000 sub units per master unit"), std::string::npos)
        << v8.text;
    EXPECT_NE(v8.text.find("type 17 level=Default colour=256 weight=0 style=0 \"myT\xC3\xA9xt\" at (0 1)"),
              std::string::npos)
        << v8.text;
    EXPECT_NE(v8.text.find("Element count: 58"), std::string::npos) << v8.text;
    EXPECT_NE(run(KORA_BIN_DIR "/dgninfo /no/such/file.dgn").status, 0);
    EXPECT_NE(run(KORA_BIN_DIR "/dgninfo /dev/zero").status, 0); // refused by its first bytes, not read forever
    EXPECT_NE(run(KORA_BIN_DIR "/dgninfo " KORA_TEST_DATA_DIR "/dgn/v8/test_dgnv8_ref.csv").status, 0);
}
