// The mapping setups dialog, the whole of DGNMAPPING: every setup of the
// store file with its type, the selected one's description, and New,
// Rename (in place in the list), Modify and Delete.
#pragma once

#include "kora/ui/dialog.h"
#include "mapping/DgnMappingSetup.h"

namespace Kora::DgnCommands {

// Runs the mapping setups dialog modally: kind restriction 0 (all setups)
// and no setup preselected; without a display says so on the command line.
void runMappingSetupsDialog();

class CDgnMappingDlg : public CKoUiDialog {
public:
    enum : int {
        kDialogId = 200,
        kList = 202,
        kNew = 203,
        kRename = 204,
        kModify = 205,
        kDelete = 206,
        kDescription = 207,
        kUserLabel = 208,
        kHelp = 9,
    };
    // kindRestriction: 0 any, 1 new setups are import setups, 2 export.
    CDgnMappingDlg(unsigned kindRestriction, const KoString& currentName);

    // The setup that was current when the dialog closed.
    const KoString& currentName() const { return m_currentName; }
    Kora::Ui::ListCtrl& list() { return m_list; }
    const DgnMappingSetupStore& store() const { return m_store; }

    void newSetup();
    void startRename();
    void modifySetup();
    void deleteSetup();

protected:
    void CreateControls() override;
    bool OnInitDialog() override;
    void DoDataExchange(Kora::Ui::DataExchange& dx) override;
    void OnCommand(int id) override;
    void OnOK() override;
    void OnHelp() override;

private:
    void selectionChanged(int row);
    bool endRename(int row, const KoString& text);
    bool listKey(int key, int modifiers);
    void contextMenu(Kora::Ui::Point at);
    void selectRow(int row);
    void enableSetupButtons(bool on);
    void showDescription();

    Kora::Ui::ListCtrl m_list;
    Kora::Ui::Label m_descriptionLabel;
    DgnMappingSetupStore m_store;
    KoString m_currentName;
    KoString m_description;
    KoString m_renameOldText;
    unsigned m_kindRestriction;
};

}  // namespace Kora::DgnCommands
