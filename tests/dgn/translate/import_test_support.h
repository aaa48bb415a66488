// Helpers of the import and bind tests: running an import, listing what it
// made, and auditing the drawing with ezdxf.
#pragma once

#include "dbtest.h"
#include "dgn_test_support.h"

#include <map>
#include <string>
#include <vector>

#include "kora/db/database.h"
#include "kora/dgn/dgnfile.h"
#include "kora/dgn/translate.h"
#include "kora/dxf/dxf.h"

namespace Kora::Test {

inline int importFile(const std::filesystem::path& file, KoDbDatabase& db, DgnTranslationReport& report,
                      DgnImportState state = {}, KxDgnExportInternalService* service = nullptr)
{
    state.file = wide(file);
    return DgnFile::doDgnImport(state, &db, service, &report);
}

// The entities of one block, in drawing order.
inline std::vector<KoDbObjectId> entitiesOf(KoDbObjectId blockId)
{
    std::vector<KoDbObjectId> ids;
    KoDbObjectPointer<KoDbBlockTableRecord> block(blockId);
    if (block.openStatus() != Kora::eOk) return ids;
    for (auto it = block->newIterator(); !it->done(); it->step()) {
        KoDbObjectId id;
        it->getEntityId(id);
        ids.push_back(id);
    }
    return ids;
}

inline std::string dxfNameOf(KoDbObjectId id)
{
    KoDbObjectPointer<KoDbEntity> entity(id);
    return entity.openStatus() == Kora::eOk ? kodbDxfName(entity.object()) : std::string();
}

inline std::string layerOf(KoDbObjectId id)
{
    KoDbObjectPointer<KoDbEntity> entity(id);
    return entity->layer().toUtf8();
}

// Names of the live records of a symbol table.
inline std::vector<std::string> recordNames(KoDbObjectId tableId)
{
    std::vector<std::string> names;
    KoDbObjectPointer<KoDbSymbolTable> table(tableId);
    for (auto it = table->newIterator(); !it->done(); it->step()) {
        KoDbSymbolTableRecord* record = nullptr;
        it->getRecord(record);
        names.push_back(record->getName().toUtf8());
        record->close();
    }
    return names;
}

inline bool hasName(const std::vector<std::string>& names, const std::string& name)
{
    return std::find(names.begin(), names.end(), name) != names.end();
}

// The drawing's tables and model space entities (by handle): equal
// snapshots mean an import left nothing behind.
struct Snapshot {
    std::vector<std::string> layers, linetypes, blocks;
    std::vector<std::uint64_t> entities;
    bool operator==(const Snapshot&) const = default;
};

inline Snapshot snapshot(const KoDbDatabase& db)
{
    Snapshot s{recordNames(db.layerTableId()), recordNames(db.linetypeTableId()), recordNames(db.blockTableId()), {}};
    for (const KoDbObjectId id : entitiesOf(db.modelSpaceId())) s.entities.push_back(id.handle().value());
    return s;
}

inline void expectAuditClean(const KoDbDatabase& db, const std::filesystem::path& file)
{
    KoString message;
    ASSERT_EQ(kodbWriteDxfFile(db, wide(file), &message), Kora::eOk) << message.toUtf8();
    const Output out = run("/usr/bin/python3 -m ezdxf audit " + quoted(file));
    EXPECT_EQ(out.status, 0) << out.text;
    EXPECT_NE(out.text.find("No errors found."), std::string::npos) << out.text;
    EXPECT_EQ(out.text.find("fixed"), std::string::npos) << out.text;
}

inline bool near(double a, double b, double relative = 1e-9)
{
    return std::abs(a - b) <= relative * std::max({1.0, std::abs(a), std::abs(b)});
}

inline bool near(const KoGePoint3d& p, const Kora::Dgn::V7::DoublePoint& q, double relative = 1e-9)
{
    return near(p.x, q.x, relative) && near(p.y, q.y, relative) && near(p.z, q.z, relative);
}

} // namespace Kora::Test
