// The two dialogs of DGNATTACH, both from the platform's dialog kit: the
// file dialog and the attach options dialog.
#pragma once

#include <vector>

#include "DgnFileLocation.h"

namespace Kora::DgnCommands {

// Opens the file dialog until a file loads; kCancelled when the user gives
// up, kNoDisplay when no dialog can be shown. Refusals go to message boxes.
Located locateByDialog(KoDbUnderlayFile& file, KoString& dgnPath);
// Shows the attach options for the file and, when confirmed, places it.
// Without a display it says so and ends.
void attachWithOptionsDialog(const KoString& dgnPath, const KoDbUnderlayFile& file);

// The models of the DGN file at `path`, in file order; none when it does
// not load. The options dialog asks it about files the user browses to.
std::vector<KoString> modelsOf(const KoString& path);

}  // namespace Kora::DgnCommands
