#pragma once

#include "kora/commandstack.h"

namespace kora::detail {
void registerDrawingCommands(KoEdCommandStack& stack);
}
