// Per-user folders. They follow the XDG base directories (XDG_CONFIG_HOME,
// XDG_DATA_HOME, defaulting to ~/.config and ~/.local/share), each with a
// "kora" folder in it. When KORA_USER_ROOT is set the whole per-user tree
// moves under it: "$KORA_USER_ROOT/config/kora", "$KORA_USER_ROOT/data/kora"
// and "$KORA_USER_ROOT/Documents" (tests and portable installs use this).
#pragma once

#include "kora/export.h"
#include "kora/kostring.h"

// "<data>/Support/", ending with "/"; the folder is created when missing.
// Answers false when the buffer is too small or the folder cannot be made.
KORA_API bool GetUserApplicationDataSupportPath(wchar_t* buffer, unsigned size);

// "<data>/Template" WITHOUT a trailing "/" (callers append "/" and a file
// name); the folder is created when missing. Answers false as above.
KORA_API bool GetUserLocalApplicationDataTemplatePath(wchar_t* buffer, unsigned size);

// The per-user configuration folder, without a trailing "/"; created on
// demand (when that fails, writing into it fails later with a clear status).
KORA_API KoString koraUserConfigFolder();

// The user's documents folder: XDG_DOCUMENTS_DIR of the user's
// "user-dirs.dirs" when it names one, else "$HOME/Documents". Not created.
KORA_API KoString koraUserDocumentsFolder();

// The login name of the user the process runs as.
KORA_API KoString koraUserName();
