// Stand-in for the import translation until it lands: it refuses, so
// callers take their failure path.
#include "kora/dgn/dgnfile.h"
#include "kora/dgn/translate.h"

int DgnFile::doDgnImport(const DgnImportState&, KoDbDatabase*, KxDgnExportInternalService*, DgnTranslationReport*)
{
    return KORTERROR;
}
