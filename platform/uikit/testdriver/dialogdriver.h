// Drives the kit's modal dialogs in tests. A test queues, per dialog id,
// what a user would do in the next showing of that dialog; when the dialog
// is shown modally the driver does it, control by control id, so a whole
// command flow through nested dialogs runs unattended. A dialog nobody
// expected, a control that is not there and a dialog still open after its
// actions are rejected and recorded as problems instead of hanging.
#pragma once

#include <functional>
#include <memory>
#include <string>
#include <vector>

#include "kora/kostring.h"

class QDialog;

namespace Kora::Ui::Test {

class DialogScript {
public:
    // Replaces an edit's (or an editable combo's) text as typed.
    DialogScript& type(int controlId, const KoString& text);
    // Clicks a button (refused when it is disabled or hidden).
    DialogScript& press(int controlId);
    // Selects a row of a report list or of a list box.
    DialogScript& pickRow(int controlId, int row);
    // Chooses an entry of a combo box or a tab.
    DialogScript& pickItem(int controlId, int index);
    // Sets a check box or radio button by clicking it when it differs.
    DialogScript& check(int controlId, bool on = true);
    // Anything else, given the dialog's window.
    DialogScript& call(std::function<void(QDialog&)> step);
    // Closes the dialog as its OK or Cancel would (Enter, Escape).
    DialogScript& ok();
    DialogScript& cancel();

private:
    friend class DialogDriver;
    using Step = std::function<std::string(QDialog&)>;  // answers a problem, or ""
    std::vector<Step> m_steps;
};

class DialogDriver {
public:
    // Dialogs still open `timeoutMs` after they were shown (or after their
    // last action) are rejected.
    explicit DialogDriver(int timeoutMs = 5000);
    ~DialogDriver();
    DialogDriver(const DialogDriver&) = delete;
    DialogDriver& operator=(const DialogDriver&) = delete;

    // The script of the next showing of a dialog id; one call per showing.
    DialogScript& on(int dialogId);

    // What went wrong so far, scripts that were never used included.
    std::vector<std::string> problems() const;

private:
    class Watcher;
    std::unique_ptr<Watcher> m_watcher;
};

}  // namespace Kora::Ui::Test
