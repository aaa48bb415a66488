// Helpers of the kora_dgn tests: the samples of tests/data, the built seeds, the
// ezdxf drawing, and scratch folders inside the test's own user tree.
#pragma once

#include <gtest/gtest.h>

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <string>
#include <vector>

#include "kora/kostring.h"

// Failures show names as text.
inline void PrintTo(const KoString& text, std::ostream* out) { *out << '"' << text.toUtf8() << '"'; }

namespace Kora::Test {

inline KoString wide(const std::filesystem::path& path) { return KoString::fromUtf8(path.string()); }

// A missing fixture fails the test that asked for it.
inline std::filesystem::path existing(const std::filesystem::path& path)
{
    if (!std::filesystem::exists(path)) ADD_FAILURE() << "missing fixture " << path;
    return path;
}

inline std::filesystem::path sample(const std::string& name)
{
    return existing(std::filesystem::path(KORA_TEST_DATA_DIR) / "dgn" / name);
}

inline std::filesystem::path seed(const std::string& name)
{
    return existing(std::filesystem::path(KORA_SEED_DIR) / name);
}

inline std::filesystem::path drawing(const std::string& name)
{
    return existing(std::filesystem::path(KORA_DGN_LIBRARY_FIXTURES) / name);
}

// A fresh folder for one test's files.
inline std::filesystem::path scratch(const std::string& name)
{
    const char* root = std::getenv("KORA_USER_ROOT");
    const auto folder = std::filesystem::path(root ? root : testing::TempDir()) / "dgn-library" / name;
    std::filesystem::remove_all(folder);
    std::filesystem::create_directories(folder);
    return folder;
}

inline std::vector<char> fileBytes(const std::filesystem::path& path)
{
    std::ifstream in(path, std::ios::binary);
    if (!in) ADD_FAILURE() << "cannot read " << path;
    return {std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>()};
}

inline void writeFile(const std::filesystem::path& path, const std::vector<char>& bytes)
{
    std::ofstream out(path, std::ios::binary);
    out.write(bytes.data(), static_cast<std::streamsize>(bytes.size()));
    if (!out) ADD_FAILURE() << "cannot write " << path;
}

}  // namespace Kora::Test
