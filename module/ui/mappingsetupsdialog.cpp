#include "mappingsetupsdialog.h"

namespace dgn {

void runMappingSetupsDialog() {}

}  // namespace dgn
