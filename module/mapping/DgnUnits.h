// The units vocabulary: full names of the working units a DGN file
// abbreviates, and the two small readers that fill name lists from files.
#pragma once

#include <vector>

#include "kora/db/object.h"
#include "kora/kostring.h"
#include "mapping/DgnMappingSetup.h"

namespace Kora::DgnCommands {

// The localised full name of a unit abbreviation, compared with its case
// ("Mm" megametres, "mm" millimetres); "custom" for anything unknown.
KoString dgnUnitFullName(const KoString& abbreviation);

// The full names of a DGN file's master and sub units and its 3D flag. The
// first model's units when the file has models; the seed catalogue's names
// for the file's name when it has none. False when the file cannot be read.
bool dgnFileUnits(const KoString& path, KoString& masterName, KoString& subName, bool& is3d);

// Reads the layer and linetype names of a drawing (".dwg", ".dwt" or
// ".dxf", in any letter case) into the record's layer and linetype lists,
// each name mapped to itself, and their numbers into the counts. Any other
// file, or one that cannot be read, leaves the record as it was.
void readDrawingNames(const KoString& path, DgnMappingSetup& record);

// The record names of a symbol table in table order, erased ones skipped.
void symbolTableNames(KoDbObjectId tableId, std::vector<KoString>& names);

}  // namespace Kora::DgnCommands
