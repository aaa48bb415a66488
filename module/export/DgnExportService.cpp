#include "export/DgnExportService.h"

#include "kora/editor.h"
#include "module.h"

bool KxDgnExportInternalServiceImp::isEnabled() { return true; }

int KxDgnExportInternalServiceImp::promptFileOverwrite(KoString)
{
    ResourceScope scope;
    return kDgnOverwriteCancel;
}

bool KxDgnExportInternalServiceImp::isUcsIconVisible()
{
    koresbuf value;
    if (koedGetVar(L"UCSICON", &value) != KORTNORM) return false;
    return (value.resval.rint & 1) != 0;
}
