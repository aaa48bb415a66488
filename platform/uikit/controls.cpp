#include "kora/ui/controls.h"

#include <QApplication>
#include <QButtonGroup>
#include <QCheckBox>
#include <QComboBox>
#include <QContextMenuEvent>
#include <QFrame>
#include <QHeaderView>
#include <QHelpEvent>
#include <QKeyEvent>
#include <QLabel>
#include <QLineEdit>
#include <QListWidget>
#include <QMenu>
#include <QPainter>
#include <QPushButton>
#include <QResizeEvent>
#include <QRadioButton>
#include <QStyle>
#include <QStyledItemDelegate>
#include <QTabBar>
#include <QToolTip>
#include <QTreeWidget>

#include <algorithm>
#include <optional>

#include "kora/ui/dialog.h"
#include "uikitqt.h"

namespace Kora::Ui {

namespace {

int modifiersOf(const QKeyEvent* event) { return static_cast<int>(event->modifiers().toInt()); }

// Key and context-menu hooks of a scroll-area control (the lists).
template <class Base>
class HookedView : public Base {
public:
    using Base::Base;
    KeyHook* keyHook = nullptr;
    ContextMenuHook* menuHook = nullptr;

protected:
    void keyPressEvent(QKeyEvent* event) override
    {
        if (keyHook && *keyHook && (*keyHook)(event->key(), modifiersOf(event))) {
            event->accept();
            return;
        }
        Base::keyPressEvent(event);
    }
    void contextMenuEvent(QContextMenuEvent* event) override
    {
        if (!menuHook || !*menuHook) return Base::contextMenuEvent(event);
        const bool keyboard = event->reason() == QContextMenuEvent::Keyboard;
        const QRect area = this->viewport()->rect();
        const QPoint at = keyboard ? area.center() : event->pos();
        (*menuHook)(Point{at.x(), at.y()}, keyboard);
    }
};

}  // namespace

// ---------------------------------------------------------------------------
// Control

Control::~Control()
{
    if (!m_dialog) return;
    m_dialog->forgetControl(this);
    // A widget outliving its control would call hooks of a gone object.
    delete m_widget;
}

void Control::attach(CKdUiBaseDialog& dialog, int id, QWidget* widget, const Rect& layout)
{
    m_dialog = &dialog;
    m_widget = widget;
    m_id = id;
    widget->setProperty(kControlIdProperty, id);
    widget->setObjectName(QStringLiteral("control%1").arg(id));
    widget->setGeometry(scaled(layout));
    widget->show();
    dialog.registerControl(this);
}

KoString Control::text() const
{
    if (auto* button = qobject_cast<QAbstractButton*>(m_widget)) return fromQ(button->text());
    if (auto* edit = qobject_cast<QLineEdit*>(m_widget)) return fromQ(edit->text());
    return m_widget ? fromQ(m_widget->property("koraText").toString()) : KoString();
}

void Control::setText(const KoString& text)
{
    if (auto* button = qobject_cast<QAbstractButton*>(m_widget)) button->setText(toQ(text));
    else if (auto* edit = qobject_cast<QLineEdit*>(m_widget)) edit->setText(toQ(text));
    else if (auto* label = qobject_cast<QLabel*>(m_widget)) {
        // Labels keep the whole text; what they draw may be elided.
        label->setProperty("koraText", toQ(text));
        label->update();
    }
}

void Control::enable(bool on)
{
    if (m_widget) m_widget->setEnabled(on);
}
bool Control::isEnabled() const { return m_widget && m_widget->isEnabled(); }
void Control::show(bool on)
{
    if (m_widget) m_widget->setVisible(on);
}
bool Control::isShown() const { return m_widget && !m_widget->isHidden(); }
Rect Control::rect() const { return m_widget ? fromQ(m_widget->geometry()) : Rect{}; }
void Control::move(const Rect& pixels)
{
    if (m_widget) m_widget->setGeometry(toQ(pixels));
}
void Control::setFocus()
{
    if (m_widget) m_widget->setFocus(Qt::OtherFocusReason);
}
bool Control::hasFocus() const { return m_widget && m_widget->hasFocus(); }
void Control::setToolTip(const KoString& text)
{
    if (m_widget) m_widget->setToolTip(toQ(text));
}

Rect Control::mapToDialog(const Rect& client) const
{
    if (!m_widget) return {};
    QWidget* area = m_widget;
    if (auto* scroll = qobject_cast<QAbstractScrollArea*>(m_widget)) area = scroll->viewport();
    const QPoint origin = area->mapTo(m_widget->window(), QPoint(client.x, client.y));
    return Rect{origin.x(), origin.y(), client.width, client.height};
}

void Control::setFontFrom(const Control& other)
{
    if (m_widget && other.m_widget) m_widget->setFont(other.m_widget->font());
}

// ---------------------------------------------------------------------------
// Button

void Button::create(CKdUiBaseDialog& dialog, int id, const KoString& text, const Rect& layout, Kind kind, int radioGroup)
{
    QWidget* parent = dialog.window();
    if (!parent) return;
    QAbstractButton* button = nullptr;
    switch (kind) {
    case Kind::Push:
    case Kind::Default: {
        auto* push = new QPushButton(toQ(text), parent);
        push->setAutoDefault(false);
        push->setDefault(kind == Kind::Default);
        button = push;
        break;
    }
    case Kind::Check:
        button = new QCheckBox(toQ(text), parent);
        break;
    case Kind::Radio: {
        button = new QRadioButton(toQ(text), parent);
        // Radio buttons of one group exclude each other, not every radio
        // button of the dialog.
        const QString groupName = QStringLiteral("koraRadioGroup%1").arg(radioGroup);
        auto* group = parent->findChild<QButtonGroup*>(groupName, Qt::FindDirectChildrenOnly);
        if (!group) {
            group = new QButtonGroup(parent);
            group->setObjectName(groupName);
        }
        group->addButton(button);
        break;
    }
    }
    attach(dialog, id, button, layout);
    auto* window = static_cast<DialogWindow*>(parent);
    QObject::connect(button, &QAbstractButton::clicked, button, [window, id] { window->command(id); });
}

bool Button::isChecked() const
{
    auto* button = qobject_cast<QAbstractButton*>(widget());
    return button && button->isChecked();
}

void Button::setChecked(bool on)
{
    auto* button = qobject_cast<QAbstractButton*>(widget());
    if (!button) return;
    // An exclusive group refuses to uncheck its checked button.
    QButtonGroup* group = button->group();
    const bool exclusive = group && group->exclusive();
    if (exclusive && !on) group->setExclusive(false);
    button->setChecked(on);
    if (exclusive && !on) group->setExclusive(true);
}

// ---------------------------------------------------------------------------
// Edit

namespace {

class HookedEdit final : public QLineEdit {
public:
    explicit HookedEdit(Edit& owner, QWidget* parent) : QLineEdit(parent), m_owner(owner) {}
    std::optional<QColor> frame;

protected:
    void keyPressEvent(QKeyEvent* event) override
    {
        if (m_owner.onKey && m_owner.onKey(event->key(), modifiersOf(event))) {
            event->accept();
            return;
        }
        QLineEdit::keyPressEvent(event);
    }
    void focusOutEvent(QFocusEvent* event) override
    {
        QLineEdit::focusOutEvent(event);
        if (event->reason() != Qt::PopupFocusReason && m_owner.onFocusLost) m_owner.onFocusLost();
    }
    void paintEvent(QPaintEvent* event) override
    {
        QLineEdit::paintEvent(event);
        if (!frame) return;
        QPainter painter(this);
        painter.setPen(*frame);
        painter.drawRect(rect().adjusted(1, 0, -2, -1));
    }

private:
    Edit& m_owner;
};

}  // namespace

void Edit::create(CKdUiBaseDialog& dialog, int id, const KoString& text, const Rect& layout, bool readOnly)
{
    if (!dialog.window()) return;
    auto* edit = new HookedEdit(*this, dialog.window());
    edit->setText(toQ(text));
    edit->setReadOnly(readOnly);
    attach(dialog, id, edit, layout);
}

void Edit::setReadOnly(bool on)
{
    if (auto* edit = qobject_cast<QLineEdit*>(widget())) edit->setReadOnly(on);
}

void Edit::setFrameColour(Colour colour)
{
    if (auto* edit = dynamic_cast<HookedEdit*>(widget())) {
        edit->setFrame(false);
        edit->frame = toQ(colour);
        edit->update();
    }
}

void Edit::selectAll()
{
    if (auto* edit = qobject_cast<QLineEdit*>(widget())) edit->selectAll();
}

// ---------------------------------------------------------------------------
// Label

namespace {

// Draws its whole text (kept in a property) elided to its width; a cut
// text shows whole as a tooltip.
class ElidingLabel final : public QLabel {
public:
    using QLabel::QLabel;
    Elide elide = Elide::None;
    bool wordBreak = false;

    QString shown() const
    {
        const QString text = property("koraText").toString();
        if (elide == Elide::None) return text;
        return fontMetrics().elidedText(text, elide == Elide::Middle ? Qt::ElideMiddle : Qt::ElideRight, contentsRect().width());
    }

protected:
    void paintEvent(QPaintEvent*) override
    {
        QPainter painter(this);
        QFrame::drawFrame(&painter);
        int flags = Qt::AlignLeft | Qt::AlignTop;
        if (wordBreak && elide == Elide::None) flags |= Qt::TextWordWrap;
        painter.drawText(contentsRect(), flags, shown());
    }
    bool event(QEvent* event) override
    {
        if (event->type() == QEvent::ToolTip) {
            const QString text = property("koraText").toString();
            if (shown() != text) QToolTip::showText(static_cast<QHelpEvent*>(event)->globalPos(), text, this);
            else QToolTip::hideText();
            return true;
        }
        return QLabel::event(event);
    }
};

}  // namespace

void Label::create(CKdUiBaseDialog& dialog, int id, const KoString& text, const Rect& layout, Elide elide)
{
    if (!dialog.window()) return;
    auto* label = new ElidingLabel(dialog.window());
    label->elide = elide;
    attach(dialog, id, label, layout);
    setText(text);
}

void Label::setElide(Elide elide)
{
    if (auto* label = dynamic_cast<ElidingLabel*>(widget())) {
        label->elide = elide;
        label->update();
    }
}

void Label::setWordBreak(bool on)
{
    if (auto* label = dynamic_cast<ElidingLabel*>(widget())) {
        label->wordBreak = on;
        label->update();
    }
}

void Label::setTextColour(Colour colour)
{
    if (!widget()) return;
    QPalette palette = widget()->palette();
    palette.setColor(QPalette::WindowText, toQ(colour));
    widget()->setPalette(palette);
}

KoString Label::shownText() const
{
    auto* label = dynamic_cast<ElidingLabel*>(widget());
    return label ? fromQ(label->shown()) : KoString();
}

// ---------------------------------------------------------------------------
// Picture

void Picture::create(CKdUiBaseDialog& dialog, int id, Icon icon, const Rect& layout)
{
    if (!dialog.window()) return;
    auto* label = new QLabel(dialog.window());
    QStyle::StandardPixmap which = QStyle::SP_MessageBoxInformation;
    if (icon == Icon::Question) which = QStyle::SP_MessageBoxQuestion;
    if (icon == Icon::Warning) which = QStyle::SP_MessageBoxWarning;
    if (icon == Icon::Error) which = QStyle::SP_MessageBoxCritical;
    const QRect pixels = scaled(layout);
    label->setPixmap(label->style()->standardIcon(which).pixmap(pixels.size()));
    attach(dialog, id, label, layout);
}

// ---------------------------------------------------------------------------
// SortHeader

void SortHeader::setSortState(int column, bool ascending)
{
    m_column = column;
    m_ascending = ascending;
    if (auto* header = qobject_cast<QHeaderView*>(m_header)) {
        header->setSortIndicatorShown(true);
        header->setSortIndicator(column, ascending ? Qt::AscendingOrder : Qt::DescendingOrder);
        header->viewport()->update();
    }
}

// ---------------------------------------------------------------------------
// ListCtrl

class TreeView final : public HookedView<QTreeWidget> {
public:
    TreeView(ListCtrl& owner, QWidget* parent) : HookedView<QTreeWidget>(parent), m_owner(owner)
    {
        keyHook = &owner.onKey;
        menuHook = &owner.onContextMenu;
        QObject::connect(header(), &QHeaderView::sectionResized, this, [this] { placeEditor(); });
    }
    ~TreeView() override { delete std::exchange(m_editor, nullptr); }

    QTreeWidgetItem* row(int index) const { return index >= 0 && index < topLevelItemCount() ? topLevelItem(index) : nullptr; }
    int indexOf(const QTreeWidgetItem* item) const { return item ? indexOfTopLevelItem(const_cast<QTreeWidgetItem*>(item)) : -1; }
    QRect cellRect(int r, int column) const
    {
        QTreeWidgetItem* item = row(r);
        return item ? visualRect(indexFromItem(item, column)) : QRect();
    }

    void beginEdit(int r, int column, const std::vector<KoString>& choices)
    {
        endEdit(false);
        if (!row(r) || column < 0 || column >= columnCount()) return;
        m_editRow = r;
        m_editColumn = column;
        m_oldText = row(r)->text(column);
        if (choices.empty()) {
            auto* edit = new CellEditor<QLineEdit>(*this, viewport());
            edit->setText(m_oldText);
            edit->selectAll();
            m_editor = edit;
        } else {
            auto* combo = new CellEditor<QComboBox>(*this, viewport());
            for (const KoString& choice : choices) combo->addItem(toQ(choice));
            combo->setCurrentIndex(combo->findText(m_oldText, Qt::MatchFixedString));
            QObject::connect(combo, &QComboBox::activated, combo, [this] { endEdit(true); });
            m_editor = combo;
        }
        placeEditor();
        m_editor->show();
        m_editor->setFocus(Qt::OtherFocusReason);
    }

    // Commits (Enter, a pick, focus loss) or cancels (Escape) the edit.
    void endEdit(bool commit)
    {
        if (!m_editor) return;
        QWidget* editor = std::exchange(m_editor, nullptr);
        QString text;
        if (auto* edit = qobject_cast<QLineEdit*>(editor)) text = edit->text();
        else if (auto* combo = qobject_cast<QComboBox*>(editor)) text = combo->currentText();
        editor->hide();
        editor->deleteLater();
        const int r = m_editRow;
        const int column = m_editColumn;
        if (!commit) {
            if (row(r)) row(r)->setText(column, m_oldText);
            return;
        }
        if (m_owner.commitCellEdit(r, column, fromQ(text)) && row(r)) row(r)->setText(column, text);
    }

    QWidget* editor() const { return m_editor; }

protected:
    void resizeEvent(QResizeEvent* event) override
    {
        QTreeWidget::resizeEvent(event);
        placeEditor();
    }
    void scrollContentsBy(int dx, int dy) override
    {
        QTreeWidget::scrollContentsBy(dx, dy);
        placeEditor();
    }
    // A click is reported once it is complete: the view's own handling of
    // the release (which clears the selection on empty space) comes first,
    // so an owner that selects a row again keeps it.
    void mouseReleaseEvent(QMouseEvent* event) override
    {
        QTreeWidget::mouseReleaseEvent(event);
        if (m_owner.onClick) m_owner.onClick(indexOf(itemAt(event->pos())));
    }
    void mouseDoubleClickEvent(QMouseEvent* event) override
    {
        QTreeWidget::mouseDoubleClickEvent(event);
        if (m_owner.onDoubleClick) m_owner.onDoubleClick(indexOf(itemAt(event->pos())));
    }
    bool viewportEvent(QEvent* event) override
    {
        if (event->type() == QEvent::ToolTip) {
            const QPoint at = static_cast<QHelpEvent*>(event)->pos();
            const QModelIndex index = indexAt(at);
            const KoString tip = index.isValid() ? m_owner.cellToolTip(index.row(), index.column()) : KoString();
            if (tip.isEmpty()) QToolTip::hideText();
            else QToolTip::showText(static_cast<QHelpEvent*>(event)->globalPos(), toQ(tip), viewport());
            return true;
        }
        return QTreeWidget::viewportEvent(event);
    }

private:
    // An in-place editor (an edit box or a drop-down): Enter commits and,
    // like Escape, must not reach the dialog's default button; losing the
    // focus commits, except to the drop-down's own popup.
    template <class Base>
    class CellEditor final : public Base {
    public:
        CellEditor(TreeView& view, QWidget* parent) : Base(parent), m_view(view) {}

    protected:
        void keyPressEvent(QKeyEvent* event) override
        {
            if (event->key() == Qt::Key_Return || event->key() == Qt::Key_Enter) return m_view.endEdit(true);
            if (event->key() == Qt::Key_Escape) return m_view.endEdit(false);
            Base::keyPressEvent(event);
        }
        void focusOutEvent(QFocusEvent* event) override
        {
            Base::focusOutEvent(event);
            if (event->reason() != Qt::PopupFocusReason) m_view.endEdit(true);
        }

    private:
        TreeView& m_view;
    };

    void placeEditor()
    {
        if (m_editor) m_editor->setGeometry(cellRect(m_editRow, m_editColumn));
    }

    ListCtrl& m_owner;
    QWidget* m_editor = nullptr;
    int m_editRow = -1;
    int m_editColumn = -1;
    QString m_oldText;
};

namespace {
TreeView* tree(const Control* control) { return dynamic_cast<TreeView*>(control->widget()); }
Qt::Alignment alignmentOf(ListCtrl::Align align)
{
    if (align == ListCtrl::Align::Centre) return Qt::AlignCenter;
    if (align == ListCtrl::Align::Right) return Qt::AlignRight | Qt::AlignVCenter;
    return Qt::AlignLeft | Qt::AlignVCenter;
}
}  // namespace

void ListCtrl::create(CKdUiBaseDialog& dialog, int id, const Rect& layout)
{
    if (!dialog.window()) return;
    auto* view = new TreeView(*this, dialog.window());
    view->setColumnCount(0);
    view->setRootIsDecorated(false);
    view->setUniformRowHeights(true);
    view->setItemsExpandable(false);
    view->setSelectionMode(QAbstractItemView::SingleSelection);
    view->setSelectionBehavior(QAbstractItemView::SelectRows);
    view->setAllColumnsShowFocus(true);
    view->setEditTriggers(QAbstractItemView::NoEditTriggers);
    view->setSortingEnabled(false);
    view->header()->setSectionsMovable(false);
    view->header()->setStretchLastSection(false);
    m_header.m_header = view->header();
    QObject::connect(view, &QTreeWidget::itemSelectionChanged, view, [this] {
        const int row = selectedItem();
        if (row >= 0 && onSelectionChanged) onSelectionChanged(row);
    });
    attach(dialog, id, view, layout);
}

namespace {

class RowHeight final : public QStyledItemDelegate {
public:
    RowHeight(int pixels, QObject* parent) : QStyledItemDelegate(parent), m_pixels(pixels) {}
    QSize sizeHint(const QStyleOptionViewItem& option, const QModelIndex& index) const override
    {
        QSize size = QStyledItemDelegate::sizeHint(option, index);
        if (m_pixels > 0) size.setHeight(m_pixels);
        return size;
    }

private:
    int m_pixels;
};

}  // namespace

void ListCtrl::setRowHeight(int pixels)
{
    TreeView* view = tree(this);
    if (!view) return;
    QAbstractItemDelegate* previous = view->itemDelegate();
    view->setItemDelegate(new RowHeight(pixels, view));
    if (previous && previous->parent() == view) previous->deleteLater();
}

void ListCtrl::setFullRowSelect(bool on)
{
    if (TreeView* view = tree(this)) view->setSelectionBehavior(on ? QAbstractItemView::SelectRows : QAbstractItemView::SelectItems);
}

int ListCtrl::insertColumn(int index, const KoString& title, int width, Align align)
{
    TreeView* view = tree(this);
    if (!view) return -1;
    index = std::clamp(index, 0, view->columnCount());
    view->model()->insertColumn(index);
    // A tree widget's header item knows only as many columns as were set.
    QTreeWidgetItem* headerItem = view->headerItem();
    headerItem->setText(index, toQ(title));
    headerItem->setTextAlignment(index, alignmentOf(align));
    view->header()->resizeSection(index, width);
    return index;
}

bool ListCtrl::deleteColumn(int index)
{
    TreeView* view = tree(this);
    if (!view || index < 0 || index >= view->columnCount()) return false;
    // A tree widget only drops its last columns: the ones after the column
    // move down by one first, with their texts, looks and widths.
    const int last = view->columnCount() - 1;
    auto shift = [index, last](QTreeWidgetItem* item) {
        for (int c = index; c < last; ++c) {
            for (int role : {Qt::DisplayRole, Qt::TextAlignmentRole, Qt::ForegroundRole, Qt::BackgroundRole})
                item->setData(c, role, item->data(c + 1, role));
        }
    };
    shift(view->headerItem());
    for (int r = 0; r < view->topLevelItemCount(); ++r) shift(view->topLevelItem(r));
    for (int c = index; c < last; ++c) view->header()->resizeSection(c, view->header()->sectionSize(c + 1));
    view->setColumnCount(last);
    return true;
}

int ListCtrl::columnCount() const
{
    TreeView* view = tree(this);
    return view ? view->columnCount() : 0;
}

int ListCtrl::columnWidth(int column) const
{
    TreeView* view = tree(this);
    return view ? view->header()->sectionSize(column) : 0;
}

void ListCtrl::setColumnWidth(int column, int width)
{
    if (TreeView* view = tree(this)) view->header()->resizeSection(column, width);
}

int ListCtrl::insertItem(int row, const KoString& text)
{
    TreeView* view = tree(this);
    if (!view) return -1;
    row = std::clamp(row, 0, view->topLevelItemCount());
    auto* item = new QTreeWidgetItem;
    for (int c = 0; c < view->columnCount(); ++c) {
        const QVariant align = view->headerItem()->data(c, Qt::TextAlignmentRole);
        if (align.isValid()) item->setTextAlignment(c, Qt::Alignment(align.toInt()));
    }
    item->setText(0, toQ(text));
    view->insertTopLevelItem(row, item);
    return row;
}

bool ListCtrl::setItemText(int row, int column, const KoString& text)
{
    TreeView* view = tree(this);
    QTreeWidgetItem* item = view ? view->row(row) : nullptr;
    if (!item || column < 0 || column >= view->columnCount()) return false;
    item->setText(column, toQ(text));
    return true;
}

KoString ListCtrl::itemText(int row, int column) const
{
    TreeView* view = tree(this);
    QTreeWidgetItem* item = view ? view->row(row) : nullptr;
    return item ? fromQ(item->text(column)) : KoString();
}

bool ListCtrl::deleteItem(int row)
{
    TreeView* view = tree(this);
    if (!view || !view->row(row)) return false;
    delete view->takeTopLevelItem(row);
    return true;
}

void ListCtrl::deleteAllItems()
{
    if (TreeView* view = tree(this)) view->clear();
}

int ListCtrl::itemCount() const
{
    TreeView* view = tree(this);
    return view ? view->topLevelItemCount() : 0;
}

int ListCtrl::selectedItem() const
{
    TreeView* view = tree(this);
    if (!view) return -1;
    const QList<QTreeWidgetItem*> selected = view->selectedItems();
    return selected.isEmpty() ? -1 : view->indexOf(selected.first());
}

void ListCtrl::selectItem(int row)
{
    TreeView* view = tree(this);
    if (!view) return;
    QTreeWidgetItem* item = view->row(row);
    if (!item) {
        view->clearSelection();
        return;
    }
    view->setCurrentItem(item);
    item->setSelected(true);
}

void ListCtrl::ensureVisible(int row)
{
    TreeView* view = tree(this);
    if (QTreeWidgetItem* item = view ? view->row(row) : nullptr) view->scrollToItem(item);
}

Rect ListCtrl::itemRect(int row, int column) const
{
    TreeView* view = tree(this);
    return view ? fromQ(view->cellRect(row, column)) : Rect{};
}

int ListCtrl::hitTest(Point at) const
{
    TreeView* view = tree(this);
    return view ? view->indexOf(view->itemAt(at.x, at.y)) : -1;
}

Point ListCtrl::clientCentre() const
{
    TreeView* view = tree(this);
    const QPoint c = view ? view->viewport()->rect().center() : QPoint();
    return Point{c.x(), c.y()};
}

void ListCtrl::setRowColours(int row, Colour text, Colour background)
{
    TreeView* view = tree(this);
    QTreeWidgetItem* item = view ? view->row(row) : nullptr;
    if (!item) return;
    for (int c = 0; c < view->columnCount(); ++c) {
        item->setForeground(c, toQ(text));
        item->setBackground(c, toQ(background));
    }
}

void ListCtrl::setSelectionColours(Colour text, Colour background)
{
    TreeView* view = tree(this);
    if (!view) return;
    QPalette palette = view->palette();
    for (QPalette::ColorGroup group : {QPalette::Active, QPalette::Inactive}) {
        palette.setColor(group, QPalette::Highlight, toQ(background));
        palette.setColor(group, QPalette::HighlightedText, toQ(text));
    }
    view->setPalette(palette);
}

void ListCtrl::editLabel(int row)
{
    if (!tree(this) || row < 0 || row >= itemCount()) return;
    if (onBeginLabelEdit) onBeginLabelEdit(row);
    editCell(row, 0);
}

void ListCtrl::editCell(int row, int column, const std::vector<KoString>& choices)
{
    if (TreeView* view = tree(this)) view->beginEdit(row, column, choices);
}

bool ListCtrl::isEditing() const { return cellEditor() != nullptr; }

QWidget* ListCtrl::cellEditor() const
{
    TreeView* view = tree(this);
    return view ? view->editor() : nullptr;
}

bool ListCtrl::commitCellEdit(int row, int, const KoString& text)
{
    return onEndLabelEdit ? onEndLabelEdit(row, text) : true;
}

KoString ListCtrl::cellToolTip(int row, int column) const
{
    TreeView* view = tree(this);
    QTreeWidgetItem* item = view ? view->row(row) : nullptr;
    if (!item) return {};
    const int room = view->cellRect(row, column).width() - 2 * view->style()->pixelMetric(QStyle::PM_FocusFrameHMargin);
    return view->fontMetrics().horizontalAdvance(item->text(column)) > room ? fromQ(item->text(column)) : KoString();
}

// ---------------------------------------------------------------------------
// ListBox

namespace {

class ListView final : public HookedView<QListWidget> {
public:
    ListView(ListBox& owner, QWidget* parent) : HookedView<QListWidget>(parent), m_owner(owner)
    {
        keyHook = &owner.onKey;
        menuHook = &owner.onContextMenu;
    }

protected:
    void mouseDoubleClickEvent(QMouseEvent* event) override
    {
        QListWidget::mouseDoubleClickEvent(event);
        if (m_owner.onDoubleClick) m_owner.onDoubleClick(row(itemAt(event->pos())));
    }
    // A name wider than the list shows whole as a tooltip.
    bool viewportEvent(QEvent* event) override
    {
        if (event->type() == QEvent::ToolTip) {
            const auto* help = static_cast<QHelpEvent*>(event);
            const QListWidgetItem* item = itemAt(help->pos());
            if (item && fontMetrics().horizontalAdvance(item->text()) > viewport()->width())
                QToolTip::showText(help->globalPos(), item->text(), viewport());
            else QToolTip::hideText();
            return true;
        }
        return QListWidget::viewportEvent(event);
    }

private:
    ListBox& m_owner;
};

QListWidget* listOf(const Control* control) { return qobject_cast<QListWidget*>(control->widget()); }

int findExact(int count, int after, const QString& text, const std::function<QString(int)>& textAt)
{
    for (int i = 1; i <= count; ++i) {
        const int index = (after + i + count) % count;
        if (textAt(index).compare(text, Qt::CaseInsensitive) == 0) return index;
    }
    return -1;
}

}  // namespace

void ListBox::create(CKdUiBaseDialog& dialog, int id, const Rect& layout)
{
    if (!dialog.window()) return;
    auto* view = new ListView(*this, dialog.window());
    view->setSelectionMode(QAbstractItemView::SingleSelection);
    QObject::connect(view, &QListWidget::currentRowChanged, view, [this](int row) {
        if (onSelChange) onSelChange(row);
    });
    attach(dialog, id, view, layout);
}

int ListBox::addString(const KoString& text) { return insertString(count(), text); }

int ListBox::insertString(int index, const KoString& text)
{
    QListWidget* list = listOf(this);
    if (!list) return -1;
    index = std::clamp(index, 0, list->count());
    list->insertItem(index, toQ(text));
    return index;
}

bool ListBox::deleteString(int index)
{
    QListWidget* list = listOf(this);
    if (!list || index < 0 || index >= list->count()) return false;
    delete list->takeItem(index);
    return true;
}

void ListBox::resetContent()
{
    if (QListWidget* list = listOf(this)) list->clear();
}

int ListBox::count() const
{
    QListWidget* list = listOf(this);
    return list ? list->count() : 0;
}

KoString ListBox::itemText(int index) const
{
    QListWidget* list = listOf(this);
    const QListWidgetItem* item = list ? list->item(index) : nullptr;
    return item ? fromQ(item->text()) : KoString();
}

int ListBox::curSel() const
{
    QListWidget* list = listOf(this);
    return list && list->currentItem() && list->currentItem()->isSelected() ? list->currentRow() : -1;
}

void ListBox::setCurSel(int index)
{
    QListWidget* list = listOf(this);
    if (!list) return;
    if (index < 0 || index >= list->count()) list->clearSelection();
    else list->setCurrentRow(index);
}

int ListBox::findStringExact(int after, const KoString& text) const
{
    QListWidget* list = listOf(this);
    if (!list || list->count() == 0) return -1;
    return findExact(list->count(), after, toQ(text), [list](int i) { return list->item(i)->text(); });
}

Rect ListBox::itemRect(int index) const
{
    QListWidget* list = listOf(this);
    const QListWidgetItem* item = list ? list->item(index) : nullptr;
    return item ? fromQ(list->visualItemRect(item)) : Rect{};
}

int ListBox::itemFromPoint(Point at) const
{
    QListWidget* list = listOf(this);
    return list ? list->row(list->itemAt(at.x, at.y)) : -1;
}

Point ListBox::clientCentre() const
{
    QListWidget* list = listOf(this);
    const QPoint c = list ? list->viewport()->rect().center() : QPoint();
    return Point{c.x(), c.y()};
}

// ---------------------------------------------------------------------------
// ComboBox

namespace {
QComboBox* comboOf(const Control* control) { return qobject_cast<QComboBox*>(control->widget()); }
}  // namespace

void ComboBox::create(CKdUiBaseDialog& dialog, int id, const Rect& layout, bool editable)
{
    if (!dialog.window()) return;
    auto* combo = new QComboBox(dialog.window());
    combo->setEditable(editable);
    combo->setInsertPolicy(QComboBox::NoInsert);
    QObject::connect(combo, &QComboBox::currentIndexChanged, combo, [this](int index) {
        if (onSelChange) onSelChange(index);
    });
    attach(dialog, id, combo, layout);
}

int ComboBox::addString(const KoString& text)
{
    QComboBox* combo = comboOf(this);
    if (!combo) return -1;
    // Adding to an empty list must not select the first entry by itself.
    const int before = combo->currentIndex();
    const QSignalBlocker quiet(combo);
    combo->addItem(toQ(text));
    combo->setCurrentIndex(before);
    return combo->count() - 1;
}

void ComboBox::resetContent()
{
    if (QComboBox* combo = comboOf(this)) combo->clear();
}

int ComboBox::count() const
{
    QComboBox* combo = comboOf(this);
    return combo ? combo->count() : 0;
}

KoString ComboBox::itemText(int index) const
{
    QComboBox* combo = comboOf(this);
    return combo ? fromQ(combo->itemText(index)) : KoString();
}

int ComboBox::curSel() const
{
    QComboBox* combo = comboOf(this);
    return combo ? combo->currentIndex() : -1;
}

void ComboBox::setCurSel(int index)
{
    if (QComboBox* combo = comboOf(this)) combo->setCurrentIndex(index >= 0 && index < combo->count() ? index : -1);
}

int ComboBox::findStringExact(const KoString& text) const
{
    QComboBox* combo = comboOf(this);
    if (!combo || combo->count() == 0) return -1;
    return findExact(combo->count(), -1, toQ(text), [combo](int i) { return combo->itemText(i); });
}

KoString ComboBox::text() const
{
    QComboBox* combo = comboOf(this);
    return combo ? fromQ(combo->currentText()) : KoString();
}

void ComboBox::setText(const KoString& text)
{
    QComboBox* combo = comboOf(this);
    if (!combo) return;
    if (combo->isEditable()) combo->setEditText(toQ(text));
    else combo->setCurrentIndex(findStringExact(text));
}

// ---------------------------------------------------------------------------
// TabCtrl

namespace {

// Tabs above a framed page area. Placed by hand rather than by a layout:
// a layout only acts once the window is shown, and dialogs are also drawn
// unshown (pictures).
class TabFrame final : public QWidget {
public:
    explicit TabFrame(QWidget* parent) : QWidget(parent), bar(new QTabBar(this)), frame(new QFrame(this))
    {
        frame->setFrameShape(QFrame::StyledPanel);
        bar->setDrawBase(false);
        bar->setExpanding(false);
    }
    void place()
    {
        const int h = bar->sizeHint().height();
        bar->setGeometry(0, 0, width(), h);
        frame->setGeometry(0, h, width(), std::max(0, height() - h));
    }
    QTabBar* bar;
    QFrame* frame;

protected:
    void resizeEvent(QResizeEvent*) override { place(); }
};

TabFrame* tabsOf(const Control* control) { return dynamic_cast<TabFrame*>(control->widget()); }

}  // namespace

void TabCtrl::create(CKdUiBaseDialog& dialog, int id, const Rect& layout)
{
    if (!dialog.window()) return;
    auto* tabs = new TabFrame(dialog.window());
    QObject::connect(tabs->bar, &QTabBar::currentChanged, tabs, [this](int index) {
        if (onSelChange) onSelChange(index);
    });
    attach(dialog, id, tabs, layout);
}

int TabCtrl::insertItem(int index, const KoString& text)
{
    TabFrame* tabs = tabsOf(this);
    if (!tabs) return -1;
    const QSignalBlocker quiet(tabs->bar);
    const int at = tabs->bar->insertTab(index, toQ(text));
    tabs->place();
    return at;
}

int TabCtrl::count() const
{
    TabFrame* tabs = tabsOf(this);
    return tabs ? tabs->bar->count() : 0;
}

KoString TabCtrl::itemText(int index) const
{
    TabFrame* tabs = tabsOf(this);
    return tabs ? fromQ(tabs->bar->tabText(index)) : KoString();
}

int TabCtrl::curSel() const
{
    TabFrame* tabs = tabsOf(this);
    return tabs ? tabs->bar->currentIndex() : -1;
}

void TabCtrl::setCurSel(int index)
{
    if (TabFrame* tabs = tabsOf(this)) tabs->bar->setCurrentIndex(index);
}

Rect TabCtrl::contentRect() const
{
    TabFrame* tabs = tabsOf(this);
    if (!tabs) return {};
    QRect r = tabs->geometry();
    r.setTop(r.top() + tabs->bar->sizeHint().height() + static_cast<int>(3 * koraGetDPIScale()));
    return fromQ(r);
}

// ---------------------------------------------------------------------------

int trackPopupMenu(const Control& owner, Point at, const std::vector<MenuItem>& items)
{
    if (std::optional<int> answer = Test::takeMenuAnswer(items)) return *answer;
    QWidget* widget = owner.widget();
    if (!widget) return 0;
    if (auto* area = qobject_cast<QAbstractScrollArea*>(widget)) widget = area->viewport();
    QMenu menu(widget);
    for (const MenuItem& item : items) {
        if (item.command == 0) {
            menu.addSeparator();
            continue;
        }
        QAction* action = menu.addAction(toQ(item.text));
        action->setData(item.command);
        action->setEnabled(item.enabled);
    }
    const QAction* chosen = menu.exec(widget->mapToGlobal(QPoint(at.x, at.y)));
    return chosen ? chosen->data().toInt() : 0;
}

}  // namespace Kora::Ui
