// The setup store file "DgnSetups.ini" in the per-user support folder: the
// mapping setups, one section each, and the two translation settings
// sections. It is read and written only through the platform's
// initialisation-file functions, one key at a time.
#pragma once

#include <vector>

#include "kora/kostring.h"
#include "mapping/DgnMappingSetup.h"

namespace Kora::DgnCommands {

// The file's full path, computed on first use and kept for the module's
// lifetime.
const KoString& dgnSetupFilePath();

// The section names of the file as the classic fixed-size listing sees
// them: in file order, only as many as fit in 2046 characters.
std::vector<KoString> setupFileSectionNames();

// Empties the store, inserts the standard setup and reads every setup
// section of the file after it. Used both to load and to reload a store.
void loadMappingSetups(DgnMappingSetupStore& store);

// Writes every setup except the standard one into sections
// "MappingSetup1", "MappingSetup2", ... in store order, as one update of
// the file. Nothing is erased: keys and sections the write does not reach
// keep their values. Two kinds of section are written with care: a
// numbered section that holds a setup this store does not know is passed
// over (its number is skipped), and a setup's old section, which stays in
// the file and would win the next load, gets the setup's content as well.
// Afterwards each setup's section field names the section the next load
// reads it from: the first listed section holding its name.
void saveMappingSetups(DgnMappingSetupStore& store);

// Removes one section of the file whole. An empty name removes nothing.
void removeSetupSection(const KoString& section);

// Removes the named setup's section from the file, and every other setup
// section holding its name (stale copies a later load would read once the
// sections before them are gone), and the setup from the store; false when
// the store has no setup of that name.
bool deleteMappingSetup(DgnMappingSetupStore& store, const KoString& name);

// Renames a setup in the store and writes the new "Name" into its section,
// which keeps its number, and into stale copies of the setup under the old
// name. False, with nothing changed, when the store has no setup under the
// old name. When another setup already has the new name, that setup stays
// and the renamed one leaves the store; its section carries the new name.
bool renameMappingSetup(DgnMappingSetupStore& store, const KoString& oldName, const KoString& newName);

}  // namespace Kora::DgnCommands
