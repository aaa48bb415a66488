#include "ui/mappingmodifydialog.h"

#include "kora/dgn/dgnfile.h"
#include "kora/editor.h"
#include "kora/ui/filedialog.h"
#include "mapping/DgnSetupFile.h"
#include "mapping/DgnUnits.h"
#include "ui/setupnaming.h"

using namespace Kora::Ui;

namespace Kora::DgnCommands {

namespace {

// Names read from a file join a table mapped to themselves; entries the
// table has already keep their targets.
void addNames(DgnMappingTable& table, const std::vector<KoString>& names)
{
    for (const KoString& name : names) table.try_emplace(name, name);
}

void addNames(DgnMappingTable& table, const DgnMappingTable& names)
{
    for (const auto& [key, value] : names) table.try_emplace(key, value);
}

}  // namespace

CDgnMappingModifyDlg::CDgnMappingModifyDlg(const KoString& name, const KoString& baseName, bool import,
                                           DgnMappingSetupStore& store)
    : CKoUiDialog(kDialogId, KoString(), 460, 400, L"DgnMappingModifyDialog"),
      m_name(name),
      m_baseName(baseName),
      m_import(import),
      m_store(store)
{
}

void CDgnMappingModifyDlg::CreateControls()
{
    add<Label>(kDirection, KoString(), Rect{10, 10, 300, 20});
    add<Button>(kSourceButton, KoString(), Rect{320, 6, 60, 26});
    add<Button>(kTargetButton, KoString(), Rect{390, 6, 60, 26});
    m_tabs.create(*this, kTabs, {10, 38, 440, 250});
    for (int kind = 0; kind < 4; ++kind) m_grids[static_cast<size_t>(kind)].create(*this, kFirstGrid + kind, {16, 68, 428, 214});
    add<Label>(kDescriptionLabel, L"Description:", Rect{10, 296, 440, 18});
    add<Edit>(kDescription, KoString(), Rect{10, 316, 440, 40});
    add<Button>(KOID_OK, L"OK", Rect{190, 366, 80, 26}, Button::Kind::Default);
    add<Button>(KOID_CANCEL, L"Cancel", Rect{280, 366, 80, 26});
    add<Button>(kHelp, L"Help", Rect{370, 366, 80, 26});
}

bool CDgnMappingModifyDlg::OnInitDialog()
{
    CKoUiDialog::OnInitDialog();
    SetControlAnchor(kSourceButton, kMoveX);
    SetControlAnchor(kTargetButton, kMoveX);
    for (int id : {int(kHelp), int(KOID_OK), int(KOID_CANCEL)}) SetControlAnchor(id, kMoveXY);
    SetControlAnchor(kTabs, kSizeXY);
    SetControlAnchor(kDescriptionLabel, kMoveY);
    SetControlAnchor(kDescription, kMoveY | kSizeX);
    SetWindowText(KoString::format(setupText(136), m_name.c_str()));
    GetDlgItem(kDirection)->setText(setupText(m_import ? 141 : 142));
    const int dgn = dgnButton();
    const int drawing = dgn == kSourceButton ? kTargetButton : kSourceButton;
    GetDlgItem(dgn)->setText(L"->DGN");
    GetDlgItem(dgn)->setToolTip(setupText(157));
    GetDlgItem(drawing)->setText(L"->DWG");
    GetDlgItem(drawing)->setToolTip(setupText(158));

    if (const DgnMappingSetup* base = m_store.find(m_baseName)) m_setup = *base;
    m_setup.name = m_name;
    m_setup.isImport = m_import ? 1 : 0;
    // A setup without lineweights gets the default table and, deliberately,
    // starts with an empty description.
    if (m_setup.lineWeightMap.empty()) fillDefaultLineWeights(m_setup.lineWeightMap, m_import);
    else m_description = m_setup.description;

    for (unsigned id : {137u, 138u, 139u, 140u}) m_tabs.insertItem(m_tabs.count(), setupText(id));
    DgnMappingTable* tables[] = {&m_setup.layerMap, &m_setup.lineTypeMap, &m_setup.lineWeightMap, &m_setup.colorMap};
    for (int kind = 0; kind < 4; ++kind)
        m_grids[static_cast<size_t>(kind)].setKindAndDirection(static_cast<CDgnMappingTabList::Kind>(kind), m_import,
                                                               *tables[kind]);
    m_tabs.onSelChange = [this](int index) {
        UpdateData(true);
        showTab(index);
    };
    placeGrids();
    fillGrids();
    showTab(0);
    UpdateData(false);
    return true;
}

void CDgnMappingModifyDlg::DoDataExchange(DataExchange& dx) { dx.text(kDescription, m_description); }

void CDgnMappingModifyDlg::OnCommand(int id)
{
    if (id == kSourceButton || id == kTargetButton) askForFile(id == dgnButton());
    else if (id == kHelp) OnHelp();
    else CKoUiDialog::OnCommand(id);
}

void CDgnMappingModifyDlg::OnHelp() { koedHelp(nullptr, L"DGNMAPPING_DIA", 0); }

void CDgnMappingModifyDlg::OnSize(int width, int height)
{
    CKoUiDialog::OnSize(width, height);
    placeGrids();
}

void CDgnMappingModifyDlg::placeGrids()
{
    for (auto& grid : m_grids) grid.move(m_tabs.contentRect());
}

void CDgnMappingModifyDlg::fillGrids()
{
    for (auto& grid : m_grids) grid.fill();
}

void CDgnMappingModifyDlg::showTab(int index)
{
    if (index < 0 || index > 3) return;
    m_grids[static_cast<size_t>(m_tab)].enable(false);
    m_grids[static_cast<size_t>(m_tab)].show(false);
    for (int kind = 0; kind < 4; ++kind) {
        m_grids[static_cast<size_t>(kind)].enable(kind == index);
        m_grids[static_cast<size_t>(kind)].show(kind == index);
    }
    m_tab = index;
    if (m_tabs.curSel() != index) m_tabs.setCurSel(index);
}

void CDgnMappingModifyDlg::askForFile(bool dgn)
{
    koresbuf* result = nullptr;
    if (koedGetFileNavDialog(setupText(dgn ? 157 : 158), nullptr, dgn ? L"dgn" : L"dwt;dwg;dxf", 0, &result) != KORTNORM)
        return;
    const KoString path = result && result->restype == KORTSTR ? KoString(result->resval.rstring) : KoString();
    koutRelRb(result);
    if (path.isEmpty()) return;
    if (dgn) addDgnNames(path);
    else addDrawingNames(path);
}

void CDgnMappingModifyDlg::addDgnNames(const KoString& path)
{
    DgnFileProp prop;
    if (DgnFile::addPropFromDgnFile(path, prop) != KORTNORM) return;
    addNames(m_setup.layerMap, prop.levels);
    addNames(m_setup.lineTypeMap, prop.lineStyles);
    addNames(m_setup.colorMap, prop.colours);
    // Weights join with their default lineweight, not as themselves.
    DgnMappingTable defaults;
    fillDefaultLineWeights(defaults, true);
    for (const KoString& weight : prop.weights)
        if (m_import) m_setup.lineWeightMap.try_emplace(weight, defaults.count(weight) ? defaults[weight] : weight);
    fillGrids();
}

void CDgnMappingModifyDlg::addDrawingNames(const KoString& path)
{
    DgnMappingSetup names;
    readDrawingNames(path, names);
    addNames(m_setup.layerMap, names.layerMap);
    addNames(m_setup.lineTypeMap, names.lineTypeMap);
    fillGrids();
}

void CDgnMappingModifyDlg::OnOK()
{
    UpdateData(true);
    m_setup.description = m_description;
    if (DgnMappingSetup* stored = m_store.find(m_setup.name)) *stored = m_setup;
    else m_store.insert(m_setup);
    saveMappingSetups(m_store);
    EndDialog(KOID_OK);
}

}  // namespace Kora::DgnCommands
