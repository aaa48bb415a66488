#pragma once

namespace dgn {
// Runs the mapping setups dialog modally: kind restriction 0 (all setups)
// and no setup preselected.
void runMappingSetupsDialog();
}  // namespace dgn
