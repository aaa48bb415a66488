#include "DgnExportCommand.h"

#include "module.h"

KORX_DEFINE_MEMBERS(DgnExportCommand, KoEdCommand)

void DgnExportCommand::run()
{
    ResourceScope scope;
    if (m_commandLineMode) dgn::exportAtCommandLine();
    else dgn::exportWithDialogs();
}

namespace dgn {

void exportWithDialogs() {}
void exportAtCommandLine() {}

}  // namespace dgn
