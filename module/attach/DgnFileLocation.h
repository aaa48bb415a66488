// Turning what the user typed (or picked) into a loaded DGN file: the path
// prompt, FTP locations with their credentials, the search path, and the
// two refusals of the load (not V7/V8, no model).
#pragma once

#include "kora/dgn/underlayservice.h"

namespace Kora::DgnCommands {

// kNoDisplay: the file dialog was wanted but cannot be shown.
enum class Located { kLoaded, kFileDialog, kCancelled, kNoDisplay };

// Where refusals are told: on the command line, or in message boxes (the
// dialog flow).
enum class Report { kCommandLine, kMessageBox };

// Asks for the path until a file loads (kLoaded, with `file` and `dgnPath`
// set), the user types "~" (kFileDialog) or cancels. FTP locations are
// fetched only when `allowFtp`; otherwise they are searched like names.
Located locateByPrompt(bool allowFtp, Report report, KoDbUnderlayFile& file, KoString& dgnPath);

// Asks for an FTP account and password; false when either is cancelled.
bool promptFtpCredentials(KoString& account, KoString& password);
// The location with the credentials written in after its "ftp://" prefix.
// Unchanged when both are empty or the path is too short to hold a prefix.
KoString buildFtpUrl(const KoString& path, const KoString& account, const KoString& password);

enum class LoadResult { kLoaded, kUnsupported, kNoModel };
// Loads the file for attaching and tells the user why when it cannot.
LoadResult loadDgn(const KoString& dgnPath, KoDbUnderlayFile& file, Report report);

// Shows an error of the attach flow the way `report` says.
void reportError(const KoString& message, Report report);

}  // namespace Kora::DgnCommands
