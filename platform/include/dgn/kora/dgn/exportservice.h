// The callback object the DGN import and export libraries receive with
// every translation. The libraries cannot show the caller's dialogs or read
// the host's system variables themselves; they ask through this object,
// which the caller builds on its stack and lends for one call.
#pragma once

#include "kora/export.h"
#include "kora/kostring.h"

class KORA_API KxDgnExportInternalService {
public:
    virtual ~KxDgnExportInternalService();
    // False stops the libraries from asking anything (a batch run).
    virtual bool isEnabled() = 0;
    // Asked for a file the translation is about to write that exists
    // already; answers one of DgnOverwriteChoice.
    virtual int promptFileOverwrite(KoString fileName) = 0;
    virtual bool isUcsIconVisible() = 0;
};

// The answers of promptFileOverwrite. A prompt closed without a choice
// answers kDgnOverwriteCancel.
enum DgnOverwriteChoice : int {
    kDgnOverwriteKeep = 0,       // keep this file as it is and go on
    kDgnOverwriteReplace = 1,    // replace this file
    kDgnOverwriteReplaceAll = 2, // replace this one and every later one without asking
    kDgnOverwriteCancel = 3,     // stop the translation; nothing more is written
};

// The existing-reference operation of the import and export settings: what
// a translation does with a target (a converted reference, an output file)
// that already exists.
enum DgnExistingOperation : int {
    kDgnExistingKeep = 0,      // never overwrite
    kDgnExistingOverwrite = 1, // overwrite without asking
    kDgnExistingAsk = 2,       // ask through promptFileOverwrite
};
