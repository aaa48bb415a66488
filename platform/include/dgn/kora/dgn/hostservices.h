// The DGN side of the host: what the generic runtime knows nothing of.
// Loading this library registers the DGN system variables with the
// runtime (DGNIMPORTMODE and _KX_DGNEXPORTTYPE, with their defaults), so
// every process that can read DGN files has them.
#pragma once

#include "kora/export.h"
#include "kora/kostring.h"

// Copies the seed files of `sourceFolder` (*.dgn) that the user's template
// folder does not have yet; files already there are never replaced, so a
// user's own edits survive. Answers how many were copied.
KORA_API int koraInstallMissingSeeds(const KoString& sourceFolder);

// The folder the host installs its seed files in: share/kora/seeds beside
// the folder of the running executable.
KORA_API KoString koraInstalledSeedFolder();
