#pragma once

#include "commandobject.h"

// DGNIMPORT and -DGNIMPORT.
class DgnImportCommand : public dgn::CommandObject {
public:
    KORX_DECLARE_MEMBERS(DgnImportCommand)
    void setCommandLineMode(bool on) { m_commandLineMode = on; }
    void run();
};

namespace dgn {
void importWithDialogs();
void importAtCommandLine();
}  // namespace dgn
