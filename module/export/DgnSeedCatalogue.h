// The seed files an export starts from: the built-in seeds of each DGN
// version in the per-user template folder, the test of a usable seed, the
// unit names a seed is known by when its header cannot tell, and the seed
// list the export settings dialog keeps in the host's configuration.
//
// A seed's unit names and 3D flag from its header are read with
// Kora::DgnCommands::dgnFileUnits (mapping/DgnUnits.h), which falls back to
// seedUnitNamesByFileName for a header without models.
#pragma once

#include <set>

#include "kora/dgn/dgnfile.h"
#include "kora/kostring.h"

// Full seed paths, ordered ordinally (case-sensitive) by the whole path.
using DgnSeedCatalogue = std::set<KoString>;

namespace Kora::DgnCommands {

// The per-user template folder + "/" + the file name.
KoString seedFilePath(const KoString& fileName);

// Inserts the full paths of the version's built-in seeds; clears nothing.
// The files need not exist. Other version flags insert nothing.
void buildSeedCatalogue(int version, DgnSeedCatalogue& target);

// Prints each entry at the command line as it stands, nothing between.
void listSeedCatalogue(const DgnSeedCatalogue& catalogue);

// A usable seed: a non-empty path to an existing file whose extension is
// "dgn" in any letter case.
bool isValidSeedFile(const KoString& path);

// The master and sub unit names of a seed by its file name alone: the V7
// seeds have their own, every other name gets "Feet" / "Inches".
void seedUnitNamesByFileName(const KoString& path, KoString& masterName, KoString& subName);

// The DGN version flag of a seed from its header; false when it cannot be read.
bool seedVersion(const KoString& path, int& version);

// The seed list kept for a version: only paths that are still usable are
// loaded; saving replaces the old list with the usable paths of `seeds`
// (an empty set saves nothing). Version flags other than 0 and 1 do nothing.
void loadPersistedSeeds(int version, DgnSeedCatalogue& target);
void savePersistedSeeds(int version, const DgnSeedCatalogue& seeds);

// The seed list of the export settings dialog: the persisted list, or the
// built-in catalogue when that is empty.
void loadSeedList(int version, DgnSeedCatalogue& target);

// The default seed at the command line: the stored seed when it is, letter
// for letter, one of the version's built-in seeds, else the first of them.
KoString defaultSeedFile(int version, const KoString& storedSeedFileName);

}  // namespace Kora::DgnCommands
