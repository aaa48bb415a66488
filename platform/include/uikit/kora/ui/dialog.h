// The dialog bases the module's dialogs derive from. A dialog is an object
// that lives longer than its window: DoModal() makes the window (a QDialog
// underneath), has the dialog create its controls (CreateControls, the
// dialog's layout), runs OnInitDialog, shows it modally and destroys the
// window when it ends. Controls are found by their numeric ids.
//
//   CKdUiBaseDialog  window, controls by id, data exchange, modal run
//   CKdUiDialog      resizing: anchors, minimum size, height lock
//   CKoUiDialog      size and place remembered between runs
#pragma once

#include <initializer_list>
#include <memory>
#include <vector>

#include "kora/ui/application.h"
#include "kora/msgbox.h"
#include "kora/ui/controls.h"

class QDialog;

namespace Kora::Ui {

class DialogWindow;

// Moves values between a dialog's members and its controls: toward the
// controls when !saving(), from them when saving(). A value that does not
// pass may fail() the exchange; UpdateData then answers false.
class KORA_API DataExchange {
public:
    DataExchange(CKdUiBaseDialog& dialog, bool saving) : m_dialog(dialog), m_saving(saving) {}
    bool saving() const { return m_saving; }
    void fail() { m_failed = true; }
    bool failed() const { return m_failed; }

    // The text of an edit, label, button or a combo box's edit field.
    void text(int id, KoString& value);
    // A check box: 1 checked, 0 not.
    void check(int id, int& value);
    // Radio buttons: the index of the checked one in `ids`; saving leaves
    // the value as it was when none is checked, and loading checks none for
    // a value outside the list.
    void radio(std::initializer_list<int> ids, int& value);
    // The selected index of a combo box or list box (-1 for none).
    void selection(int id, int& value);

private:
    CKdUiBaseDialog& m_dialog;
    bool m_saving;
    bool m_failed = false;
};

// How a control follows the dialog's right and bottom edges on a resize.
enum Anchor : unsigned {
    kAnchorNone = 0,
    kMoveX = 1,  // moves with the right edge
    kMoveY = 2,  // moves with the bottom edge
    kSizeX = 4,  // stretches with the width
    kSizeY = 8,  // stretches with the height
    kMoveXY = kMoveX | kMoveY,
    kSizeXY = kSizeX | kSizeY,
};

}  // namespace Kora::Ui

class KORA_API CKdUiBaseDialog {
public:
    // The dialog id names the dialog for the test driver and for its
    // remembered place; width and height are the layout size (scaled).
    CKdUiBaseDialog(int dialogId, const KoString& title, int width, int height);
    CKdUiBaseDialog(const CKdUiBaseDialog&) = delete;
    CKdUiBaseDialog& operator=(const CKdUiBaseDialog&) = delete;
    virtual ~CKdUiBaseDialog();

    int dialogId() const { return m_dialogId; }

    // Runs the dialog modally: KOID_OK (1), KOID_CANCEL (2) or whatever
    // EndDialog was given; Kora::Ui::kNeedsDisplay when no dialog can be
    // shown (no display), after which nothing was run.
    int DoModal();
    // Makes the window and its controls and runs OnInitDialog, without
    // showing it (pictures, tests). Answers false without a display.
    bool Create();
    void DestroyWindow();
    // Ends a modal run with the result.
    void EndDialog(int result);
    // Runs the data exchange: true moves the controls' values into the
    // members, false the members' values into the controls.
    bool UpdateData(bool saveAndValidate = true);

    // The control of an id, or null.
    Kora::Ui::Control* GetDlgItem(int id) const;
    template <class T>
    T* item(int id) const
    {
        return dynamic_cast<T*>(GetDlgItem(id));
    }
    // Controls the dialog owns itself, for those that need no member.
    template <class T, class... Args>
    T& add(Args&&... args)
    {
        auto control = std::make_unique<T>();
        control->create(*this, std::forward<Args>(args)...);
        T& result = *control;
        m_owned.push_back(std::move(control));
        return result;
    }

    void SetWindowText(const KoString& title);
    KoString GetWindowText() const;
    // The window's client size and place in pixels.
    Kora::Ui::Rect windowRect() const;
    void setWindowRect(const Kora::Ui::Rect& pixels);
    // The QDialog while the window exists.
    QDialog* window() const;

protected:
    // The layout: creates the controls. Called once per window.
    virtual void CreateControls() {}
    // After the controls exist: the default moves the members into them.
    virtual bool OnInitDialog();
    virtual void DoDataExchange(Kora::Ui::DataExchange& dx);
    // A button was clicked (or Enter, Escape and the close box: 1 and 2).
    virtual void OnCommand(int id);
    // The defaults: OK takes the data and ends with 1, Cancel ends with 2.
    virtual void OnOK();
    virtual void OnCancel();
    // F1.
    virtual void OnHelp() {}
    // After the controls followed a resize (client size in pixels).
    virtual void OnSize(int width, int height);
    // Before the window goes (a modal run ended, or DestroyWindow).
    virtual void OnDestroy() {}

private:
    friend class Kora::Ui::Control;
    friend class Kora::Ui::DialogWindow;
    friend class CKdUiDialog;
    friend class CKoUiDialog;
    void registerControl(Kora::Ui::Control* control);
    void forgetControl(Kora::Ui::Control* control);

    int m_dialogId;
    KoString m_title;
    int m_width;
    int m_height;
    Kora::Ui::DialogWindow* m_window = nullptr;
    std::vector<Kora::Ui::Control*> m_controls;
    std::vector<std::unique_ptr<Kora::Ui::Control>> m_owned;
    // Hooks of the layers above, run by the window.
    std::function<void()> m_beforeShow;
    std::function<void()> m_beforeDestroy;
};

class KORA_API CKdUiDialog : public CKdUiBaseDialog {
public:
    using CKdUiBaseDialog::CKdUiBaseDialog;

    // Sets how a control follows a resize from its place now.
    void SetControlAnchor(int id, unsigned anchor);
    // The smallest size the user may give the window, in layout units
    // (times the DPI scale, truncated).
    void SetMinTrackSize(int width, int height);
    // Keeps the window's height as it is: only the width can change.
    void LockHeight(bool on);

protected:
    void OnSize(int width, int height) override;

private:
    struct Anchored {
        int id;
        unsigned anchor;
        Kora::Ui::Rect rect;
        int dialogWidth;
        int dialogHeight;
    };
    std::vector<Anchored> m_anchors;
};

// A resizable dialog whose size and place are kept in the configuration
// store (branch 4, "UserInterfaceSettings\<key>\") between runs.
class KORA_API CKoUiDialog : public CKdUiDialog {
public:
    // An empty key stands for "Dialog<id>".
    CKoUiDialog(int dialogId, const KoString& title, int width, int height, const KoString& placementKey = {});
    // A window still open is closed here, while its place can be saved.
    ~CKoUiDialog() override;

    const KoString& placementKey() const { return m_key; }

private:
    void restorePlacement();
    void savePlacement();
    KoString m_key;
};
