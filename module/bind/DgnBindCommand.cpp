#include "DgnBindCommand.h"

#include "module.h"

KORX_DEFINE_MEMBERS(DgnBindCommand, KoEdCommand)

void DgnBindCommand::run()
{
    ResourceScope scope;
    if (m_commandLineMode) Kora::DgnCommands::bindByName();
    else Kora::DgnCommands::bindBySelection();
}

namespace Kora::DgnCommands {

void bindBySelection() {}
void bindByName() {}

}  // namespace Kora::DgnCommands
