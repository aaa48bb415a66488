#pragma once

#include "commandobject.h"

// DGNIMPORT and -DGNIMPORT.
class DgnImportCommand : public Kora::DgnCommands::CommandObject {
public:
    KORX_DECLARE_MEMBERS(DgnImportCommand)
    void setCommandLineMode(bool on) { m_commandLineMode = on; }
    void run();
};

namespace Kora::DgnCommands {
void importWithDialogs();
void importAtCommandLine();
}  // namespace Kora::DgnCommands
