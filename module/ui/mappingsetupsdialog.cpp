#include "mappingsetupsdialog.h"

namespace Kora::DgnCommands {

void runMappingSetupsDialog() {}

}  // namespace Kora::DgnCommands
