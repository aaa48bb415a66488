#include "ui/mappingnewdialog.h"

#include "ui/mappingmodifydialog.h"
#include "ui/setupnaming.h"

using namespace Kora::Ui;

namespace Kora::DgnCommands {

CDgnMappingNewDlg::CDgnMappingNewDlg(const KoString& baseName, DgnMappingSetupStore& store, unsigned kindRestriction)
    : CKoUiDialog(kDialogId, L"New Mapping Setup", 357, 240, L"DgnMappingNewDialog"),
      m_baseName(baseName),
      m_store(store),
      m_kindRestriction(kindRestriction)
{
}

void CDgnMappingNewDlg::CreateControls()
{
    add<Label>(kUserLabel, KoString(), Rect{10, 8, 337, 18});
    add<Label>(0, L"New setup name:", Rect{10, 34, 337, 18});
    m_nameEdit.create(*this, kName, KoString(), {10, 54, 337, 22});
    add<Label>(kBaseLabel, L"Based on:", Rect{10, 84, 337, 18});
    m_baseCombo.create(*this, kBase, {10, 104, 337, 24});
    add<Button>(kImport, L"DGN import setup", Rect{10, 140, 160, 22}, Button::Kind::Radio, 1);
    add<Button>(kExport, L"DGN export setup", Rect{180, 140, 160, 22}, Button::Kind::Radio, 1);
    add<Button>(KOID_OK, L"OK", Rect{172, 204, 85, 26}, Button::Kind::Default);
    add<Button>(KOID_CANCEL, L"Cancel", Rect{262, 204, 85, 26});
}

bool CDgnMappingNewDlg::OnInitDialog()
{
    CKoUiDialog::OnInitDialog();
    SetControlAnchor(KOID_OK, kMoveX);
    SetControlAnchor(KOID_CANCEL, kMoveX);
    for (int id : {int(kName), int(kBase), int(kBaseLabel)}) SetControlAnchor(id, kSizeX);
    SetMinTrackSize(357, 240);
    LockHeight(true);
    GetDlgItem(kUserLabel)->setText(currentUserLabel());
    m_name = proposedSetupName(m_baseName, m_store);

    for (const auto& [key, setup] : m_store) m_baseCombo.addString(setup.name);
    m_baseCombo.setCurSel(m_baseCombo.findStringExact(m_baseName));
    m_baseCombo.onSelChange = [this](int index) { baseChanged(index); };

    // An export base proposes an export setup; the standard setup and an
    // unknown base propose an import setup.
    const DgnMappingSetup* base = m_store.find(m_baseName);
    m_kind = base && base->isImport == 0 ? 1 : 0;
    if (m_kindRestriction == 1) {
        m_kind = 0;
        GetDlgItem(kExport)->enable(false);
    }
    else if (m_kindRestriction == 2) {
        m_kind = 1;
        GetDlgItem(kImport)->enable(false);
    }
    UpdateData(false);
    return true;
}

void CDgnMappingNewDlg::DoDataExchange(DataExchange& dx)
{
    dx.text(kName, m_name);
    dx.radio({kImport, kExport}, m_kind);
}

void CDgnMappingNewDlg::baseChanged(int index)
{
    if (index < 0) return;
    m_baseName = m_baseCombo.itemText(index);
    UpdateData(true);
    m_name = proposedSetupName(m_baseName, m_store);
    UpdateData(false);
}

void CDgnMappingNewDlg::refuseName()
{
    m_nameEdit.selectAll();
    m_nameEdit.setFocus();
}

void CDgnMappingNewDlg::OnOK()
{
    UpdateData(true);
    // The checks see the name trimmed; the setup gets it as typed.
    if (!checkSetupNameText(m_name.trimmed())) return refuseName();
    if (m_store.find(m_name)) {
        reportDuplicateSetupName(m_name);
        return refuseName();
    }
    CDgnMappingModifyDlg modify(m_name, m_baseName, m_kind == 0, m_store);
    modify.DoModal();
    EndDialog(KOID_OK);
}

}  // namespace Kora::DgnCommands
