// The kit without a display: no Qt application is made, dialogs answer
// that they need one, and message boxes, help and the clipboard keep to
// the command line and the process.
#include <gtest/gtest.h>

#include "kora/msgbox.h"
#include "kora/ui/dialog.h"
#include "kora/ui/filedialog.h"
#include "testeditor.h"

using namespace Kora::Ui;

namespace {
class Plain : public CKoUiDialog {
public:
    Plain() : CKoUiDialog(500, L"Plain", 200, 100) {}
    int created = 0;
    void CreateControls() override { ++created; }
};
}  // namespace

TEST(NoDisplay, DialogsAnswerThatTheyNeedADisplay)
{
    ASSERT_FALSE(hasDisplay()) << "run without DISPLAY, WAYLAND_DISPLAY and QT_QPA_PLATFORM";
    EXPECT_FALSE(ensureApplication());
    EXPECT_DOUBLE_EQ(koraGetDPIScale(), 1.0);
    Plain dialog;
    EXPECT_EQ(dialog.DoModal(), kNeedsDisplay);
    EXPECT_EQ(dialog.created, 0);
    KoString chosen;
    EXPECT_EQ(getFileNameByFileDialog(L"Select Reference File", L"", L"dgn", 0, L"DGN (*.dgn)", chosen), kNeedsDisplay);

    TestEditor editor;
    reportNeedsDisplay(L"DGNATTACH", L"-DGNATTACH");
    EXPECT_EQ(editor.transcript(), L"\nDGNATTACH needs a display. Use -DGNATTACH to work at the command line.");
}

TEST(NoDisplay, MessageBoxesAreAskedAtTheCommandLine)
{
    installHostServices();
    TestEditor editor;
    editor.reply(L"No");
    EXPECT_EQ(koraMessageBox(L"Delete \"Roads\"?", nullptr, KOMB_YESNO | KOMB_ICONWARNING), KOID_NO);
    EXPECT_NE(editor.transcript().find(L"Delete \"Roads\"?"), KoString::npos) << editor.transcript().toUtf8();
}

TEST(NoDisplay, TheClipboardStaysInTheProcess)
{
    setClipboardText(L"Level 7");
    EXPECT_EQ(clipboardText(), L"Level 7");
}

TEST(NoDisplay, HelpNamesThePageAtTheCommandLine)
{
    installHostServices();
    TestEditor editor;
    EXPECT_EQ(koedHelp(nullptr, L"DgnExport", 0), KORTNORM);
    EXPECT_NE(editor.transcript().find(L"DgnExport.html"), KoString::npos) << editor.transcript().toUtf8();
}
