// The controls of the kit's dialogs: thin wrappers on Qt widgets, created
// by a dialog at a rectangle under a numeric control id. Rectangles given
// to create() are layout units (pixels at a DPI scale of 1) and are scaled
// by koraGetDPIScale(); everything read back (rect(), itemRect(), points
// of hooks) is in pixels. Key codes and modifiers are the Qt values, named
// here so that callers need no Qt header.
#pragma once

#include <functional>
#include <vector>

#include "kora/export.h"
#include "kora/kostring.h"

class QWidget;
class CKdUiBaseDialog;

namespace Kora::Ui {

struct Rect {
    int x = 0;
    int y = 0;
    int width = 0;
    int height = 0;
    bool operator==(const Rect&) const = default;
};

struct Point {
    int x = 0;
    int y = 0;
};

struct Colour {
    unsigned char red = 0;
    unsigned char green = 0;
    unsigned char blue = 0;
    bool operator==(const Colour&) const = default;
};

enum Key : int {
    kKeyEscape = 0x01000000,
    kKeyTab = 0x01000001,
    kKeyReturn = 0x01000004,
    kKeyEnter = 0x01000005,
    kKeyDelete = 0x01000007,
    kKeyF1 = 0x01000030,
    kKeyF2 = 0x01000031,
    kKeyMenu = 0x01000055,
    // Letters and digits are their upper-case character codes.
};

enum Modifier : int {
    kShift = 0x02000000,
    kControl = 0x04000000,
    kAlt = 0x08000000,
};

enum class Elide { None, End, Middle };

// A key hook answers true when it consumed the key.
using KeyHook = std::function<bool(int key, int modifiers)>;
// Context menus: the point is in the control's own pixels; from the
// keyboard it is the centre of the control's client area.
using ContextMenuHook = std::function<void(Point at, bool fromKeyboard)>;

class KORA_API Control {
public:
    Control() = default;
    Control(const Control&) = delete;
    Control& operator=(const Control&) = delete;
    virtual ~Control();

    int id() const { return m_id; }
    // The widget while the dialog's window exists, else null.
    QWidget* widget() const { return m_widget; }

    virtual KoString text() const;
    virtual void setText(const KoString& text);
    void enable(bool on);
    bool isEnabled() const;
    // Shown or hidden by the dialog (not whether the window is on screen).
    void show(bool on);
    bool isShown() const;
    // In the dialog's pixels.
    Rect rect() const;
    void move(const Rect& pixels);
    void setFocus();
    bool hasFocus() const;
    void setToolTip(const KoString& text);
    // A rectangle of the control's client area (a list's rows, under its
    // header) in the dialog's pixels: where an editor placed over a row of
    // the control goes.
    Rect mapToDialog(const Rect& client) const;
    // Takes another control's font (a label drawn in a button's font).
    void setFontFrom(const Control& other);

protected:
    // Registers the control with its dialog; the widget becomes a child of
    // the dialog's window.
    void attach(CKdUiBaseDialog& dialog, int id, QWidget* widget, const Rect& layout);

private:
    friend class ::CKdUiBaseDialog;
    CKdUiBaseDialog* m_dialog = nullptr;
    QWidget* m_widget = nullptr;
    int m_id = 0;
};

// Push buttons, check boxes and radio buttons. A click reaches the dialog
// as OnCommand(id). Radio buttons of one group number exclude each other.
class KORA_API Button : public Control {
public:
    enum class Kind { Push, Default, Check, Radio };
    void create(CKdUiBaseDialog& dialog, int id, const KoString& text, const Rect& layout, Kind kind = Kind::Push, int radioGroup = 0);
    bool isChecked() const;
    void setChecked(bool on);
};

class KORA_API Edit : public Control {
public:
    void create(CKdUiBaseDialog& dialog, int id, const KoString& text, const Rect& layout, bool readOnly = false);
    void setReadOnly(bool on);
    void selectAll();
    // Draws a one-pixel frame of this colour inside the edit's rectangle,
    // narrowed by one pixel left and right, instead of the style's frame.
    void setFrameColour(Colour colour);

    KeyHook onKey;
    std::function<void()> onFocusLost;
};

// A label that draws its text elided to its width (End: "...", Middle:
// a path ellipsis) and shows the whole text as a tooltip when it is cut.
class KORA_API Label : public Control {
public:
    void create(CKdUiBaseDialog& dialog, int id, const KoString& text, const Rect& layout, Elide elide = Elide::None);
    void setElide(Elide elide);
    void setWordBreak(bool on);
    void setTextColour(Colour colour);
    // The text as drawn at the label's current width.
    KoString shownText() const;
};

// A standard icon (the message boxes' pictures).
class KORA_API Picture : public Control {
public:
    enum class Icon { Information, Question, Warning, Error };
    void create(CKdUiBaseDialog& dialog, int id, Icon icon, const Rect& layout);
};

// The sort state of a list's header: recorded and drawn as the arrow; the
// rows are never reordered by it.
class KORA_API SortHeader {
public:
    void setSortState(int column, bool ascending);
    int sortColumn() const { return m_column; }
    bool sortAscending() const { return m_ascending; }

private:
    friend class ListCtrl;
    QWidget* m_header = nullptr;
    int m_column = -1;
    bool m_ascending = true;
};

// A report list: columns, rows of texts, full-row selection, a selection
// mark, per-row colours, label editing in place on column 0.
class KORA_API ListCtrl : public Control {
public:
    enum class Align { Left, Centre, Right };
    void create(CKdUiBaseDialog& dialog, int id, const Rect& layout);

    int insertColumn(int index, const KoString& title, int width, Align align = Align::Left);
    bool deleteColumn(int index);
    int columnCount() const;
    int columnWidth(int column) const;
    // Selection (and the focus frame) over whole rows; on by default.
    void setFullRowSelect(bool on);
    // Every row this many pixels high (0: as the font needs).
    void setRowHeight(int pixels);
    void setColumnWidth(int column, int width);
    SortHeader& header() { return m_header; }

    // Answers the row inserted (index clamped to the row count).
    int insertItem(int row, const KoString& text);
    bool setItemText(int row, int column, const KoString& text);
    KoString itemText(int row, int column) const;
    bool deleteItem(int row);
    void deleteAllItems();
    int itemCount() const;

    // The first selected row, or -1.
    int selectedItem() const;
    // Selects and focuses only this row (-1 clears the selection).
    void selectItem(int row);
    int selectionMark() const { return m_mark; }
    void setSelectionMark(int row) { m_mark = row; }
    void ensureVisible(int row);
    // In the list's own pixels; hitTest answers the row or -1.
    Rect itemRect(int row, int column) const;
    int hitTest(Point at) const;
    Point clientCentre() const;

    // Colours of one row; selected rows take the selection colours, drawn
    // the same whether or not the list has the focus.
    void setRowColours(int row, Colour text, Colour background);
    void setSelectionColours(Colour text, Colour background);

    // Opens the in-place editor on column 0 of the row. Enter or a loss of
    // focus ends it through onEndLabelEdit (whose answer decides whether
    // the row takes the text); Escape puts the old text back and ends it
    // with no call. The editor stays on the row's label when the list is
    // resized or scrolled.
    void editLabel(int row);
    bool isEditing() const;
    // The editor while a cell is edited, else null.
    QWidget* cellEditor() const;

    std::function<void(int row)> onBeginLabelEdit;
    std::function<bool(int row, const KoString& text)> onEndLabelEdit;
    std::function<void(int row)> onSelectionChanged;
    std::function<void(int row)> onClick;        // -1 outside the rows
    std::function<void(int row)> onDoubleClick;  // -1 outside the rows
    KeyHook onKey;
    ContextMenuHook onContextMenu;

protected:
    // Edits any cell in place: an edit box, or a drop-down of the choices
    // when there are some. Enter, a pick from the drop-down and a loss of
    // focus commit; Escape cancels.
    void editCell(int row, int column, const std::vector<KoString>& choices = {});
    // A committed edit: true lets the cell take the text. The default asks
    // onEndLabelEdit.
    virtual bool commitCellEdit(int row, int column, const KoString& text);
    // The tooltip of the cell under the mouse: by default its text when
    // the cell is too narrow for it, else nothing.
    virtual KoString cellToolTip(int row, int column) const;

private:
    friend class TreeView;
    SortHeader m_header;
    int m_mark = -1;
};

// A single-column list of texts; names too wide for it show as tooltips.
class KORA_API ListBox : public Control {
public:
    void create(CKdUiBaseDialog& dialog, int id, const Rect& layout);
    int addString(const KoString& text);
    int insertString(int index, const KoString& text);
    bool deleteString(int index);
    void resetContent();
    int count() const;
    KoString itemText(int index) const;
    int curSel() const;
    void setCurSel(int index);
    // The first row from `after` + 1 on (wrapping) whose text equals `text`
    // without regard to case, or -1.
    int findStringExact(int after, const KoString& text) const;
    Rect itemRect(int index) const;
    int itemFromPoint(Point at) const;
    Point clientCentre() const;

    std::function<void(int index)> onSelChange;
    std::function<void(int index)> onDoubleClick;  // -1 outside the rows
    KeyHook onKey;
    ContextMenuHook onContextMenu;
};

// A drop-down list, with an edit field when editable.
class KORA_API ComboBox : public Control {
public:
    void create(CKdUiBaseDialog& dialog, int id, const Rect& layout, bool editable = false);
    int addString(const KoString& text);
    void resetContent();
    int count() const;
    KoString itemText(int index) const;
    int curSel() const;
    void setCurSel(int index);
    int findStringExact(const KoString& text) const;
    KoString text() const override;
    void setText(const KoString& text) override;

    std::function<void(int index)> onSelChange;
};

// Tabs over a framed page area. The pages are the dialog's own controls,
// placed over contentRect() and shown or hidden by the owner on
// onSelChange, as a tab control does.
class KORA_API TabCtrl : public Control {
public:
    void create(CKdUiBaseDialog& dialog, int id, const Rect& layout);
    int insertItem(int index, const KoString& text);
    int count() const;
    KoString itemText(int index) const;
    int curSel() const;
    void setCurSel(int index);
    // The page area in the dialog's pixels: the control less its tabs and
    // a margin of 3 pixels times the DPI scale.
    Rect contentRect() const;

    std::function<void(int index)> onSelChange;
};

// A popup menu entry; command 0 is a separator.
struct MenuItem {
    int command = 0;
    KoString text;
    bool enabled = true;
};

// Shows a popup menu at a point of a control and answers the chosen
// command, 0 when none.
KORA_API int trackPopupMenu(const Control& owner, Point at, const std::vector<MenuItem>& items);

}  // namespace Kora::Ui
