#include "DgnAttachCommand.h"

#include "kora/editor.h"
#include "module.h"

KORX_DEFINE_MEMBERS(DgnAttachCommand, KoEdCommand)

void DgnAttachCommand::run()
{
    ResourceScope scope;
    koresbuf value;
    // A host that cannot answer FILEDIA is treated as one that shows dialogs.
    const int fileDia = koedGetVar(L"FILEDIA", &value) == KORTNORM ? value.resval.rint : 1;
    if (m_commandLineMode) dgn::attachAtCommandLine();
    else dgn::attachWithDialog(fileDia);
}

namespace dgn {

void attachWithDialog(int) {}
void attachAtCommandLine() {}

}  // namespace dgn
