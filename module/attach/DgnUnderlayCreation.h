// The two objects an attached DGN file becomes: the definition, kept under
// a name in the drawing's DGN underlay dictionary, and the reference entity
// that places it.
#pragma once

#include "kora/db/underlay.h"

namespace Kora::DgnCommands {

// The dictionary key for `modelName` of the file at `dgnPath`: the existing
// definition's key when the drawing already holds that file and model,
// else a new name unique among the drawing's definitions.
KoString nameDefinition(const KoString& dgnPath, const KoString& modelName);
// False (with a message) when an ordinary block of the drawing bears the
// name; a definition named like it would be bound over that block.
bool definitionNameIsFree(const KoString& definitionName);
// The id of the definition stored under `definitionName`, created when
// there is none (null when it cannot be stored). An existing one is reused
// as it is.
KoDbObjectId prepareDefinition(KoDbDatabase* database, const KoString& sourceFileName,
                               const KoString& activeFileName, const KoString& modelName,
                               const KoString& definitionName, bool useMasterUnits);
// A new reference to `definitionId`, not yet in the database.
KoDbDgnReference* createReference(KoDbDatabase* database, KoDbObjectId definitionId, double scale,
                                  double rotation, const KoGePoint3d& insertionPoint);
// Gives the reference the layer states of its definition's model.
void copyLayerStates(KoDbUnderlayReference* reference);
// After a cancelled placement: erases the definition unless a live
// reference still uses it, and the dictionary when it is left empty.
void undoDefinition(KoDbDatabase* database, const KoString& definitionName);

}  // namespace Kora::DgnCommands
