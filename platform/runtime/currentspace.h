// Adding entities where the user draws: model space, or the sheet that is
// current when model space is not.
#pragma once

#include "kora/db/database.h"

namespace Kora::Runtime {

KoDbObjectId currentSpaceId(const KoDbDatabase& database);
// Appends the entity and closes it. On failure the caller still owns it.
Kora::ErrorStatus appendToCurrentSpace(KoDbDatabase& database, KoDbEntity* entity, KoDbObjectId& id);

}  // namespace Kora::Runtime
