#include "DgnBindCommand.h"

#include "module.h"

KORX_DEFINE_MEMBERS(DgnBindCommand, KoEdCommand)

void DgnBindCommand::run()
{
    ResourceScope scope;
    if (m_commandLineMode) dgn::bindByName();
    else dgn::bindBySelection();
}

namespace dgn {

void bindBySelection() {}
void bindByName() {}

}  // namespace dgn
