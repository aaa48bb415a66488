#include "dialogdriver.h"

#include <QAbstractButton>
#include <QApplication>
#include <QComboBox>
#include <QDialog>
#include <QLineEdit>
#include <QListWidget>
#include <QPointer>
#include <QTabBar>
#include <QTimer>
#include <QTreeWidget>

#include <deque>
#include <map>

namespace Kora::Ui::Test {

namespace {

// The kit marks its windows and controls with these properties.
constexpr const char* kDialogId = "koraDialogId";
constexpr const char* kControlId = "koraControlId";

QWidget* control(QDialog& dialog, int id)
{
    for (QWidget* w : dialog.findChildren<QWidget*>()) {
        const QVariant v = w->property(kControlId);
        if (v.isValid() && v.toInt() == id) return w;
    }
    return nullptr;
}

std::string describe(const QDialog& dialog)
{
    const QVariant id = dialog.property(kDialogId);
    return (id.isValid() ? "dialog " + std::to_string(id.toInt()) : std::string("untagged dialog")) + " \"" +
           dialog.windowTitle().toStdString() + "\"";
}

std::string missing(const char* what, int id) { return std::string("no ") + what + " with control id " + std::to_string(id); }

}  // namespace

DialogScript& DialogScript::type(int controlId, const KoString& text)
{
    m_steps.push_back([controlId, text](QDialog& dialog) -> std::string {
        QWidget* w = control(dialog, controlId);
        auto* edit = qobject_cast<QLineEdit*>(w);
        if (auto* combo = qobject_cast<QComboBox*>(w)) edit = combo->lineEdit();
        if (!edit) return missing("edit", controlId);
        edit->setFocus();
        edit->setText(QString::fromStdWString(text.str()));
        return {};
    });
    return *this;
}

DialogScript& DialogScript::press(int controlId)
{
    m_steps.push_back([controlId](QDialog& dialog) -> std::string {
        auto* button = qobject_cast<QAbstractButton*>(control(dialog, controlId));
        if (!button) return missing("button", controlId);
        if (!button->isEnabled() || button->isHidden()) return "button " + std::to_string(controlId) + " cannot be pressed";
        button->click();
        return {};
    });
    return *this;
}

DialogScript& DialogScript::pickRow(int controlId, int row)
{
    m_steps.push_back([controlId, row](QDialog& dialog) -> std::string {
        QWidget* w = control(dialog, controlId);
        if (auto* tree = qobject_cast<QTreeWidget*>(w)) {
            QTreeWidgetItem* item = tree->topLevelItem(row);
            if (!item) return "list " + std::to_string(controlId) + " has no row " + std::to_string(row);
            tree->setCurrentItem(item);
            item->setSelected(true);
            return {};
        }
        if (auto* list = qobject_cast<QListWidget*>(w)) {
            if (row < 0 || row >= list->count()) return "list box " + std::to_string(controlId) + " has no row " + std::to_string(row);
            list->setCurrentRow(row);
            return {};
        }
        return missing("list", controlId);
    });
    return *this;
}

DialogScript& DialogScript::pickItem(int controlId, int index)
{
    m_steps.push_back([controlId, index](QDialog& dialog) -> std::string {
        QWidget* w = control(dialog, controlId);
        if (auto* combo = qobject_cast<QComboBox*>(w)) {
            if (index < 0 || index >= combo->count()) return "combo box " + std::to_string(controlId) + " has no entry " + std::to_string(index);
            combo->setCurrentIndex(index);
            return {};
        }
        if (auto* tabs = w ? w->findChild<QTabBar*>() : nullptr) {
            if (index < 0 || index >= tabs->count()) return "tab control " + std::to_string(controlId) + " has no tab " + std::to_string(index);
            tabs->setCurrentIndex(index);
            return {};
        }
        return missing("combo box or tab control", controlId);
    });
    return *this;
}

DialogScript& DialogScript::check(int controlId, bool on)
{
    m_steps.push_back([controlId, on](QDialog& dialog) -> std::string {
        auto* button = qobject_cast<QAbstractButton*>(control(dialog, controlId));
        if (!button || !button->isCheckable()) return missing("check box", controlId);
        if (!button->isEnabled()) return "check box " + std::to_string(controlId) + " is disabled";
        if (button->isChecked() != on) button->click();
        return {};
    });
    return *this;
}

DialogScript& DialogScript::call(std::function<void(QDialog&)> step)
{
    m_steps.push_back([step = std::move(step)](QDialog& dialog) -> std::string {
        step(dialog);
        return {};
    });
    return *this;
}

DialogScript& DialogScript::ok()
{
    return call([](QDialog& dialog) { dialog.accept(); });
}

DialogScript& DialogScript::cancel()
{
    return call([](QDialog& dialog) { dialog.reject(); });
}

// ---------------------------------------------------------------------------

class DialogDriver::Watcher final : public QObject {
public:
    explicit Watcher(int timeoutMs) : m_timeout(timeoutMs) { qApp->installEventFilter(this); }
    ~Watcher() override { qApp->removeEventFilter(this); }

    std::map<int, std::deque<DialogScript>> scripts;
    std::vector<std::string> problems;

protected:
    bool eventFilter(QObject* object, QEvent* event) override
    {
        auto* dialog = qobject_cast<QDialog*>(object);
        if (event->type() != QEvent::Show || !dialog || !dialog->isModal() || !dialog->isWindow()) return false;
        QPointer<QDialog> guarded(dialog);
        const QVariant id = dialog->property(kDialogId);
        auto found = id.isValid() ? scripts.find(id.toInt()) : scripts.end();
        if (found == scripts.end() || found->second.empty()) {
            problems.push_back("unexpected " + describe(*dialog) + ": rejected");
            QTimer::singleShot(0, dialog, [guarded] {
                if (guarded) guarded->reject();
            });
            return false;
        }
        DialogScript script = std::move(found->second.front());
        found->second.pop_front();
        // After the show has finished, as a user's first action would be.
        QTimer::singleShot(0, dialog, [this, guarded, script = std::move(script)] { perform(guarded, script); });
        return false;
    }

private:
    void perform(QPointer<QDialog> dialog, const DialogScript& script)
    {
        for (const DialogScript::Step& step : script.m_steps) {
            if (!dialog || !dialog->isVisible()) {
                problems.push_back("a dialog closed before all its actions were done");
                return;
            }
            const std::string problem = step(*dialog);
            if (!problem.empty()) {
                problems.push_back(describe(*dialog) + ": " + problem + "; rejected");
                dialog->reject();
                return;
            }
        }
        QTimer::singleShot(m_timeout, this, [this, dialog] {
            if (!dialog || !dialog->isVisible()) return;
            problems.push_back(describe(*dialog) + " still open after its actions: rejected");
            dialog->reject();
        });
    }

    int m_timeout;
};

DialogDriver::DialogDriver(int timeoutMs) : m_watcher(std::make_unique<Watcher>(timeoutMs)) {}
DialogDriver::~DialogDriver() = default;

DialogScript& DialogDriver::on(int dialogId)
{
    return m_watcher->scripts[dialogId].emplace_back();
}

std::vector<std::string> DialogDriver::problems() const
{
    std::vector<std::string> all = m_watcher->problems;
    for (const auto& [id, queue] : m_watcher->scripts)
        if (!queue.empty()) all.push_back("dialog " + std::to_string(id) + " was never shown for " + std::to_string(queue.size()) + " script(s)");
    return all;
}

}  // namespace Kora::Ui::Test
