#pragma once

namespace Kora::DgnCommands {
// Runs the mapping setups dialog modally: kind restriction 0 (all setups)
// and no setup preselected.
void runMappingSetupsDialog();
}  // namespace Kora::DgnCommands
