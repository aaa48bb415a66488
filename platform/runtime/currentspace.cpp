#include "currentspace.h"

namespace Kora::Runtime {

KoDbObjectId currentSpaceId(const KoDbDatabase& database)
{
    return database.tilemode() ? database.modelSpaceId() : database.paperSpaceId();
}

Kora::ErrorStatus appendToCurrentSpace(KoDbDatabase& database, KoDbEntity* entity, KoDbObjectId& id)
{
    KoDbBlockTableRecord* space = nullptr;
    Kora::ErrorStatus es = kodbOpenObject(space, currentSpaceId(database), KoDb::kForWrite);
    if (es != Kora::eOk) return es;
    es = space->appendKoDbEntity(id, entity);
    space->close();
    if (es == Kora::eOk) entity->close();
    return es;
}

}  // namespace Kora::Runtime
