// The mapping modify dialog and its grids: the working copy, what OK and
// Cancel leave in the store file, the lineweight rows, pasting, removing
// rows and the names read from a real DGN file.
#include <QApplication>
#include <QContextMenuEvent>
#include <QDialog>

#include <cstdio>
#include <regex>
#include <set>

#include "dialogdriver.h"
#include "kora/db/database.h"
#include "kora/dxf/dxf.h"
#include "mapping/DgnSetupFile.h"
#include "mappingdialogtest.h"
#include "ui/mappingmodifydialog.h"

using namespace Kora::DgnCommands;
using namespace Kora::Ui;
namespace Hooks = Kora::Ui::Test;

namespace {

DgnMappingSetupStore loadedStore()
{
    DgnMappingSetupStore store;
    loadMappingSetups(store);
    return store;
}

std::vector<KoString> rows(ListCtrl& grid, int column)
{
    std::vector<KoString> texts;
    for (int row = 0; row < grid.itemCount(); ++row) texts.push_back(grid.itemText(row, column));
    return texts;
}

// Runs the dialog with `inside` done while it is shown, then OK or Cancel.
int runModify(CDgnMappingModifyDlg& dialog, bool ok, std::function<void()> inside = {})
{
    Hooks::DialogDriver driver;
    auto& script = driver.on(CDgnMappingModifyDlg::kDialogId).call([&](QDialog&) {
        if (inside) inside();
    });
    if (ok) script.ok();
    else script.cancel();
    const int result = dialog.DoModal();
    EXPECT_TRUE(driver.problems().empty()) << (driver.problems().empty() ? "" : driver.problems()[0]);
    return result;
}

// The levels, colours, weights and line style lines dgninfo shows for the
// drawn elements of a V7 file.
struct Shown {
    std::set<int> levels, colours, weights;
    std::vector<std::string> styles;  // the rest of each line after "style="
};

Shown dgninfo(const std::string& file)
{
    Shown shown;
    FILE* pipe = popen((KORA_BIN_DIR "/dgninfo " + file).c_str(), "r");
    char line[4096];
    const std::regex element(R"(^@\d+ #\d+ .*\((\d+)\) level=(\d+) colour=(\d+) weight=(\d+) style=(.*)$)");
    while (pipe && std::fgets(line, sizeof line, pipe)) {
        std::string text(line);
        if (!text.empty() && text.back() == '\n') text.pop_back();
        std::smatch m;
        if (!std::regex_match(text, m, element)) continue;
        const int type = std::stoi(m[1]);
        const int level = std::stoi(m[2]);
        // Settings, group data and application data are not drawn.
        if (level == 0 || type == 5 || type == 8 || type == 9 || type == 66) continue;
        shown.levels.insert(level);
        shown.colours.insert(std::stoi(m[3]));
        shown.weights.insert(std::stoi(m[4]));
        shown.styles.push_back(m[5]);
    }
    if (pipe) pclose(pipe);
    return shown;
}

// The menu key over a grid.
void menuKey(Control& grid)
{
    QContextMenuEvent event(QContextMenuEvent::Keyboard, QPoint(), QPoint());
    QApplication::sendEvent(grid.widget(), &event);
}

void showTab(CDgnMappingModifyDlg& dialog, int index) { dialog.item<TabCtrl>(CDgnMappingModifyDlg::kTabs)->setCurSel(index); }

std::set<int> numbers(const DgnMappingTable& table)
{
    std::set<int> keys;
    for (const auto& [key, value] : table) keys.insert(std::stoi(key.toUtf8()));
    return keys;
}

}  // namespace

TEST_F(MappingDialogTest, AnEmptyLineweightTableOpensWithTheDefaultsAndNoDescription)
{
    writeStoreFile(kThreeSetups);
    DgnMappingSetupStore store = loadedStore();
    DgnMappingTable defaults;
    fillDefaultLineWeights(defaults, false);

    CDgnMappingModifyDlg dialog(L"Pipes", L"Pipes", false, store);
    EXPECT_EQ(runModify(dialog, true, [&] {
                  EXPECT_EQ(dialog.GetDlgItem(CDgnMappingModifyDlg::kDirection)->text(), L"Specify property mapping for DGN export");
                  EXPECT_EQ(dialog.grid(2).itemCount(), static_cast<int>(defaults.size()));
                  EXPECT_EQ(dialog.GetDlgItem(CDgnMappingModifyDlg::kDescription)->text(), L"");
                  EXPECT_EQ(rows(dialog.grid(0), 0), (std::vector<KoString>{L"PIPE"}));
                  EXPECT_EQ(dialog.grid(0).header().sortColumn(), -1);
              }),
              KOID_OK);
    const DgnMappingSetupStore again = loadedStore();
    EXPECT_EQ(again.find(L"Pipes")->lineWeightMap, defaults);
    EXPECT_EQ(again.find(L"Pipes")->description, L"");
    EXPECT_EQ(again.find(L"Pipes")->layerMap, (DgnMappingTable{{L"PIPE", L"7"}}));
}

TEST_F(MappingDialogTest, OkStoresUnderTheNewNameAndCancelTouchesNothing)
{
    writeStoreFile(kThreeSetups);
    const std::string before = readStoreFile();
    DgnMappingSetupStore store = loadedStore();
    CDgnMappingModifyDlg cancelled(L"ROADS", L"Roads", true, store);
    EXPECT_EQ(runModify(cancelled, false), KOID_CANCEL);
    EXPECT_EQ(readStoreFile(), before);
    EXPECT_EQ(store, loadedStore());

    // A name differing only in letter case replaces the base setup.
    CDgnMappingModifyDlg dialog(L"ROADS", L"Roads", true, store);
    EXPECT_EQ(runModify(dialog, true, [&] { dialog.GetDlgItem(CDgnMappingModifyDlg::kDescription)->setText(L"all roads"); }),
              KOID_OK);
    const DgnMappingSetupStore again = loadedStore();
    ASSERT_EQ(again.size(), 4u);
    EXPECT_EQ(again.find(L"Roads")->name, L"ROADS");
    EXPECT_EQ(again.find(L"Roads")->description, L"all roads");
    EXPECT_EQ(again.find(L"Roads")->layerMap, (DgnMappingTable{{L"1", L"ROAD"}}));
}

TEST_F(MappingDialogTest, LineweightRowsComeByNumberWithTheSpecialWeightsFirst)
{
    DgnMappingSetupStore store;
    DgnMappingSetup setup;
    setup.name = L"Weights";
    setup.isImport = 1;
    setup.lineWeightMap = {{L"31", L"200"}, {L"0", L"13"}, {L"ByLevel", L"ByLayer"}, {L"ByCell", L"ByBlock"}};
    store.insert(setup);
    CDgnMappingModifyDlg dialog(L"Weights", L"Weights", true, store);
    ASSERT_TRUE(dialog.Create());
    CDgnMappingTabList& grid = dialog.grid(2);
    showTab(dialog, 2);
    EXPECT_TRUE(grid.isShown());
    EXPECT_FALSE(dialog.grid(0).isShown());
    EXPECT_EQ(rows(grid, 0), (std::vector<KoString>{L"ByCell", L"ByLevel", L"0", L"31"}));
    EXPECT_EQ(rows(grid, 1), (std::vector<KoString>{L"ByBlock", L"ByLayer", L"0.13 mm", L"2.00 mm"}));

    // A pasted weight must be one the grid offers; it is stored in
    // hundredths of a millimetre.
    grid.focusCell(2, 1);
    setClipboardText(L"0.42 mm");
    QTest::keyClick(grid.widget(), Qt::Key_V, Qt::ControlModifier);
    EXPECT_EQ(grid.itemText(2, 1), L"0.13 mm");
    setClipboardText(L"2.00 mm");
    QTest::keyClick(grid.widget(), Qt::Key_V, Qt::ControlModifier);
    EXPECT_EQ(grid.itemText(2, 1), L"2.00 mm");
    EXPECT_EQ(dialog.workingSetup().lineWeightMap.at(L"0"), L"200");
}

TEST_F(MappingDialogTest, PastingCopyingAndRemovingRows)
{
    DgnMappingSetupStore store;
    DgnMappingSetup setup;
    setup.name = L"Mixed";
    setup.isImport = 1;
    setup.layerMap = {{L"1", L"ROAD"}, {L"2", L"RIVER"}};
    setup.colorMap = {{L"3", L"red"}};
    store.insert(setup);
    CDgnMappingModifyDlg dialog(L"Mixed", L"Mixed", true, store);
    ASSERT_TRUE(dialog.Create());

    CDgnMappingTabList& layers = dialog.grid(0);
    layers.focusCell(1, 1);
    QTest::keyClick(layers.widget(), Qt::Key_C, Qt::ControlModifier);
    EXPECT_EQ(clipboardText(), L"RIVER");
    // The source column of a layer table takes no paste.
    layers.focusCell(0, 0);
    QTest::keyClick(layers.widget(), Qt::Key_V, Qt::ControlModifier);
    EXPECT_EQ(rows(layers, 0), (std::vector<KoString>{L"1", L"2"}));
    layers.focusCell(0, 1);
    QTest::keyClick(layers.widget(), Qt::Key_V, Qt::ControlModifier);
    EXPECT_EQ(dialog.workingSetup().layerMap, (DgnMappingTable{{L"1", L"RIVER"}, {L"2", L"RIVER"}}));

    // A colour's source cell takes it and the row's value becomes it.
    CDgnMappingTabList& colours = dialog.grid(3);
    showTab(dialog, 3);
    setClipboardText(L"5");
    colours.focusCell(0, 0);
    QTest::keyClick(colours.widget(), Qt::Key_V, Qt::ControlModifier);
    EXPECT_EQ(colours.itemText(0, 0), L"5");
    EXPECT_EQ(dialog.workingSetup().colorMap, (DgnMappingTable{{L"3", L"5"}}));

    // Removing a row asks first.
    showTab(dialog, 0);
    layers.focusCell(1, 0);
    Hooks::queueMessageBoxAnswer(KOID_NO);
    Hooks::queueMenuAnswer(CDgnMappingTabList::kRemoveRow);
    menuKey(layers);
    EXPECT_EQ(layers.itemCount(), 2);
    Hooks::queueMessageBoxAnswer(KOID_YES);
    Hooks::queueMenuAnswer(CDgnMappingTabList::kRemoveRow);
    menuKey(layers);
    EXPECT_EQ(rows(layers, 0), (std::vector<KoString>{L"1"}));
    EXPECT_EQ(dialog.workingSetup().layerMap, (DgnMappingTable{{L"1", L"RIVER"}}));
    EXPECT_EQ(messages(), (std::vector<KoString>{L"Are you sure you want to remove this mapping row ?",
                                                 L"Are you sure you want to remove this mapping row ?"}));
}

TEST_F(MappingDialogTest, DgnButtonAddsTheNamesDgninfoShows)
{
    for (const char* name : {"smalltest.dgn", "mixed-elements.dgn"}) {
        const std::string file = std::string(KORA_TEST_DATA_DIR) + "/dgn/" + name;
        DgnMappingSetupStore store;
        CDgnMappingModifyDlg dialog(L"Fresh", L"", true, store);
        Hooks::queueFileDialogAnswer({KoString::fromUtf8(file)});
        Hooks::DialogDriver driver;
        driver.on(CDgnMappingModifyDlg::kDialogId).press(CDgnMappingModifyDlg::kSourceButton).ok();
        EXPECT_EQ(dialog.DoModal(), KOID_OK);
        EXPECT_TRUE(driver.problems().empty());

        const Shown shown = dgninfo(file);
        const DgnMappingSetup& setup = *store.find(L"Fresh");
        EXPECT_EQ(numbers(setup.layerMap), shown.levels) << name;
        EXPECT_EQ(numbers(setup.colorMap), shown.colours) << name;
        // Every weight dgninfo shows has a row (the defaults hold them all).
        for (int weight : shown.weights) EXPECT_TRUE(setup.lineWeightMap.count(KoString::format(L"%d", weight))) << name;
        // Each element's style is one of the names added, and every name
        // added is some element's style.
        std::set<KoString> used;
        for (const std::string& rest : shown.styles) {
            bool found = false;
            for (const auto& [style, target] : setup.lineTypeMap)
                if (rest.rfind(style.toUtf8(), 0) == 0) {
                    used.insert(style);
                    found = true;
                }
            EXPECT_TRUE(found) << rest;
        }
        EXPECT_EQ(used.size(), setup.lineTypeMap.size()) << name;
        EXPECT_FALSE(setup.layerMap.empty());
        EXPECT_EQ(Hooks::fileDialogsAsked().back().title, L"Add properties from DGN file");
        Hooks::clear();
    }
}

TEST_F(MappingDialogTest, DrawingButtonOfAnExportSetupAddsTheDrawingsLayersAndLinetypes)
{
    KoDbDatabase drawing;
    KoDbLayerTable* layers = nullptr;
    ASSERT_EQ(drawing.getLayerTable(layers, KoDb::kForWrite), Kora::eOk);
    for (const wchar_t* name : {L"PIPE", L"VALVES"}) {
        auto* layer = new KoDbLayerTableRecord;
        layer->setName(name);
        ASSERT_EQ(layers->add(layer), Kora::eOk);
        layer->close();
    }
    layers->close();
    const std::filesystem::path dxf = std::filesystem::path(std::getenv("KORA_USER_ROOT")) / "network.dxf";
    ASSERT_EQ(kodbWriteDxfFile(drawing, KoString::fromUtf8(dxf.string())), Kora::eOk);

    writeStoreFile(kThreeSetups);
    DgnMappingSetupStore store = loadedStore();
    CDgnMappingModifyDlg dialog(L"Pipes", L"Pipes", false, store);
    Hooks::queueFileDialogAnswer({KoString::fromUtf8(dxf.string())});
    Hooks::DialogDriver driver;
    driver.on(CDgnMappingModifyDlg::kDialogId).press(CDgnMappingModifyDlg::kSourceButton).ok();
    EXPECT_EQ(dialog.DoModal(), KOID_OK);
    EXPECT_TRUE(driver.problems().empty());
    EXPECT_EQ(Hooks::fileDialogsAsked().back().title, L"Add properties from drawing file");

    // The setup's own entry keeps its target; the new names map to themselves.
    const DgnMappingSetupStore again = loadedStore();
    const DgnMappingSetup& pipes = *again.find(L"Pipes");
    EXPECT_EQ(pipes.layerMap, (DgnMappingTable{{L"0", L"0"}, {L"PIPE", L"7"}, {L"VALVES", L"VALVES"}}));
    EXPECT_EQ(pipes.lineTypeMap.at(L"Continuous"), L"Continuous");
}
