// Stand-ins for the import and export translations until they land: both
// refuse, so callers take their failure paths.
#include "kora/dgn/dgnfile.h"
#include "kora/dgn/translate.h"

int DgnFile::doDgnImport(const DgnImportState&, KoDbDatabase*, KxDgnExportInternalService*, DgnTranslationReport*)
{
    return KORTERROR;
}

int DgnExport::ExportDgnFile(const KoString&, KoDbDatabase*, bool, KxDgnExportInternalService*)
{
    return KORTERROR;
}
