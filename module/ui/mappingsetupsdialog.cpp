#include "ui/mappingsetupsdialog.h"

#include "kora/config.h"
#include "kora/editor.h"
#include "mapping/DgnSetupFile.h"
#include "module.h"
#include "ui/mappingmodifydialog.h"
#include "ui/mappingnewdialog.h"
#include "ui/setupnaming.h"

using namespace Kora::Ui;

namespace Kora::DgnCommands {

namespace {

constexpr int kSettingsBranch = 4;
constexpr const wchar_t* kNameWidthPath = L"UserInterfaceSettings\\DgnMappingDialog\\MappingNameColumnWidth";
constexpr const wchar_t* kTypeWidthPath = L"UserInterfaceSettings\\DgnMappingDialog\\MappingTypeColumnWidth";
constexpr Colour kSelectedText{255, 255, 255};
constexpr Colour kSelectedBack{49, 106, 197};

// Column widths are stored unscaled and multiplied by a whole factor of
// the display's scale, so a width survives a move between screens.
int dpiFactor()
{
    const double scale = koraGetDPIScale();
    return scale >= 3.25 ? 3 : scale >= 2.0 ? 2 : 1;
}

int storedWidth(const wchar_t* path, int fallback)
{
    KoraVariant value;
    if (koraConfig()->getValue(kSettingsBranch, path, value) != Kora::eOk) return fallback;
    return value.intValue();
}

KoString typeText(int isImport) { return isImport == 1 ? setupText(143) : isImport == -1 ? KoString() : setupText(144); }

// The row whose name equals `name` in any letter case, or -1.
int findRow(const ListCtrl& list, const KoString& name)
{
    for (int row = 0; row < list.itemCount(); ++row)
        if (list.itemText(row, 0).equalsNoCase(name)) return row;
    return -1;
}

}  // namespace

void runMappingSetupsDialog()
{
    CDgnMappingDlg dialog(0, KoString());
    if (dialog.DoModal() == kNeedsDisplay) reportNeedsDisplay(L"DGNMAPPING");
}

CDgnMappingDlg::CDgnMappingDlg(unsigned kindRestriction, const KoString& currentName)
    : CKoUiDialog(kDialogId, L"Mapping Setups", 420, 300, L"DgnMappingDialog"),
      m_currentName(currentName),
      m_kindRestriction(kindRestriction)
{
}

void CDgnMappingDlg::CreateControls()
{
    add<Label>(kUserLabel, KoString(), Rect{10, 8, 300, 18});
    m_list.create(*this, kList, {10, 30, 300, 200});
    add<Button>(kNew, setupText(145), Rect{320, 30, 90, 26});
    add<Button>(kRename, setupText(146), Rect{320, 62, 90, 26});
    add<Button>(kModify, setupText(147), Rect{320, 94, 90, 26});
    add<Button>(kDelete, setupText(148), Rect{320, 126, 90, 26});
    m_descriptionLabel.create(*this, kDescription, KoString(), {10, 236, 300, 20}, Elide::End);
    add<Button>(KOID_OK, L"OK", Rect{230, 266, 85, 26}, Button::Kind::Default);
    add<Button>(kHelp, L"Help", Rect{325, 266, 85, 26});
}

bool CDgnMappingDlg::OnInitDialog()
{
    CKoUiDialog::OnInitDialog();
    SetControlAnchor(KOID_OK, kMoveXY);
    SetControlAnchor(kHelp, kMoveXY);
    for (int id : {kNew, kRename, kModify, kDelete}) SetControlAnchor(id, kMoveX);
    SetControlAnchor(kList, kSizeXY);
    SetControlAnchor(kDescription, kMoveY);
    SetMinTrackSize(263, 160);
    GetDlgItem(kUserLabel)->setText(currentUserLabel());

    m_list.deleteAllItems();
    while (m_list.columnCount() > 0) m_list.deleteColumn(0);
    const int factor = dpiFactor();
    m_list.insertColumn(0, setupText(130), storedWidth(kNameWidthPath, 100) * factor);
    m_list.insertColumn(1, setupText(131), storedWidth(kTypeWidthPath, 50) * factor);

    loadMappingSetups(m_store);
    const KoString standardName = setupText(128);
    m_list.insertItem(0, standardName);
    for (const auto& [key, setup] : m_store) {
        if (setup.name.equalsNoCase(standardName)) continue;
        const int row = m_list.insertItem(m_list.itemCount(), setup.name);
        m_list.setItemText(row, 1, typeText(setup.isImport));
    }
    m_list.header().setSortState(0, true);
    m_list.setFullRowSelect(true);
    m_list.setSelectionColours(kSelectedText, kSelectedBack);

    m_list.onSelectionChanged = [this](int row) { selectionChanged(row); };
    m_list.onBeginLabelEdit = [this](int row) { m_renameOldText = m_list.itemText(row, 0); };
    m_list.onEndLabelEdit = [this](int row, const KoString& text) { return endRename(row, text); };
    m_list.onKey = [this](int key, int modifiers) { return listKey(key, modifiers); };
    m_list.onContextMenu = [this](Point at, bool) { contextMenu(at); };
    m_list.onClick = [this](int row) {
        if (row < 0) selectRow(m_list.selectionMark());
    };
    m_list.onDoubleClick = [this](int row) {
        if (row < 0) {
            row = m_list.selectionMark();
            selectRow(row);
        }
        if (row > 0) modifySetup();
    };

    int row = 0;
    if (!m_currentName.isEmpty() && !m_currentName.equalsNoCase(standardName)) row = std::max(findRow(m_list, m_currentName), 0);
    selectRow(row);
    if (row == 0) {
        m_currentName = standardName;
        m_description = setupText(129);
    }
    else if (const DgnMappingSetup* setup = m_store.find(m_currentName))
        m_description = setup->description;
    enableSetupButtons(row != 0);

    UpdateData(false);
    Rect label = m_descriptionLabel.rect();
    label.width = m_list.rect().width;
    m_descriptionLabel.move(label);
    m_descriptionLabel.setWordBreak(true);
    return true;
}

void CDgnMappingDlg::DoDataExchange(DataExchange& dx) { dx.text(kDescription, m_description); }

void CDgnMappingDlg::OnCommand(int id)
{
    switch (id) {
    case kNew: newSetup(); break;
    case kRename: startRename(); break;
    case kModify: modifySetup(); break;
    case kDelete: deleteSetup(); break;
    case kHelp: OnHelp(); break;
    default: CKoUiDialog::OnCommand(id);
    }
}

void CDgnMappingDlg::OnOK()
{
    // Stored unscaled; the type column first.
    const int factor = dpiFactor();
    koraConfig()->setValue(kSettingsBranch, kTypeWidthPath, KoraVariant(m_list.columnWidth(1) / factor));
    koraConfig()->setValue(kSettingsBranch, kNameWidthPath, KoraVariant(m_list.columnWidth(0) / factor));
    EndDialog(KOID_OK);
}

void CDgnMappingDlg::OnHelp() { koedHelp(nullptr, L"DGNMAPPING_DIA", 0); }

void CDgnMappingDlg::selectRow(int row)
{
    if (row < 0 || row >= m_list.itemCount()) return;
    m_list.selectItem(row);
    m_list.setSelectionMark(row);
    m_list.ensureVisible(row);
}

void CDgnMappingDlg::enableSetupButtons(bool on)
{
    for (int id : {kRename, kModify, kDelete}) GetDlgItem(id)->enable(on);
}

void CDgnMappingDlg::showDescription() { UpdateData(false); }

void CDgnMappingDlg::selectionChanged(int row)
{
    if (row < 0) return;
    m_list.setSelectionMark(row);
    enableSetupButtons(row != 0);
    m_currentName = m_list.itemText(row, 0);
    if (const DgnMappingSetup* setup = m_store.find(m_currentName)) m_description = setup->description;
    showDescription();
}

void CDgnMappingDlg::newSetup()
{
    CDgnMappingNewDlg dialog(m_currentName, m_store, m_kindRestriction);
    if (dialog.DoModal() == KOID_OK) {
        if (const DgnMappingSetup* setup = m_store.find(dialog.name())) {
            const int row = m_list.insertItem(m_list.itemCount(), setup->name);
            m_list.setItemText(row, 1, typeText(setup->isImport == 1 ? 1 : 0));
            m_list.header().setSortState(0, true);
            m_currentName = setup->name;
        }
    }
    selectRow(findRow(m_list, m_currentName));
}

void CDgnMappingDlg::startRename()
{
    m_list.setFocus();
    const int row = m_list.selectedItem();
    if (row < 0) return;
    m_list.ensureVisible(row);
    m_list.editLabel(row);
}

bool CDgnMappingDlg::endRename(int row, const KoString& text)
{
    const KoString name = text.trimmed();
    // A change of letter case alone is not a rename.
    if (name.equalsNoCase(m_renameOldText) || !checkSetupNameText(name)) return false;
    if (findRow(m_list, name) >= 0) {
        reportDuplicateSetupName(name);
        return false;
    }
    const DgnMappingSetup* setup = m_store.find(m_renameOldText);
    if (!setup || setup->section.isEmpty()) return false;
    renameMappingSetup(m_store, m_renameOldText, name);
    m_currentName = name;
    m_list.setItemText(row, 0, name);
    // The row already shows the new name; the list must not set it again.
    return false;
}

void CDgnMappingDlg::modifySetup()
{
    if (const DgnMappingSetup* setup = m_store.find(m_currentName)) {
        CDgnMappingModifyDlg dialog(m_currentName, m_currentName, setup->isImport != 0, m_store);
        if (dialog.DoModal() == KOID_OK) {
            if (const DgnMappingSetup* edited = m_store.find(m_currentName)) m_description = edited->description;
        }
    }
    showDescription();
}

void CDgnMappingDlg::deleteSetup()
{
    const int row = m_list.selectedItem();
    if (row < 0) return;
    const KoString name = m_list.itemText(row, 0);
    if (koraMessageBox(KoString::format(setupText(159), name.c_str()), nullptr, KOMB_YESNO | KOMB_ICONWARNING) != KOID_YES)
        return;
    deleteMappingSetup(m_store, name);
    m_list.deleteItem(row);
    selectRow(std::min(row, m_list.itemCount() - 1));
}

bool CDgnMappingDlg::listKey(int key, int modifiers)
{
    if (key == kKeyF2) {
        const int row = m_list.selectedItem();
        if (row > 0) m_list.editLabel(row);
        return true;
    }
    if (key == kKeyDelete) {
        deleteSetup();
        return true;
    }
    const bool letter = (key >= 'A' && key <= 'Z') || (key >= '0' && key <= '9');
    if (!letter || m_list.isEditing() || (modifiers & (kControl | kShift | kAlt))) return false;
    // Jumps to the next row, after the selected one and wrapping, whose
    // name begins with the key's character.
    const int count = m_list.itemCount();
    const int from = m_list.selectedItem();
    for (int step = 1; step <= count; ++step) {
        const int row = (from + step + count) % count;
        const KoString text = m_list.itemText(row, 0);
        if (!text.isEmpty() && KoString(text.getAt(0)).equalsNoCase(KoString(static_cast<wchar_t>(key)))) {
            selectRow(row);
            m_list.setFocus();
            break;
        }
    }
    return true;
}

void CDgnMappingDlg::contextMenu(Point at)
{
    const bool setupRow = m_list.selectedItem() > 0;
    const int command = trackPopupMenu(m_list, at,
                                       {{1, setupText(145)}, {2, setupText(146), setupRow}, {3, setupText(147), setupRow},
                                        {4, setupText(148), setupRow}});
    switch (command) {
    case 1: newSetup(); break;
    case 2: startRename(); break;
    case 3: modifySetup(); break;
    case 4: deleteSetup(); break;
    default: break;
    }
}

}  // namespace Kora::DgnCommands
