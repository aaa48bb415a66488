// The generic editable grid: a report list whose cells are edited in place,
// each column with its own editor (an edit box, a drop-down of choices, or
// none). A grid of mappings derives from it and adds only what is its own:
// filling, validation, the clipboard's rules and the context menu, through
// the virtual hooks below.
#pragma once

#include <map>
#include <vector>

#include "kora/ui/controls.h"

class KORA_API KxMappingTabListBase : public Kora::Ui::ListCtrl {
public:
    enum class Editor { None, Text, Choice };

    KxMappingTabListBase();
    void create(CKdUiBaseDialog& dialog, int id, const Kora::Ui::Rect& layout);

    void setColumnEditor(int column, Editor editor);
    Editor columnEditor(int column) const;
    // The entries a Choice column's drop-down offers.
    void setColumnChoices(int column, std::vector<KoString> choices);
    const std::vector<KoString>& columnChoices(int column) const;

    // The cell at a point of the grid's client area; false outside cells.
    bool cellAt(Kora::Ui::Point at, int& row, int& column) const;
    // The focused cell: set by a click, by the arrow keys and by
    // focusCell(); the row is the selected row.
    int focusedRow() const { return selectedItem(); }
    int focusedColumn() const { return m_focusedColumn; }
    void focusCell(int row, int column);
    // Opens the cell's editor (nothing for a column without one). Enter,
    // a pick from the drop-down and a loss of focus commit through
    // validateCell; Escape cancels.
    void beginCellEdit(int row, int column);

protected:
    // A commit the grid may refuse: false keeps the cell's old text.
    virtual bool validateCell(int row, int column, const KoString& text);
    // A cell took a new text (edited or pasted).
    virtual void cellCommitted(int row, int column, const KoString& text);
    // Ctrl with C, V or X: true when the key was handled. The default
    // copies the focused cell's text (Ctrl+C) and pastes into a focused
    // cell that has an editor (Ctrl+V), both through the hooks above.
    virtual bool clipboardKey(int key);
    // Right click or the menu key (at the centre of the client area).
    virtual void contextMenu(Kora::Ui::Point at, bool fromKeyboard);
    // The text of the cell under the mouse.
    KoString cellToolTip(int row, int column) const override;
    bool commitCellEdit(int row, int column, const KoString& text) override;

    // Applies a text to a cell as an edit would: validated, then
    // committed. Answers whether the cell took it.
    bool applyCellText(int row, int column, const KoString& text);

private:
    bool handleKey(int key, int modifiers);
    std::map<int, Editor> m_editors;
    std::map<int, std::vector<KoString>> m_choices;
    int m_focusedColumn = 0;
};
