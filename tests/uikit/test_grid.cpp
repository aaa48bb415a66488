// The editable grid: cells edited in place per column, commits on Enter
// and on focus loss, Escape, validation, the clipboard and tooltips.
#include <QComboBox>
#include <QDialog>
#include <QLineEdit>
#include <QHelpEvent>
#include <QToolTip>
#include <QTreeWidget>

#include "kora/ui/dialog.h"
#include "kora/ui/grid.h"
#include "uikittest.h"

using namespace Kora::Ui;

namespace {

// A grid of layer names: the left column is fixed, the right column is
// typed, a third column offers choices. Names with a '*' are refused.
class LayerGrid : public KxMappingTabListBase {
public:
    std::vector<std::tuple<int, int, KoString>> committed;

protected:
    bool validateCell(int, int, const KoString& text) override { return text.find(L'*') == KoString::npos; }
    void cellCommitted(int row, int column, const KoString& text) override { committed.emplace_back(row, column, text); }
};

class GridHost : public CKdUiDialog {
public:
    GridHost() : CKdUiDialog(231, L"Grid", 400, 240) {}
    void CreateControls() override
    {
        grid.create(*this, 232, {10, 10, 380, 160});
        grid.insertColumn(0, L"DGN", 120);
        grid.insertColumn(1, L"DWG", 120);
        grid.insertColumn(2, L"Weight", 120);
        grid.setColumnEditor(1, KxMappingTabListBase::Editor::Text);
        grid.setColumnEditor(2, KxMappingTabListBase::Editor::Choice);
        grid.setColumnChoices(2, {L"ByLayer", L"0.13 mm", L"0.25 mm"});
        for (const wchar_t* level : {L"1", L"2", L"Default"}) {
            const int row = grid.insertItem(grid.itemCount(), level);
            grid.setItemText(row, 1, KoString(L"Layer ") + level);
            grid.setItemText(row, 2, L"ByLayer");
        }
        other.create(*this, 1, L"OK", {300, 200, 80, 24}, Button::Kind::Default);
    }
    LayerGrid grid;
    Button other;
};

class GridTest : public UiTest {
protected:
    void SetUp() override
    {
        UiTest::SetUp();
        ASSERT_TRUE(host.Create());
        host.window()->show();
        host.window()->activateWindow();
        QApplication::processEvents();
    }
    QLineEdit* edit() { return qobject_cast<QLineEdit*>(host.grid.cellEditor()); }
    QPoint centreOf(int row, int column)
    {
        const Rect r = host.grid.itemRect(row, column);
        return QPoint(r.x + r.width / 2, r.y + r.height / 2);
    }
    QWidget* viewport() { return static_cast<QTreeWidget*>(host.grid.widget())->viewport(); }
    GridHost host;
};

}  // namespace

TEST_F(GridTest, CellsAreFoundByPoint)
{
    int row = -1;
    int column = -1;
    const QPoint p = centreOf(2, 1);
    ASSERT_TRUE(host.grid.cellAt({p.x(), p.y()}, row, column));
    EXPECT_EQ(row, 2);
    EXPECT_EQ(column, 1);
    EXPECT_FALSE(host.grid.cellAt({p.x(), 150}, row, column)) << "below the rows";
}

TEST_F(GridTest, EnterCommitsTheTypedText)
{
    host.grid.beginCellEdit(1, 1);
    ASSERT_NE(edit(), nullptr);
    EXPECT_EQ(edit()->text(), QString("Layer 2"));
    edit()->setText("Walls");
    QTest::keyClick(edit(), Qt::Key_Return);
    EXPECT_EQ(host.grid.itemText(1, 1), L"Walls");
    ASSERT_EQ(host.grid.committed.size(), 1u);
    EXPECT_EQ(host.grid.committed[0], std::make_tuple(1, 1, KoString(L"Walls")));
    EXPECT_NE(host.window(), nullptr) << "the dialog's default button did not take the Enter";
}

TEST_F(GridTest, LosingTheFocusCommitsToo)
{
    host.grid.beginCellEdit(0, 1);
    edit()->setText("Doors");
    host.other.setFocus();
    QApplication::processEvents();
    EXPECT_FALSE(host.grid.isEditing());
    EXPECT_EQ(host.grid.itemText(0, 1), L"Doors");
    EXPECT_EQ(host.grid.committed.size(), 1u);
}

TEST_F(GridTest, EscapeCancelsAndValidationRefuses)
{
    host.grid.beginCellEdit(0, 1);
    edit()->setText("Doors");
    QTest::keyClick(edit(), Qt::Key_Escape);
    EXPECT_EQ(host.grid.itemText(0, 1), L"Layer 1");
    EXPECT_TRUE(host.grid.committed.empty());
    EXPECT_NE(host.window(), nullptr) << "Escape in the editor does not close the dialog";

    host.grid.beginCellEdit(0, 1);
    edit()->setText("Do*rs");
    QTest::keyClick(edit(), Qt::Key_Return);
    EXPECT_EQ(host.grid.itemText(0, 1), L"Layer 1");
    EXPECT_TRUE(host.grid.committed.empty());
}

TEST_F(GridTest, AChoiceColumnOffersItsChoices)
{
    host.grid.beginCellEdit(2, 2);
    auto* combo = qobject_cast<QComboBox*>(host.grid.cellEditor());
    ASSERT_NE(combo, nullptr);
    ASSERT_EQ(combo->count(), 3);
    EXPECT_EQ(combo->currentText(), QString("ByLayer"));
    combo->setCurrentIndex(2);
    QTest::keyClick(combo, Qt::Key_Return);
    EXPECT_EQ(host.grid.itemText(2, 2), L"0.25 mm");

    host.grid.beginCellEdit(2, 0);
    EXPECT_FALSE(host.grid.isEditing()) << "a column without editor stays as it is";
}

TEST_F(GridTest, ClickingTheFocusedCellAgainEditsIt)
{
    QTest::mouseClick(viewport(), Qt::LeftButton, {}, centreOf(1, 1));
    EXPECT_EQ(host.grid.focusedRow(), 1);
    EXPECT_EQ(host.grid.focusedColumn(), 1);
    EXPECT_FALSE(host.grid.isEditing());
    QTest::mouseClick(viewport(), Qt::LeftButton, {}, centreOf(1, 1));
    EXPECT_TRUE(host.grid.isEditing());
}

TEST_F(GridTest, CopyAndPasteGoThroughValidation)
{
    host.grid.focusCell(0, 1);
    QTest::keyClick(host.grid.widget(), Qt::Key_C, Qt::ControlModifier);
    EXPECT_EQ(clipboardText(), L"Layer 1");

    host.grid.focusCell(2, 1);
    QTest::keyClick(host.grid.widget(), Qt::Key_V, Qt::ControlModifier);
    EXPECT_EQ(host.grid.itemText(2, 1), L"Layer 1");

    setClipboardText(L"bad*name");
    QTest::keyClick(host.grid.widget(), Qt::Key_V, Qt::ControlModifier);
    EXPECT_EQ(host.grid.itemText(2, 1), L"Layer 1");

    host.grid.focusCell(2, 0);
    setClipboardText(L"7");
    QTest::keyClick(host.grid.widget(), Qt::Key_V, Qt::ControlModifier);
    EXPECT_EQ(host.grid.itemText(2, 0), L"Default") << "no paste into a column without editor";
}

TEST_F(GridTest, TheKeyboardMovesBetweenCellsAndOpensTheEditor)
{
    host.grid.focusCell(0, 0);
    host.grid.setFocus();
    QTest::keyClick(host.grid.widget(), Qt::Key_Right);
    QTest::keyClick(host.grid.widget(), Qt::Key_Down);
    EXPECT_EQ(host.grid.focusedRow(), 1);
    EXPECT_EQ(host.grid.focusedColumn(), 1);
    QTest::keyClick(host.grid.widget(), Qt::Key_F2);
    ASSERT_NE(edit(), nullptr);
    EXPECT_EQ(edit()->text(), QString("Layer 2"));
}

TEST_F(GridTest, TheCellUnderTheMouseShowsItsText)
{
    const QPoint at = centreOf(1, 1);
    QHelpEvent help(QEvent::ToolTip, at, viewport()->mapToGlobal(at));
    QApplication::sendEvent(viewport(), &help);
    EXPECT_EQ(QToolTip::text(), QString("Layer 2"));
}
