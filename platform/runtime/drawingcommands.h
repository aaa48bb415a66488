#pragma once

#include "kora/commandstack.h"

namespace Kora::Runtime {
void registerDrawingCommands(KoEdCommandStack& stack);
}
