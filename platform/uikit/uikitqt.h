// The kit's Qt side, shared by its sources: text conversion, layout
// scaling and the dialog's window.
#pragma once

#include <QColor>
#include <QDialog>
#include <QRect>
#include <QString>

#include "kora/ui/dialog.h"
#include "kora/ui/testhooks.h"

namespace Kora::Ui {

inline QString toQ(const KoString& text) { return QString::fromStdWString(text.str()); }
inline KoString fromQ(const QString& text) { return KoString(text.toStdWString()); }

inline QColor toQ(Colour c) { return QColor(c.red, c.green, c.blue); }
inline QRect toQ(const Rect& r) { return QRect(r.x, r.y, r.width, r.height); }
inline Rect fromQ(const QRect& r) { return Rect{r.x(), r.y(), r.width(), r.height()}; }

// Layout units to pixels: times the DPI scale, truncated.
inline int scaled(int units) { return static_cast<int>(units * koraGetDPIScale()); }
inline QRect scaled(const Rect& r) { return QRect(scaled(r.x), scaled(r.y), scaled(r.width), scaled(r.height)); }

// The property names by which the test driver finds dialogs and controls.
inline constexpr const char* kDialogIdProperty = "koraDialogId";
inline constexpr const char* kControlIdProperty = "koraControlId";

// The window of a CKdUiBaseDialog: routes Qt's events to the dialog's
// virtual hooks.
class DialogWindow final : public QDialog {
public:
    explicit DialogWindow(CKdUiBaseDialog& owner);
    void accept() override;
    void reject() override;
    void command(int id) { m_owner.OnCommand(id); }

protected:
    void resizeEvent(QResizeEvent* event) override;
    void keyPressEvent(QKeyEvent* event) override;

private:
    CKdUiBaseDialog& m_owner;
};

namespace Test {
// The kit's side of the test hooks: records the question and answers the
// next queued answer of its kind, if any.
std::optional<int> takeMessageBoxAnswer(const MessageBoxAsked& asked);
std::optional<FileDialogAnswer> takeFileDialogAnswer(const FileDialogAsked& asked);
std::optional<int> takeMenuAnswer(const std::vector<MenuItem>& items);
// True when the page was recorded rather than to be opened.
bool recordHelpPage(const KoString& page);
}  // namespace Test

}  // namespace Kora::Ui
