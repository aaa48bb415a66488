// The new setup dialog: a name (proposed from the base setup), the setup
// it starts from and whether it imports or exports. OK checks the name and
// goes on to the modify dialog, which creates the setup.
#pragma once

#include "kora/ui/dialog.h"
#include "mapping/DgnMappingSetup.h"

namespace Kora::DgnCommands {

class CDgnMappingNewDlg : public CKoUiDialog {
public:
    enum : int {
        kDialogId = 210,
        kUserLabel = 211,
        kName = 213,
        kBase = 215,
        kImport = 216,
        kExport = 217,
        kBaseLabel = 218,
    };
    CDgnMappingNewDlg(const KoString& baseName, DgnMappingSetupStore& store, unsigned kindRestriction);

    // The name as typed, surrounding blanks included.
    const KoString& name() const { return m_name; }

protected:
    void CreateControls() override;
    bool OnInitDialog() override;
    void DoDataExchange(Kora::Ui::DataExchange& dx) override;
    void OnOK() override;

private:
    void baseChanged(int index);
    void refuseName();

    Kora::Ui::Edit m_nameEdit;
    Kora::Ui::ComboBox m_baseCombo;
    KoString m_name;
    KoString m_baseName;
    int m_kind = 0;  // 0 import, 1 export
    DgnMappingSetupStore& m_store;
    unsigned m_kindRestriction;
};

}  // namespace Kora::DgnCommands
