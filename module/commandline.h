// The command-line conversation the import and export commands share:
// prompts read with the host's editor, lines printed, the last folders kept
// in the host's configuration, and the mapping setup prompt.
#pragma once

#include "kora/dgn/translate.h"
#include "kora/kostring.h"
#include "mapping/DgnMappingSetup.h"

namespace Kora::DgnCommands {

// The reply buffer of every prompt, in characters.
inline constexpr int kReplyChars = 260;

// Asks with spaces allowed; answers the host's result code.
int askString(const KoString& prompt, KoString& reply);
// Asks for one of `keywords`; `reply` is the global keyword.
int askKeyword(const KoString& keywords, const KoString& prompt, KoString& reply);
// Prints a message on a line of its own.
void printLine(const KoString& message);
// Said when "~" at a file prompt finds no display for the file dialog;
// the command then ends as if the dialog had been closed.
void reportFileDialogNeedsDisplay();
// The last line of a translation: successful, failed or cancelled.
void printOutcome(int result, const DgnTranslationReport& report);
// A short system variable, or `fallback` when the host cannot answer.
int shortVariable(const wchar_t* name, int fallback);
void setShortVariable(const wchar_t* name, int value);

// The units prompt; `subUnits` is 0 for master units, 1 for sub units,
// and keeps its value on Enter. False when the user cancels.
bool askUnits(int& subUnits);

// The folder part of a path, separator included ("" for a bare name).
KoString folderOf(const KoString& path);
// The last folder a file dialog of `dialog` ("DgnImportFileDlg", ...) was
// in; false when nothing is kept.
bool readInitialDirectory(const wchar_t* dialog, KoString& folder);
void storeInitialDirectory(const wchar_t* dialog, const KoString& folder);

// The mapping setup prompt with its "?" listing. A name is accepted when
// it is the standard setup's or that of a setup of kind `kind`, in any
// letter case; `chosen` is then the setup's own spelling. `heading` is
// printed above the listing when not empty. A name found at the listing
// prompt is printed, and with `listedBecomesDefault` it is offered as the
// default from then on. False when the user cancels.
bool askMappingSetup(const DgnMappingSetupStore& store, int kind, const KoString& heading, KoString defaultName,
                     bool listedBecomesDefault, KoString& chosen);

}  // namespace Kora::DgnCommands
