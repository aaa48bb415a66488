// The rules every name given to a mapping setup passes, whichever dialog
// it is typed into: the setup list's rename, the new setup dialog and the
// setup list box's editor share them, messages included.
#pragma once

#include "kora/kostring.h"
#include "mapping/DgnMappingSetup.h"

namespace Kora::DgnCommands {

// Names are at most this long (after trimming).
inline constexpr int kMaxSetupNameLength = 255;

// The character check: not empty, no leading blank, under 256 characters,
// and none of " * , / : ; < = > ? \ ` | except in the drawing format's
// escapes \U+XXXX and \M+NXXXX.
bool isValidSetupNameText(const KoString& name);

// The length and character checks on an already trimmed name, each failure
// told in a warning message box. True when the name passes both.
bool checkSetupNameText(const KoString& trimmedName);

// Says that a setup of that name exists already.
void reportDuplicateSetupName(const KoString& name);

// "Current user: <login>", the label of the setup dialogs.
KoString currentUserLabel();

// The name proposed for a new setup made from `baseName`: "Copy of Roads",
// or "Copy of Roads (2)", (3), ... when that is taken in the store.
KoString proposedSetupName(const KoString& baseName, const DgnMappingSetupStore& store);

// The localised texts of the setup dialogs, with the built-in wording when
// the resource library lacks them.
KoString setupText(unsigned id);

}  // namespace Kora::DgnCommands
