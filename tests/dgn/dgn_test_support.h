// Helpers of the DGN codec tests: sample files, temporary folders, and the
// outside programs (GDAL's ogrinfo through a small Python script, file)
// that check our reader and writer against code nobody here wrote.
#pragma once

#include <gtest/gtest.h>

#include <cstdio>
#include <filesystem>
#include <fstream>
#include <sstream>
#include <string>
#include <vector>

#include "kora/dgn/v7/reader.h"

namespace Kora::Test {

inline std::filesystem::path sample(const std::string& name)
{
    return std::filesystem::path(KORA_TEST_DATA_DIR) / "dgn" / name;
}

// A sample's bytes as they are on disk, DGN or not.
inline std::vector<std::byte> sampleBytes(const std::string& name)
{
    std::ifstream in(sample(name), std::ios::binary);
    if (!in) ADD_FAILURE() << "missing fixture " << name;
    std::vector<std::byte> bytes;
    for (char c; in.get(c);) bytes.push_back(static_cast<std::byte>(c));
    return bytes;
}

// A fresh folder for one test's files.
inline std::filesystem::path scratch(const std::string& name)
{
    const auto folder = std::filesystem::path(testing::TempDir()) / ("kora-dgn-" + name);
    std::filesystem::remove_all(folder);
    std::filesystem::create_directories(folder);
    return folder;
}

struct Output {
    int status = -1;
    std::string text;
};

inline Output run(const std::string& command)
{
    Output out;
    FILE* pipe = ::popen((command + " 2>&1").c_str(), "r");
    if (!pipe) return out;
    char buffer[4096];
    std::size_t got = 0;
    while ((got = std::fread(buffer, 1, sizeof buffer, pipe)) > 0) out.text.append(buffer, got);
    out.status = ::pclose(pipe);
    return out;
}

inline std::string quoted(const std::filesystem::path& path)
{
    return "'" + path.string() + "'";
}

// One feature as GDAL's DGN driver reports it (see ogr_dump.py).
struct OgrFeature {
    std::size_t fid = 0;
    int type = 0, level = 0, colour = 0, weight = 0, style = 0;
    std::string text;
    std::string geometry;
    std::vector<Kora::Dgn::V7::DoublePoint> points;
    std::string styleString;
};

inline std::vector<std::string> split(const std::string& s, char sep)
{
    std::vector<std::string> parts;
    std::string part;
    std::istringstream in(s);
    while (std::getline(in, part, sep)) parts.push_back(part);
    if (!s.empty() && s.back() == sep) parts.emplace_back();
    return parts;
}

inline std::vector<OgrFeature> ogrFeatures(const std::filesystem::path& file)
{
    const Output out = run("/usr/bin/python3 " + quoted(std::filesystem::path(KORA_DGN_TEST_DIR) / "ogr_dump.py") + " "
                           + quoted(file));
    EXPECT_EQ(out.status, 0) << out.text;
    std::vector<OgrFeature> features;
    std::istringstream lines(out.text);
    std::string line;
    while (std::getline(lines, line)) {
        const auto f = split(line, '|');
        if (f.size() != 10) continue; // GDAL's warnings
        OgrFeature feature;
        feature.fid = std::stoul(f[0]);
        feature.type = std::stoi(f[1]);
        feature.level = std::stoi(f[2]);
        feature.colour = std::stoi(f[3]);
        feature.weight = std::stoi(f[4]);
        feature.style = std::stoi(f[5]);
        for (std::size_t i = 0; i + 1 < f[6].size(); i += 2)
            feature.text += static_cast<char>(std::stoi(f[6].substr(i, 2), nullptr, 16));
        feature.geometry = f[7];
        for (const std::string& p : split(f[8], ';')) {
            if (p.empty()) continue;
            std::istringstream xyz(p);
            Kora::Dgn::V7::DoublePoint point;
            xyz >> point.x >> point.y >> point.z;
            feature.points.push_back(point);
        }
        feature.styleString = f[9];
        features.push_back(std::move(feature));
    }
    return features;
}

} // namespace Kora::Test
