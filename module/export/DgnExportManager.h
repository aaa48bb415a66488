// The model behind the export settings: the choices (translation option,
// existing references, units, seed), the seed list offered for the output
// version, and the four name tables an export is handed for the chosen
// setup and the drawing.
#pragma once

#include "export/DgnSeedCatalogue.h"
#include "kora/dgn/translate.h"
#include "mapping/DgnDlgManager.h"
#include "mapping/DgnTranslationSettings.h"

class CKoraDgnExportManger : public CKoraDgnDlgManger {
public:
    // Takes the version (kDgnVersionV8 or kDgnVersionV7), the seed list of
    // that version, the setups and the stored choices.
    void initialise(int version);
    // Writes the choices and the version's seed list; true when the store
    // file was written.
    bool save();

    int version() const { return m_version; }
    DgnExportChoices& choices() { return m_choices; }
    const DgnExportChoices& choices() const { return m_choices; }
    const DgnSeedCatalogue& seeds() const { return m_seeds; }
    // False, with the list unchanged, for a path that is not a usable seed.
    bool addSeed(const KoString& path);
    bool seedIs3d() const { return m_seedIs3d; }
    void setSeedIs3d(bool is3d) { m_seedIs3d = is3d; }

    // The chosen setup's four tables made ready for `database`; see
    // Kora::DgnCommands::buildExportMapping.
    void buildMapping(KoDbDatabase* database, DgnExport& target) const;

private:
    int m_version = kDgnVersionUnknown;
    DgnExportChoices m_choices;
    DgnSeedCatalogue m_seeds;
    bool m_seedIs3d = false;
};

namespace Kora::DgnCommands {

// The export tables of a setup for a drawing: the setup's four maps; every
// layer and linetype of the drawing the setup does not map maps to its own
// name; an empty lineweight map gets the default export weights; and, for
// a setup other than the standard one, a layer of an external reference
// ("site$0$Walls") that the setup does not map itself is mapped as the
// setup maps the layer's own name (the part after the last "$").
void buildExportMapping(const DgnMappingSetup& setup, KoDbDatabase* database, DgnExport& target);

}  // namespace Kora::DgnCommands
