#include "export/DrawingExportScan.h"

#include <filesystem>

#include "kora/atomicfile.h"
#include "kora/db/database.h"
#include "kora/db/dictionary.h"
#include "kora/db/entities.h"
#include "kora/db/symboltables.h"

namespace Kora::DgnCommands {

namespace {

constexpr double kFlatTolerance = 1e-7;

bool isUnsupported(const KoRxClass* entityClass)
{
    const KoRxClass* const kUnsupported[] = {KoDb3dSolid::desc(), KoDbSurface::desc(), KoDbBody::desc(),
                                             KoDbOleFrame::desc(), KoDbOle2Frame::desc()};
    for (const KoRxClass* cls : kUnsupported) {
        if (entityClass->isDerivedFrom(cls)) return true;
    }
    return false;
}

bool leavesThePlane(const KoDbEntity* entity)
{
    KoDbExtents extents;
    if (entity->getGeomExtents(extents) != eOk) return false;
    const auto off = [](double z) { return z > kFlatTolerance || z < -kFlatTolerance; };
    return off(extents.minPoint().z) || off(extents.maxPoint().z);
}

}  // namespace

DrawingExportScan scanDrawingForExport(KoDbDatabase* database)
{
    DrawingExportScan scan;
    if (!database) return scan;
    KoDbObjectPointer<KoDbBlockTable> table(database->blockTableId());
    if (!table) return scan;
    const KoRxClass* lastClass = nullptr;
    for (auto blocks = table->newIterator(); !blocks->done(); blocks->step()) {
        KoDbObjectId blockId;
        if (blocks->getRecordId(blockId) != eOk) continue;
        KoDbObjectPointer<KoDbBlockTableRecord> block(blockId);
        if (!block || block->xrefStatus() != KoDb::kXrfNotAnXref) continue;
        for (auto entities = block->newIterator(); !entities->done(); entities->step()) {
            KoDbObjectId entityId;
            if (entities->getEntityId(entityId) != eOk) continue;
            KoDbObjectPointer<KoDbEntity> entity(entityId);
            if (!entity) continue;
            // Asked once per run of entities of one class.
            if (entity->isA() != lastClass) {
                lastClass = entity->isA();
                if (!scan.hasUnsupportedEntities) scan.hasUnsupportedEntities = isUnsupported(lastClass);
            }
            if (!scan.has3dContent) scan.has3dContent = leavesThePlane(entity.object());
            if (scan.hasUnsupportedEntities && scan.has3dContent) return scan;
        }
    }
    return scan;
}

std::vector<KoString> layoutFileList(KoDbDatabase* database, const KoString& outputPath)
{
    std::vector<KoString> files;
    if (!database || outputPath.isEmpty()) return files;
    KoDbObjectPointer<KoDbBlockTable> table(database->blockTableId());
    if (!table) return files;
    const int dot = outputPath.reverseFind(L'.');
    const KoString stem = dot < 0 ? outputPath : outputPath.left(dot);
    const KoString extension = dot < 0 ? KoString() : outputPath.mid(dot);
    const KoDbObjectId modelSpace = database->modelSpaceId();
    for (auto blocks = table->newIterator(); !blocks->done(); blocks->step()) {
        KoDbObjectId blockId;
        if (blocks->getRecordId(blockId) != eOk || blockId == modelSpace) continue;
        KoDbObjectPointer<KoDbBlockTableRecord> block(blockId);
        if (!block || !block->isLayout()) continue;
        KoDbObjectPointer<KoDbLayout> layout(block->getLayoutId());
        if (!layout || layout->getViewportArray().empty()) continue;
        files.push_back(stem + L" - " + layout->getLayoutName() + extension);
    }
    return files;
}

bool probeWrite(const KoString& path)
{
    auto writer = AtomicFileWriter::create(std::filesystem::path(path.toUtf8()));
    return writer && writer->commit().has_value();
}

}  // namespace Kora::DgnCommands
