#include "kora/ui/dialog.h"

#include <QButtonGroup>
#include <QCheckBox>
#include <QComboBox>
#include <QKeyEvent>
#include <QLabel>
#include <QLineEdit>
#include <QListWidget>
#include <QPushButton>
#include <QRadioButton>

#include <algorithm>

#include "kora/config.h"
#include "uikitqt.h"

using namespace Kora::Ui;

namespace Kora::Ui {

DialogWindow::DialogWindow(CKdUiBaseDialog& owner) : m_owner(owner)
{
    setProperty(kDialogIdProperty, owner.dialogId());
    setObjectName(QStringLiteral("dialog%1").arg(owner.dialogId()));
}

// Enter on the default button and Escape or the close box come here; the
// dialog decides, as its OK and Cancel buttons do.
void DialogWindow::accept() { m_owner.OnCommand(KOID_OK); }
void DialogWindow::reject() { m_owner.OnCommand(KOID_CANCEL); }

void DialogWindow::resizeEvent(QResizeEvent* event)
{
    QDialog::resizeEvent(event);
    m_owner.OnSize(width(), height());
}

void DialogWindow::keyPressEvent(QKeyEvent* event)
{
    if (event->key() == Qt::Key_F1 && event->modifiers() == Qt::NoModifier) {
        m_owner.OnHelp();
        return;
    }
    QDialog::keyPressEvent(event);
}

// ---------------------------------------------------------------------------

void DataExchange::text(int id, KoString& value)
{
    Control* control = m_dialog.GetDlgItem(id);
    if (!control) return;
    if (m_saving) value = control->text();
    else control->setText(value);
}

void DataExchange::check(int id, int& value)
{
    auto* button = m_dialog.item<Button>(id);
    if (!button) return;
    if (m_saving) value = button->isChecked() ? 1 : 0;
    else button->setChecked(value != 0);
}

void DataExchange::radio(std::initializer_list<int> ids, int& value)
{
    int index = 0;
    for (int id : ids) {
        auto* button = m_dialog.item<Button>(id);
        if (button && m_saving && button->isChecked()) value = index;
        if (button && !m_saving) button->setChecked(index == value);
        ++index;
    }
}

void DataExchange::selection(int id, int& value)
{
    if (auto* combo = m_dialog.item<ComboBox>(id)) {
        if (m_saving) value = combo->curSel();
        else combo->setCurSel(value);
    } else if (auto* list = m_dialog.item<ListBox>(id)) {
        if (m_saving) value = list->curSel();
        else list->setCurSel(value);
    }
}

}  // namespace Kora::Ui

// ---------------------------------------------------------------------------

CKdUiBaseDialog::CKdUiBaseDialog(int dialogId, const KoString& title, int width, int height)
    : m_dialogId(dialogId), m_title(title), m_width(width), m_height(height)
{
}

CKdUiBaseDialog::~CKdUiBaseDialog()
{
    // The controls that were members of a derived dialog are gone already
    // (they forgot themselves); the owned ones go with the window.
    DestroyWindow();
}

QDialog* CKdUiBaseDialog::window() const { return m_window; }

bool CKdUiBaseDialog::Create()
{
    if (m_window) return true;
    if (!ensureApplication()) return false;
    m_window = new DialogWindow(*this);
    m_window->setWindowTitle(toQ(m_title));
    m_window->resize(scaled(m_width), scaled(m_height));
    CreateControls();
    OnInitDialog();
    if (m_beforeShow) m_beforeShow();
    return true;
}

void CKdUiBaseDialog::DestroyWindow()
{
    if (!m_window) return;
    OnDestroy();
    if (m_beforeDestroy) m_beforeDestroy();
    for (Control* control : m_controls) {
        control->m_dialog = nullptr;
        control->m_widget = nullptr;
    }
    m_controls.clear();
    m_owned.clear();
    delete std::exchange(m_window, nullptr);
}

int CKdUiBaseDialog::DoModal()
{
    if (!Create()) return kNeedsDisplay;
    const int result = m_window->exec();
    DestroyWindow();
    return result;
}

void CKdUiBaseDialog::EndDialog(int result)
{
    if (m_window) m_window->done(result);
}

bool CKdUiBaseDialog::UpdateData(bool saveAndValidate)
{
    DataExchange dx(*this, saveAndValidate);
    DoDataExchange(dx);
    return !dx.failed();
}

bool CKdUiBaseDialog::OnInitDialog()
{
    UpdateData(false);
    return true;
}

void CKdUiBaseDialog::DoDataExchange(DataExchange&) {}

void CKdUiBaseDialog::OnCommand(int id)
{
    if (id == KOID_OK) OnOK();
    else if (id == KOID_CANCEL) OnCancel();
}

void CKdUiBaseDialog::OnOK()
{
    if (UpdateData(true)) EndDialog(KOID_OK);
}

void CKdUiBaseDialog::OnCancel() { EndDialog(KOID_CANCEL); }

void CKdUiBaseDialog::OnSize(int, int) {}

Control* CKdUiBaseDialog::GetDlgItem(int id) const
{
    const auto found = std::find_if(m_controls.begin(), m_controls.end(), [id](const Control* c) { return c->id() == id; });
    return found == m_controls.end() ? nullptr : *found;
}

void CKdUiBaseDialog::SetWindowText(const KoString& title)
{
    m_title = title;
    if (m_window) m_window->setWindowTitle(toQ(title));
}

KoString CKdUiBaseDialog::GetWindowText() const { return m_title; }

Rect CKdUiBaseDialog::windowRect() const
{
    return m_window ? Rect{m_window->x(), m_window->y(), m_window->width(), m_window->height()} : Rect{};
}

void CKdUiBaseDialog::setWindowRect(const Rect& pixels)
{
    if (!m_window) return;
    m_window->move(pixels.x, pixels.y);
    m_window->resize(pixels.width, pixels.height);
}

void CKdUiBaseDialog::registerControl(Control* control)
{
    forgetControl(control);
    m_controls.push_back(control);
}

void CKdUiBaseDialog::forgetControl(Control* control)
{
    std::erase(m_controls, control);
}

// ---------------------------------------------------------------------------

void CKdUiDialog::SetControlAnchor(int id, unsigned anchor)
{
    const Control* control = GetDlgItem(id);
    if (!control || !window()) return;
    std::erase_if(m_anchors, [id](const Anchored& a) { return a.id == id; });
    m_anchors.push_back({id, anchor, control->rect(), window()->width(), window()->height()});
}

void CKdUiDialog::SetMinTrackSize(int width, int height)
{
    if (window()) window()->setMinimumSize(scaled(width), scaled(height));
}

void CKdUiDialog::LockHeight(bool on)
{
    if (!window()) return;
    if (on) {
        window()->setMinimumHeight(window()->height());
        window()->setMaximumHeight(window()->height());
    } else {
        window()->setMaximumHeight(QWIDGETSIZE_MAX);
    }
}

void CKdUiDialog::OnSize(int width, int height)
{
    for (const Anchored& a : m_anchors) {
        Control* control = GetDlgItem(a.id);
        if (!control) continue;
        const int dx = width - a.dialogWidth;
        const int dy = height - a.dialogHeight;
        Rect r = a.rect;
        if (a.anchor & kMoveX) r.x += dx;
        if (a.anchor & kMoveY) r.y += dy;
        if (a.anchor & kSizeX) r.width = std::max(0, r.width + dx);
        if (a.anchor & kSizeY) r.height = std::max(0, r.height + dy);
        control->move(r);
    }
    CKdUiBaseDialog::OnSize(width, height);
}

// ---------------------------------------------------------------------------

namespace {

constexpr int kSettingsBranch = 4;

KoString placementValue(const KoString& key, const wchar_t* name)
{
    return KoString(L"UserInterfaceSettings\\") + key + L"\\" + name;
}

}  // namespace

CKoUiDialog::CKoUiDialog(int dialogId, const KoString& title, int width, int height, const KoString& placementKey)
    : CKdUiDialog(dialogId, title, width, height),
      m_key(placementKey.isEmpty() ? KoString::format(L"Dialog%d", dialogId) : placementKey)
{
    m_beforeShow = [this] { restorePlacement(); };
    m_beforeDestroy = [this] { savePlacement(); };
}

CKoUiDialog::~CKoUiDialog() { DestroyWindow(); }

namespace {
constexpr const wchar_t* kPlacementNames[] = {L"WindowLeft", L"WindowTop", L"WindowWidth", L"WindowHeight"};
}

void CKoUiDialog::restorePlacement()
{
    int values[4] = {};
    for (int i = 0; i < 4; ++i) {
        KoraVariant v;
        if (koraConfig()->getValue(kSettingsBranch, placementValue(m_key, kPlacementNames[i]), v) != Kora::eOk ||
            v.type() != KoraVariant::kInteger)
            return;
        values[i] = v.intValue();
    }
    // The minimum size still holds for a size remembered before it grew.
    const QSize least = window()->minimumSize();
    setWindowRect({values[0], values[1], std::max(values[2], least.width()), std::max(values[3], least.height())});
}

void CKoUiDialog::savePlacement()
{
    const Rect r = windowRect();
    const int values[4] = {r.x, r.y, r.width, r.height};
    for (int i = 0; i < 4; ++i)
        koraConfig()->setValue(kSettingsBranch, placementValue(m_key, kPlacementNames[i]), KoraVariant(values[i]));
}
