#include "DgnAttachCommand.h"

#include "kora/editor.h"
#include "module.h"

KORX_DEFINE_MEMBERS(DgnAttachCommand, KoEdCommand)

void DgnAttachCommand::run()
{
    ResourceScope scope;
    const int fileDia = fileDialogSetting();
    if (m_commandLineMode) dgn::attachAtCommandLine();
    else dgn::attachWithDialog(fileDia);
}

int DgnAttachCommand::fileDialogSetting()
{
    koresbuf value;
    // A host that cannot answer FILEDIA is treated as one that shows dialogs.
    return koedGetVar(L"FILEDIA", &value) == KORTNORM ? value.resval.rint : 1;
}

namespace dgn {

void attachWithDialog(int) {}
void attachAtCommandLine() {}

}  // namespace dgn
