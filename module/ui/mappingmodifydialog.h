// The mapping modify dialog: one setup's four tables on four tabs, edited
// on a copy that OK puts into the store and saves with the whole store.
#pragma once

#include <array>

#include "kora/ui/dialog.h"
#include "mapping/DgnMappingSetup.h"
#include "ui/mappinggrid.h"

namespace Kora::DgnCommands {

class CDgnMappingModifyDlg : public CKoUiDialog {
public:
    enum : int {
        kDialogId = 220,
        kDirection = 222,
        kTabs = 223,
        kDescriptionLabel = 224,
        kDescription = 225,
        kSourceButton = 229,  // the button of the side the setup translates from
        kTargetButton = 230,
        kFirstGrid = 232,  // the four grids, 232 to 235
        kHelp = 9,
    };
    // `import`: a setup from DGN to drawing. The tables of `baseName` are
    // copied in; the setup is stored under `name` on OK.
    CDgnMappingModifyDlg(const KoString& name, const KoString& baseName, bool import, DgnMappingSetupStore& store);

    const DgnMappingSetup& workingSetup() const { return m_setup; }
    CDgnMappingTabList& grid(int kind) { return m_grids[static_cast<size_t>(kind)]; }

    // Adds the names of a DGN file (levels, line styles, weights, colours)
    // or of a drawing (layers, linetypes) to the tables and refills them.
    void addDgnNames(const KoString& path);
    void addDrawingNames(const KoString& path);

protected:
    void CreateControls() override;
    bool OnInitDialog() override;
    void DoDataExchange(Kora::Ui::DataExchange& dx) override;
    void OnCommand(int id) override;
    void OnOK() override;
    void OnHelp() override;
    void OnSize(int width, int height) override;

private:
    int dgnButton() const { return m_import ? kSourceButton : kTargetButton; }
    void askForFile(bool dgn);
    void showTab(int index);
    void placeGrids();
    void fillGrids();

    KoString m_name;
    KoString m_baseName;
    bool m_import;
    DgnMappingSetupStore& m_store;
    DgnMappingSetup m_setup;
    KoString m_description;
    Kora::Ui::TabCtrl m_tabs;
    std::array<CDgnMappingTabList, 4> m_grids;
    int m_tab = 0;
};

}  // namespace Kora::DgnCommands
