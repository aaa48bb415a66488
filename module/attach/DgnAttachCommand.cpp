#include "DgnAttachCommand.h"

#include "kora/editor.h"
#include "module.h"

KORX_DEFINE_MEMBERS(DgnAttachCommand, KoEdCommand)

void DgnAttachCommand::run()
{
    ResourceScope scope;
    const int fileDia = fileDialogSetting();
    if (m_commandLineMode) Kora::DgnCommands::attachAtCommandLine();
    else Kora::DgnCommands::attachWithDialog(fileDia);
}

int DgnAttachCommand::fileDialogSetting()
{
    koresbuf value;
    // A host that cannot answer FILEDIA is treated as one that shows dialogs.
    return koedGetVar(L"FILEDIA", &value) == KORTNORM ? value.resval.rint : 1;
}

namespace Kora::DgnCommands {

void attachWithDialog(int) {}
void attachAtCommandLine() {}

}  // namespace Kora::DgnCommands
