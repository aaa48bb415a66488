#include "DgnAttachDialogs.h"

#include "kora/editor.h"

namespace Kora::DgnCommands {

namespace {

void reportMissingDialog(const wchar_t* dialog)
{
    koutPrintf(L"\nThe %s needs the dialog kit, which this build does not have yet; "
               L"type the file's path at the -DGNATTACH prompt instead.\n",
               dialog);
}

}  // namespace

Located locateByDialog(KoDbUnderlayFile&, KoString&)
{
    reportMissingDialog(L"file dialog");
    return Located::kCancelled;
}

void attachWithOptionsDialog(const KoString&, const KoDbUnderlayFile&) { reportMissingDialog(L"attach options dialog"); }

}  // namespace Kora::DgnCommands
