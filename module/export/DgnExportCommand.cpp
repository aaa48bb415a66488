#include "DgnExportCommand.h"

#include "module.h"

KORX_DEFINE_MEMBERS(DgnExportCommand, KoEdCommand)

void DgnExportCommand::run()
{
    ResourceScope scope;
    if (m_commandLineMode) Kora::DgnCommands::exportAtCommandLine();
    else Kora::DgnCommands::exportWithDialogs();
}

namespace Kora::DgnCommands {

void exportWithDialogs() {}
void exportAtCommandLine() {}

}  // namespace Kora::DgnCommands
