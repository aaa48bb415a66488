// How many commands are running right now (a script's commands run inside
// the SCRIPT command). Jobs for the application context wait while it is
// above zero.
#pragma once

namespace Kora::Runtime {
int& commandDepth();
}
