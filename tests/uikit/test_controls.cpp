// The controls' behaviour that dialogs rely on: the sort header, elided
// labels, report lists with in-place label editing, list and combo boxes,
// tabs and popup menus.
#include <QContextMenuEvent>
#include <QDialog>
#include <QAbstractScrollArea>
#include <QHeaderView>
#include <QLineEdit>
#include <QTreeWidget>

#include "kora/ui/dialog.h"
#include "uikittest.h"

using namespace Kora::Ui;

namespace {

class Host : public CKdUiDialog {
public:
    Host() : CKdUiDialog(400, L"Controls", 400, 300) {}
    void CreateControls() override
    {
        list.create(*this, 202, {10, 10, 300, 150});
        list.insertColumn(0, L"Name", 100);
        list.insertColumn(1, L"Type", 50);
        for (const wchar_t* name : {L"Standard", L"Roads", L"Rivers"}) list.insertItem(list.itemCount(), name);
        label.create(*this, 207, L"", {10, 170, 200, 20}, Elide::Middle);
        box.create(*this, 300, {10, 200, 120, 80});
        combo.create(*this, 301, {150, 200, 120, 24}, true);
        tabs.create(*this, 223, {150, 230, 200, 60});
    }
    ListCtrl list;
    Label label;
    ListBox box;
    ComboBox combo;
    TabCtrl tabs;
};

class ControlsTest : public UiTest {
protected:
    void SetUp() override
    {
        UiTest::SetUp();
        ASSERT_TRUE(host.Create());
        host.window()->show();
        QApplication::processEvents();
    }
    QLineEdit* editor() { return qobject_cast<QLineEdit*>(host.list.cellEditor()); }
    Host host;
};

}  // namespace

TEST_F(ControlsTest, TheHeaderRecordsAndDrawsItsSortStateWithoutReordering)
{
    auto* header = static_cast<QTreeWidget*>(host.list.widget())->header();
    host.list.header().setSortState(1, false);
    EXPECT_EQ(host.list.header().sortColumn(), 1);
    EXPECT_FALSE(host.list.header().sortAscending());
    EXPECT_TRUE(header->isSortIndicatorShown());
    EXPECT_EQ(header->sortIndicatorSection(), 1);
    EXPECT_EQ(header->sortIndicatorOrder(), Qt::DescendingOrder);
    host.list.header().setSortState(0, true);
    EXPECT_EQ(header->sortIndicatorOrder(), Qt::AscendingOrder);
    EXPECT_EQ(host.list.itemText(0, 0), L"Standard") << "rows keep their order";
    EXPECT_EQ(host.list.itemText(2, 0), L"Rivers");
}

TEST_F(ControlsTest, ALongPathIsShortenedInItsMiddle)
{
    const KoString path = L"/home/someone/projects/a/very/long/folder/name/that/goes/on/and/on/drawing.dgn";
    host.label.setText(path);
    EXPECT_EQ(host.label.text(), path) << "the label keeps the whole text";
    const KoString shown = host.label.shownText();
    ASSERT_NE(shown, path);
    EXPECT_TRUE(shown.str().starts_with(L"/home")) << shown.toUtf8();
    EXPECT_TRUE(shown.str().ends_with(L"drawing.dgn")) << shown.toUtf8();
    EXPECT_NE(shown.find(L'…'), KoString::npos) << shown.toUtf8();

    host.label.setElide(Elide::End);
    EXPECT_TRUE(host.label.shownText().str().starts_with(L"/home/someone"));
    EXPECT_TRUE(host.label.shownText().str().ends_with(L"…"));

    host.label.setText(L"short.dgn");
    EXPECT_EQ(host.label.shownText(), L"short.dgn") << "a text that fits is left whole";
}

TEST_F(ControlsTest, ALabelEditCommitsOnEnterAndTheOwnerDecides)
{
    std::vector<std::pair<int, KoString>> ended;
    bool accept = true;
    host.list.onEndLabelEdit = [&](int row, const KoString& text) {
        ended.emplace_back(row, text);
        return accept;
    };
    host.list.editLabel(1);
    ASSERT_NE(editor(), nullptr);
    EXPECT_EQ(editor()->text(), QString("Roads"));
    editor()->setText("Streets");
    QTest::keyClick(editor(), Qt::Key_Return);
    ASSERT_EQ(ended.size(), 1u);
    EXPECT_EQ(ended[0], (std::pair<int, KoString>{1, L"Streets"}));
    EXPECT_EQ(host.list.itemText(1, 0), L"Streets");
    EXPECT_FALSE(host.list.isEditing());
    EXPECT_NE(host.window(), nullptr) << "Enter in the editor does not close the dialog";

    accept = false;
    host.list.editLabel(1);
    editor()->setText("Lanes");
    QTest::keyClick(editor(), Qt::Key_Return);
    EXPECT_EQ(host.list.itemText(1, 0), L"Streets") << "a refused edit keeps the old text";
}

TEST_F(ControlsTest, EscapeEndsALabelEditWithoutAsking)
{
    int asked = 0;
    host.list.onEndLabelEdit = [&](int, const KoString&) { return ++asked, true; };
    host.list.editLabel(2);
    editor()->setText("Canals");
    QTest::keyClick(editor(), Qt::Key_Escape);
    EXPECT_EQ(asked, 0);
    EXPECT_EQ(host.list.itemText(2, 0), L"Rivers");
    EXPECT_FALSE(host.list.isEditing());
}

TEST_F(ControlsTest, TheLabelEditorStaysOnItsLabelWhenTheListIsResized)
{
    host.list.editLabel(2);
    ASSERT_NE(editor(), nullptr);
    host.list.move({0, 40, 200, 100});
    host.list.setColumnWidth(0, 140);
    QApplication::processEvents();
    const Rect cell = host.list.itemRect(2, 0);
    EXPECT_EQ(editor()->geometry(), QRect(cell.x, cell.y, cell.width, cell.height));
}

TEST_F(ControlsTest, RowsAreSelectedFoundAndColoured)
{
    std::vector<int> changes;
    host.list.onSelectionChanged = [&](int row) { changes.push_back(row); };
    host.list.selectItem(2);
    EXPECT_EQ(host.list.selectedItem(), 2);
    EXPECT_EQ(changes, std::vector<int>{2});
    const Rect second = host.list.itemRect(1, 1);
    EXPECT_EQ(host.list.hitTest({second.x + 2, second.y + 2}), 1);
    EXPECT_EQ(host.list.hitTest({5, 140}), -1);

    host.list.setRowColours(1, {255, 255, 255}, {49, 106, 197});
    auto* item = static_cast<QTreeWidget*>(host.list.widget())->topLevelItem(1);
    EXPECT_EQ(item->background(1).color(), QColor(49, 106, 197));
    host.list.setSelectionColours({255, 255, 255}, {49, 106, 197});
    EXPECT_EQ(host.list.widget()->palette().color(QPalette::Inactive, QPalette::Highlight), QColor(49, 106, 197))
        << "the selection looks the same without the focus";

    host.list.setRowHeight(24);
    EXPECT_EQ(host.list.itemRect(0, 0).height, 24);
    EXPECT_EQ(host.list.itemRect(1, 0).y, host.list.itemRect(0, 0).y + 24);

    EXPECT_TRUE(host.list.deleteItem(2));
    EXPECT_EQ(host.list.itemCount(), 2);
    EXPECT_TRUE(host.list.deleteColumn(1));
    EXPECT_EQ(host.list.columnCount(), 1);
}

TEST_F(ControlsTest, KeysAndContextMenusReachTheOwnerFirst)
{
    std::vector<int> keys;
    host.list.onKey = [&](int key, int) {
        keys.push_back(key);
        return key == kKeyF2;
    };
    host.list.selectItem(0);
    QTest::keyClick(host.list.widget(), Qt::Key_F2);
    QTest::keyClick(host.list.widget(), Qt::Key_Down);
    EXPECT_EQ(keys, (std::vector<int>{kKeyF2, Qt::Key_Down}));
    EXPECT_EQ(host.list.selectedItem(), 1) << "keys the owner leaves move the selection";

    bool fromKeyboard = false;
    Point at;
    host.list.onContextMenu = [&](Point p, bool keyboard) {
        at = p;
        fromKeyboard = keyboard;
    };
    QContextMenuEvent menuKey(QContextMenuEvent::Keyboard, QPoint(0, 0), QPoint(0, 0));
    QApplication::sendEvent(static_cast<QTreeWidget*>(host.list.widget())->viewport(), &menuKey);
    EXPECT_TRUE(fromKeyboard);
    EXPECT_EQ(at.x, host.list.clientCentre().x);
    EXPECT_EQ(at.y, host.list.clientCentre().y);

    Kora::Ui::Test::queueMenuAnswer(3);
    EXPECT_EQ(trackPopupMenu(host.list, at, {{1, L"&New..."}, {0, {}}, {3, L"&Modify...", false}}), 3);
}

TEST_F(ControlsTest, ListAndComboBoxesFindTextsWithoutRegardToCase)
{
    for (const wchar_t* name : {L"standard", L"Roads", L"roads", L"Rivers"}) host.box.addString(name);
    EXPECT_EQ(host.box.findStringExact(-1, L"ROADS"), 1);
    EXPECT_EQ(host.box.findStringExact(1, L"ROADS"), 2) << "the search starts after the given row";
    EXPECT_EQ(host.box.findStringExact(2, L"roads"), 1) << "and wraps around";
    EXPECT_EQ(host.box.findStringExact(-1, L"Road"), -1);
    host.box.setCurSel(3);
    EXPECT_EQ(host.box.curSel(), 3);
    host.box.deleteString(3);
    EXPECT_EQ(host.box.count(), 3);

    int changes = 0;
    host.combo.onSelChange = [&](int) { ++changes; };
    host.combo.addString(L"V8 seed.dgn");
    host.combo.addString(L"V7 seed.dgn");
    EXPECT_EQ(host.combo.curSel(), -1) << "adding entries selects nothing";
    EXPECT_EQ(changes, 0);
    host.combo.setCurSel(1);
    EXPECT_EQ(host.combo.text(), L"V7 seed.dgn");
    host.combo.setText(L"/seeds/typed.dgn");
    EXPECT_EQ(host.combo.text(), L"/seeds/typed.dgn") << "an editable combo keeps typed text";
    EXPECT_EQ(host.combo.findStringExact(L"v8 SEED.dgn"), 0);
}

TEST_F(ControlsTest, TabsReportTheirChoiceAndLeaveRoomForPages)
{
    std::vector<int> chosen;
    host.tabs.onSelChange = [&](int index) { chosen.push_back(index); };
    for (const wchar_t* tab : {L"Layer", L"Linetype", L"Lineweight", L"Color"}) host.tabs.insertItem(host.tabs.count(), tab);
    EXPECT_EQ(host.tabs.count(), 4);
    EXPECT_TRUE(chosen.empty()) << "inserting tabs is no choice";
    host.tabs.setCurSel(2);
    EXPECT_EQ(chosen, std::vector<int>{2});
    const Rect whole = host.tabs.rect();
    const Rect pages = host.tabs.contentRect();
    EXPECT_EQ(pages.x, whole.x);
    EXPECT_GT(pages.y, whole.y);
    EXPECT_EQ(pages.y + pages.height, whole.y + whole.height);
}

TEST_F(ControlsTest, AnEditorPlacedOverAListBoxRowCoversIt)
{
    for (const wchar_t* name : {L"standard", L"Roads", L"Rivers"}) host.box.addString(name);
    Edit& editor = host.add<Edit>(400, L"Roads", Rect{});
    const Rect row = host.box.itemRect(1);
    const Rect over = host.box.mapToDialog({row.x - 1, row.y - 2, row.width + 2, row.height + 4});
    editor.move(over);
    QWidget* rows = static_cast<QAbstractScrollArea*>(host.box.widget())->viewport();
    const QPoint centre = rows->mapFrom(host.window(), editor.widget()->geometry().center());
    EXPECT_EQ(host.box.itemFromPoint({centre.x(), centre.y()}), 1);

    editor.setFrameColour({0, 127, 255});
    const QImage image = editor.widget()->grab().toImage();
    EXPECT_EQ(image.pixelColor(1, image.height() / 2), QColor(0, 127, 255));
    EXPECT_EQ(image.pixelColor(image.width() - 2, image.height() / 2), QColor(0, 127, 255));
    EXPECT_NE(image.pixelColor(0, image.height() / 2), QColor(0, 127, 255)) << "the frame is narrowed by a pixel";
}

TEST_F(ControlsTest, TheClipboardCarriesText)
{
    setClipboardText(L"Level 1");
    EXPECT_EQ(clipboardText(), L"Level 1");
}
