// The last-used translation choices of each direction, kept in the setup
// store file beside the mapping setups ("IMPORTSECTION", "EXPORTSECTION"),
// and the rules by which they become a command's working choices.
#pragma once

#include "kora/kostring.h"

// As stored: -1 (numbers) or empty text marks a value the file does not hold.
struct DgnImportSettings {
    int existingXRefOperation = -1;  // 0 do not overwrite, 1 overwrite without prompting, 2 prompt
    int explodeTextNode = -1;        // 0 or 1
    int isMasterUnits = -1;          // 1 master units, 0 sub units
    KoString mappingSetupName;
    int translationOption = -1;  // 0, 1 or 2
};

struct DgnExportSettings {
    int existingXRefOperation = -1;
    int isMasterUnits = -1;
    KoString mappingSetupName;
    KoString seedFileName;
    int translationOption = -1;
};

// The choices an import works with. The defaults are what a user gets
// before anything was ever stored.
struct DgnImportChoices {
    int existingXRefOperation = 2;
    int explodeTextNode = 0;
    int units = 0;  // 0 master units, 1 sub units
    KoString mappingSetupName;
    int translationOption = 2;
    bool importIntoCurrent = true;  // "DGNIMPORTMODE" non-zero
    int importAlternative = 1;      // 1 the first alternative, 0 the second
};

// The choices an export works with.
struct DgnExportChoices {
    int existingXRefOperation = 2;
    int useSubUnits = 0;
    KoString mappingSetupName;
    KoString seedFileName;
    int translationOption = 2;
};

namespace Kora::DgnCommands {

// Read the first section whose name contains "IMPORTSECTION" (respectively
// "EXPORTSECTION"); false, with the record untouched, when there is none.
bool readImportSettings(DgnImportSettings& settings);
bool readExportSettings(DgnExportSettings& settings);
// Write every key into the section named exactly "IMPORTSECTION"
// (respectively "EXPORTSECTION"), replacing each in place. False, after
// saying so on the command line, when the file could not be written.
bool writeImportSettings(const DgnImportSettings& settings);
bool writeExportSettings(const DgnExportSettings& settings);

// Take stored values into working choices. Each value is taken only when
// it is in range; anything else (-1 for a missing key included) leaves
// that one choice as it was.
void takeStoredSettings(const DgnImportSettings& stored, DgnImportChoices& choices);
void takeStoredSettings(const DgnExportSettings& stored, DgnExportChoices& choices);

// The whole load and save of a direction's choices: the stored section
// and, for import, the "DGNIMPORTMODE" system variable that mirrors where
// an import goes. A save answers whether the file was written.
void loadImportChoices(DgnImportChoices& choices);
bool saveImportChoices(const DgnImportChoices& choices);
void loadExportChoices(DgnExportChoices& choices);
bool saveExportChoices(const DgnExportChoices& choices);

}  // namespace Kora::DgnCommands
