// Helpers of the DGN export tests, beside those of the database tests
// (dbtest.h) and of the codec tests (dgn_test_support.h): drawings read
// from ezdxf fixtures, the built seeds, and exports run with a test editor that records what the
// export printed.
#pragma once

#include <gtest/gtest.h>

#include <memory>

#include "dbtest.h"
#include "dgn_test_support.h"
#include "kora/db/database.h"
#include "kora/dgn/translate.h"
#include "kora/dxf/dxf.h"
#include "testeditor.h"

namespace Kora::Test {

inline std::unique_ptr<KoDbDatabase> readDrawing(const std::filesystem::path& path)
{
    auto db = std::make_unique<KoDbDatabase>(false);
    KoString message;
    EXPECT_EQ(kodbReadDxfFile(*db, KoString::fromUtf8(path.string()), &message), Kora::eOk) << message.toUtf8();
    return db;
}

inline KoString seed(const char* name)
{
    return KoString::fromUtf8((std::filesystem::path(KORA_SEED_DIR) / name).string());
}

inline std::string fileText(const std::filesystem::path& path)
{
    std::ifstream in(path, std::ios::binary);
    return std::string(std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>());
}

// Runs one export; `printed` gets what it printed.
inline int runExport(DgnExport& exporter, const std::filesystem::path& path, KoDbDatabase& db,
                     KxDgnExportInternalService* service = nullptr, KoString* printed = nullptr, bool v7 = true)
{
    TestEditor editor;
    const int result = exporter.ExportDgnFile(wide(path), &db, v7, service);
    if (printed) *printed = editor.transcript();
    return result;
}

inline Kora::Dgn::V7::Design design(const std::filesystem::path& path)
{
    auto d = Kora::Dgn::V7::readDesignFile(path);
    EXPECT_TRUE(d.has_value()) << (d ? "" : d.error().describe());
    return d ? std::move(*d) : Kora::Dgn::V7::Design{};
}

} // namespace Kora::Test
