// The working state of one DGN import between the import command and the
// import settings dialog: the file with its models and property names, the
// setups, and the user's choices, loaded from and saved to the settings
// (IMPORTSECTION and "DGNIMPORTMODE"). It builds what the DGN library is
// handed: the import state with its four name tables.
#pragma once

#include <map>
#include <vector>

#include "kora/dgn/dgnfile.h"
#include "kora/dgn/translate.h"
#include "mapping/DgnDlgManager.h"
#include "mapping/DgnTranslationSettings.h"

class CKoraDgnImportManger : public CKoraDgnDlgManger {
public:
    // Reads the file's properties (a file the DGN library cannot read
    // leaves no models), reloads the setups and takes the stored choices.
    void load(const KoString& path);
    // Writes the choices back; true when the store file was written.
    bool save();

    const KoString& path() const { return m_path; }
    const DgnFileProp& fileProperties() const { return m_file; }
    // The file's models by name, each with its units.
    const std::map<KoString, DgnModelProp>& models() const { return m_models; }

    DgnImportChoices& choices() { return m_choices; }
    const DgnImportChoices& choices() const { return m_choices; }

    // Where an empty lineweight table of the chosen setup gets the default
    // import weights: the dialogs fill it for any setup, the command line
    // only for the standard one.
    enum class DefaultWeights { ForAnySetup, ForStandardOnly };
    // What DgnFile::doDgnImport is handed for `model`: the choices as the
    // library's modes and the chosen setup applied to the file's names.
    DgnImportState importState(const KoString& model, DefaultWeights weights = DefaultWeights::ForAnySetup) const;

private:
    KoString m_path;
    DgnFileProp m_file;
    std::map<KoString, DgnModelProp> m_models;
    DgnImportChoices m_choices;
};

namespace Kora::DgnCommands {

// One property list of a file against a setup's table: every name of the
// file maps to the setup's target for it, or to itself when the setup has
// none or an empty one. Setup entries for names the file lacks are dropped.
DgnNameMap applySetupToNames(const std::vector<KoString>& names, const DgnMappingTable& setupTable);

// The library's modes for the choices: translation mode 0 (option 0), 2 or
// 1 (option 2, into the current or a new drawing) or left at its initial
// value (option 1); target mode 0 for a new drawing, 1 or 2 for the
// current one by the import mode's alternative.
void setImportModes(const DgnImportChoices& choices, DgnImportState& state);

}  // namespace Kora::DgnCommands
