#pragma once

#include "commandobject.h"

// DGNEXPORT and -DGNEXPORT.
class DgnExportCommand : public Kora::DgnCommands::CommandObject {
public:
    KORX_DECLARE_MEMBERS(DgnExportCommand)
    void setCommandLineMode(bool on) { m_commandLineMode = on; }
    void run();
    // The export class names its (empty) resource instance by module name.
    KoRxResourceInstance resourceInstance() const override { return KoRxResourceInstance(L""); }
};

namespace Kora::DgnCommands {
void exportWithDialogs();
void exportAtCommandLine();
}  // namespace Kora::DgnCommands
