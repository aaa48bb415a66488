#pragma once

#include "commandobject.h"

// DGNBIND (by selection) and -DGNBIND (by name).
class DgnBindCommand : public Kora::DgnCommands::CommandObject {
public:
    KORX_DECLARE_MEMBERS(DgnBindCommand)
    // The selection variant keeps the default mode; only the name variant
    // sets one.
    void setCommandLineMode() { m_commandLineMode = true; }
    void run();
};

namespace Kora::DgnCommands {
void bindBySelection();
void bindByName();
}  // namespace Kora::DgnCommands
