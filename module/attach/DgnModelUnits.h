// Choosing the model of a loaded DGN file and the unit set that maps to
// drawing units, at the command line, and the scale that follows from them.
#pragma once

#include "kora/dgn/underlayservice.h"

namespace Kora::DgnCommands {

// 1 with `modelName` set, 0 when the user cancelled.
int chooseModel(const KoDbUnderlayFile& file, KoString& modelName, const KoString& dgnPath);
// 1 with `useMasterUnits` updated (Enter keeps it), 0 when cancelled.
int chooseUnits(bool& useMasterUnits);
// Replaces `scale` with the factor from the model's chosen unit to INSUNITS
// when both are known; leaves it otherwise.
void unitScale(const KoDbUnderlayFile& file, const KoString& modelName, bool useMasterUnits, double& scale);

}  // namespace Kora::DgnCommands
