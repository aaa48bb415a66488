#include "DgnImportCommand.h"

#include "module.h"

KORX_DEFINE_MEMBERS(DgnImportCommand, KoEdCommand)

void DgnImportCommand::run()
{
    ResourceScope scope;
    if (m_commandLineMode) Kora::DgnCommands::importAtCommandLine();
    else Kora::DgnCommands::importWithDialogs();
}

namespace Kora::DgnCommands {

void importWithDialogs() {}
void importAtCommandLine() {}

}  // namespace Kora::DgnCommands
