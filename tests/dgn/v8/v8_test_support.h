// The V8 sample, its bytes and its reference listing (what a V8-capable
// reader reports for each feature), for the V8 reader's and importer's tests.
#pragma once

#include <gtest/gtest.h>

#include <filesystem>
#include <fstream>
#include <sstream>
#include <string>
#include <vector>

#include "kora/dgn/v8/reader.h"

namespace Kora::Test {

inline std::filesystem::path v8Sample()
{
    return std::filesystem::path(KORA_TEST_DATA_DIR) / "dgn" / "v8" / "test_dgnv8.dgn";
}

inline std::vector<std::byte> v8SampleBytes()
{
    auto bytes = Kora::Dgn::V8::readFileBytes(v8Sample());
    if (!bytes) ADD_FAILURE() << bytes.error().message;
    return bytes ? *bytes : std::vector<std::byte>{};
}

struct Feature {
    std::string wkt;
    int type = 0, level = 0, group = 0, colour = 0, weight = 0, style = 0;
    std::string text;
};

// One CSV record; fields may be quoted with "" for a quote.
inline std::vector<std::string> csvFields(std::istream& in)
{
    std::vector<std::string> fields(1);
    bool quoted = false;
    for (char c; in.get(c);) {
        if (quoted) {
            if (c == '"' && in.peek() == '"') fields.back() += static_cast<char>(in.get());
            else if (c == '"') quoted = false;
            else fields.back() += c;
        } else if (c == '"') {
            quoted = true;
        } else if (c == ',') {
            fields.emplace_back();
        } else if (c == '\n') {
            return fields;
        } else {
            fields.back() += c;
        }
    }
    return fields.size() > 1 ? fields : std::vector<std::string>{};
}

inline std::vector<Feature> referenceFeatures()
{
    std::ifstream in(std::filesystem::path(KORA_TEST_DATA_DIR) / "dgn" / "v8" / "test_dgnv8_ref.csv");
    std::vector<Feature> features;
    csvFields(in); // the column names
    for (auto f = csvFields(in); !f.empty(); f = csvFields(in)) {
        EXPECT_GE(f.size(), 8u);
        features.push_back({f[0], std::stoi(f[1]), std::stoi(f[2]), std::stoi(f[3]), std::stoi(f[4]),
                            std::stoi(f[5]), std::stoi(f[6]), f[7]});
    }
    return features;
}

// The innermost point lists of a WKT text, in order: a polygon's rings, a
// compound curve's parts, a multipoint's points.
inline std::vector<std::vector<Kora::Dgn::V8::Point>> wktParts(const std::string& wkt)
{
    std::vector<std::vector<Kora::Dgn::V8::Point>> parts;
    const bool hasZ = wkt.find(" Z ") != std::string::npos;
    std::size_t at = 0;
    while ((at = wkt.find('(', at)) != std::string::npos) {
        const std::size_t end = wkt.find_first_of("()", at + 1);
        if (wkt[end] == '(') {
            at = end;
            continue;
        }
        std::vector<Kora::Dgn::V8::Point> points;
        std::istringstream list(wkt.substr(at + 1, end - at - 1));
        for (std::string point; std::getline(list, point, ',');) {
            std::istringstream xyz(point);
            Kora::Dgn::V8::Point p;
            xyz >> p.x >> p.y;
            if (hasZ) xyz >> p.z;
            points.push_back(p);
        }
        parts.push_back(std::move(points));
        at = end + 1;
    }
    return parts;
}

} // namespace Kora::Test
