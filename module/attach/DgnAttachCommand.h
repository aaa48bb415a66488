#pragma once

#include "commandobject.h"

// DGNATTACH and -DGNATTACH.
class DgnAttachCommand : public Kora::DgnCommands::CommandObject {
public:
    KORX_DECLARE_MEMBERS(DgnAttachCommand)
    void setCommandLineMode(bool on) { m_commandLineMode = on; }
    void run();
    // FILEDIA as the attach flow sees it: 1 when the host cannot answer.
    static int fileDialogSetting();
};

namespace Kora::DgnCommands {
// The attach flows. fileDia is the FILEDIA value the command read.
void attachWithDialog(int fileDia);
void attachAtCommandLine();
}  // namespace Kora::DgnCommands
