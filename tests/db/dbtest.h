// Helpers of the database tests: entities and table records added, the DXF
// fixtures ezdxf wrote, a folder per test, and ezdxf's audit of what we
// wrote.
#pragma once

#include <gtest/gtest.h>

#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <string>

#include "kora/db/database.h"

namespace Kora::Test {

namespace fs = std::filesystem;

inline KoDbObjectId appendToModel(KoDbDatabase& db, KoDbEntity* entity)
{
    KoDbObjectPointer<KoDbBlockTableRecord> model(db.modelSpaceId(), KoDb::kForWrite);
    EXPECT_EQ(model.openStatus(), Kora::eOk);
    KoDbObjectId id;
    EXPECT_EQ(model->appendKoDbEntity(id, entity), Kora::eOk);
    EXPECT_EQ(entity->close(), Kora::eOk);
    return id;
}

// A new record of a symbol table (a layer, a linetype, a block), added
// under `name`.
template <class Table, class Record>
KoDbObjectId addRecord(KoDbObjectId tableId, const wchar_t* name)
{
    KoDbObjectPointer<Table> table(tableId, KoDb::kForWrite);
    auto* record = new Record;
    record->setName(name);
    KoDbObjectId id;
    EXPECT_EQ(table->add(id, record), Kora::eOk);
    record->close();
    return id;
}

inline fs::path fixture(const char* name)
{
    fs::path p = fs::path(KORA_DB_FIXTURES) / name;
    if (!fs::exists(p)) ADD_FAILURE() << "missing fixture " << p;
    return p;
}

// A folder of the test's own under the build tree.
inline fs::path workDir(const std::string& name)
{
    const char* root = std::getenv("KORA_USER_ROOT");
    fs::path dir = fs::path(root ? root : fs::temp_directory_path().string()) / "dxf" / name;
    fs::remove_all(dir);
    fs::create_directories(dir);
    return dir;
}

inline KoString wide(const fs::path& p) { return KoString::fromUtf8(p.string()); }

inline std::string run(const std::string& command, int& status)
{
    std::string out;
    FILE* pipe = popen((command + " 2>&1").c_str(), "r");
    char buf[4096];
    while (pipe && fgets(buf, sizeof buf, pipe)) out += buf;
    status = pipe ? pclose(pipe) : -1;
    return out;
}

// ezdxf's own audit command on a file we wrote.
inline void expectAuditClean(const fs::path& file)
{
    int status = 0;
    const std::string out = run("/usr/bin/python3 -m ezdxf audit '" + file.string() + "'", status);
    EXPECT_EQ(status, 0) << out;
    EXPECT_NE(out.find("No errors found."), std::string::npos) << out;
    EXPECT_EQ(out.find("fixed"), std::string::npos) << out;
}

}  // namespace Kora::Test
