#include "kora/ui/grid.h"

#include <QMouseEvent>
#include <QTreeWidget>

#include "uikitqt.h"

using namespace Kora::Ui;

namespace {

QTreeWidget* treeOf(const Control* control) { return qobject_cast<QTreeWidget*>(control->widget()); }

// Clicks on a cell focus it; a click on the focused cell opens its editor.
class CellClicks final : public QObject {
public:
    explicit CellClicks(KxMappingTabListBase& grid) : QObject(grid.widget()), m_grid(grid) {}

protected:
    bool eventFilter(QObject*, QEvent* event) override
    {
        if (event->type() != QEvent::MouseButtonPress) return false;
        const auto* mouse = static_cast<QMouseEvent*>(event);
        int row = -1;
        int column = -1;
        if (mouse->button() != Qt::LeftButton ||
            !m_grid.cellAt({mouse->position().toPoint().x(), mouse->position().toPoint().y()}, row, column))
            return false;
        const bool again = row == m_grid.focusedRow() && column == m_grid.focusedColumn();
        m_grid.focusCell(row, column);
        if (again) m_grid.beginCellEdit(row, column);
        return again;
    }

private:
    KxMappingTabListBase& m_grid;
};

}  // namespace

KxMappingTabListBase::KxMappingTabListBase()
{
    onKey = [this](int key, int modifiers) { return handleKey(key, modifiers); };
    onContextMenu = [this](Point at, bool fromKeyboard) { contextMenu(at, fromKeyboard); };
}

void KxMappingTabListBase::create(CKdUiBaseDialog& dialog, int id, const Rect& layout)
{
    ListCtrl::create(dialog, id, layout);
    if (QTreeWidget* view = treeOf(this)) view->viewport()->installEventFilter(new CellClicks(*this));
}

void KxMappingTabListBase::setColumnEditor(int column, Editor editor) { m_editors[column] = editor; }

KxMappingTabListBase::Editor KxMappingTabListBase::columnEditor(int column) const
{
    const auto found = m_editors.find(column);
    return found == m_editors.end() ? Editor::None : found->second;
}

void KxMappingTabListBase::setColumnChoices(int column, std::vector<KoString> choices) { m_choices[column] = std::move(choices); }

const std::vector<KoString>& KxMappingTabListBase::columnChoices(int column) const
{
    static const std::vector<KoString> none;
    const auto found = m_choices.find(column);
    return found == m_choices.end() ? none : found->second;
}

bool KxMappingTabListBase::cellAt(Point at, int& row, int& column) const
{
    QTreeWidget* view = treeOf(this);
    const QModelIndex index = view ? view->indexAt(QPoint(at.x, at.y)) : QModelIndex();
    if (!index.isValid()) return false;
    row = index.row();
    column = index.column();
    return true;
}

void KxMappingTabListBase::focusCell(int row, int column)
{
    QTreeWidget* view = treeOf(this);
    if (!view) return;
    if (column >= 0 && column < columnCount()) m_focusedColumn = column;
    if (row != selectedItem()) selectItem(row);
    if (QTreeWidgetItem* item = view->topLevelItem(row)) view->setCurrentItem(item, m_focusedColumn);
}

void KxMappingTabListBase::beginCellEdit(int row, int column)
{
    const Editor editor = columnEditor(column);
    if (editor == Editor::None || row < 0 || row >= itemCount()) return;
    focusCell(row, column);
    static const std::vector<KoString> none;
    editCell(row, column, editor == Editor::Choice ? columnChoices(column) : none);
}

bool KxMappingTabListBase::validateCell(int, int, const KoString&) { return true; }
void KxMappingTabListBase::cellCommitted(int, int, const KoString&) {}
void KxMappingTabListBase::contextMenu(Point, bool) {}

bool KxMappingTabListBase::commitCellEdit(int row, int column, const KoString& text)
{
    if (!validateCell(row, column, text)) return false;
    cellCommitted(row, column, text);
    return true;
}

bool KxMappingTabListBase::applyCellText(int row, int column, const KoString& text)
{
    if (!commitCellEdit(row, column, text)) return false;
    setItemText(row, column, text);
    return true;
}

KoString KxMappingTabListBase::cellToolTip(int row, int column) const { return itemText(row, column); }

bool KxMappingTabListBase::clipboardKey(int key)
{
    const int row = focusedRow();
    if (row < 0) return false;
    if (key == 'C') {
        const KoString text = itemText(row, m_focusedColumn);
        if (!text.isEmpty()) setClipboardText(text);
        return true;
    }
    if (key == 'V') {
        if (columnEditor(m_focusedColumn) != Editor::None) applyCellText(row, m_focusedColumn, clipboardText());
        return true;
    }
    return false;
}

bool KxMappingTabListBase::handleKey(int key, int modifiers)
{
    if ((modifiers & kControl) && (key == 'C' || key == 'V' || key == 'X')) return clipboardKey(key);
    if (modifiers & (kControl | kAlt)) return false;
    const int row = focusedRow();
    switch (key) {
    case kKeyF2:
    case kKeyReturn:
    case kKeyEnter:
        beginCellEdit(row, m_focusedColumn);
        return row >= 0;
    case Qt::Key_Left:
        focusCell(row, std::max(0, m_focusedColumn - 1));
        return true;
    case Qt::Key_Right:
        focusCell(row, std::min(columnCount() - 1, m_focusedColumn + 1));
        return true;
    default:
        return false;
    }
}
