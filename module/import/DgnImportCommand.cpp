#include "DgnImportCommand.h"

#include "module.h"

KORX_DEFINE_MEMBERS(DgnImportCommand, KoEdCommand)

void DgnImportCommand::run()
{
    ResourceScope scope;
    if (m_commandLineMode) dgn::importAtCommandLine();
    else dgn::importWithDialogs();
}

namespace dgn {

void importWithDialogs() {}
void importAtCommandLine() {}

}  // namespace dgn
