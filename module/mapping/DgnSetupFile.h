// The setup store file "DgnSetups.ini" in the per-user support folder: the
// mapping setups, one section each, and the two translation settings
// sections. It is read and written only through the platform's
// initialisation-file functions, one key at a time.
#pragma once

#include <vector>

#include "kora/kostring.h"
#include "kora/profile.h"
#include "mapping/DgnMappingSetup.h"

namespace Kora::DgnCommands {

// The file's full path, computed on first use and kept for the module's
// lifetime.
const KoString& dgnSetupFilePath();

// The section names of the file as the classic fixed-size listing sees
// them: in file order, only as many as fit in 2046 characters.
std::vector<KoString> setupFileSectionNames();

// One update of the store file: its writes go out as one batch, and an
// update that does not reach the file (a support folder that cannot be
// written) is reported on the command line with the file and the reason,
// so the user knows the change lives only in memory.
class SetupFileUpdate {
public:
    SetupFileUpdate();
    // Writes one key. A value with line breaks, which the file cannot hold
    // on one line, is written with blanks in their place.
    void write(const wchar_t* section, const wchar_t* key, const KoString& value);
    // Ends the update; false, after saying so, when anything was not written.
    bool finish();

private:
    KoProfileBatch m_batch;
    int m_error = 0;  // the reason of the first write that failed
};

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
// reads it from: the first listed section holding its name. False, after
// saying so on the command line, when the file could not be written; the
// store then stays as it was, edits included, for a later save.
bool saveMappingSetups(DgnMappingSetupStore& store);

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
