// The two dialogs of DGNATTACH: the host's file dialog and the attach
// options dialog. Both come with the platform's dialog kit; until it is
// there each says so on the command line and answers as if cancelled, so
// the attach flow ends where the dialog would open.
#pragma once

#include "DgnFileLocation.h"

namespace Kora::DgnCommands {

// Opens the file dialog until a file loads; kCancelled when the user gives up.
Located locateByDialog(KoDbUnderlayFile& file, KoString& dgnPath);
// Shows the attach options for the file and, when confirmed, places it.
void attachWithOptionsDialog(const KoString& dgnPath, const KoDbUnderlayFile& file);

}  // namespace Kora::DgnCommands
