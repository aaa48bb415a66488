// The callback object the DGN import and export libraries receive with
// every translation: it answers for the module whether an existing file may
// be overwritten and whether the UCS icon is on.
#pragma once

#include "kora/dgn/exportservice.h"

class KxDgnExportInternalServiceImp : public KxDgnExportInternalService {
public:
    bool isEnabled() override;
    // The overwrite prompt is a dialog; until the module has one nothing
    // can be shown, and the answer is that of a prompt closed without a
    // choice (kDgnOverwriteCancel).
    int promptFileOverwrite(KoString fileName) override;
    // Bit 0 of "UCSICON"; a variable the host cannot read counts as off.
    bool isUcsIconVisible() override;
};
