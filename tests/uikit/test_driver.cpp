// The dialog driver: a flow through two nested modal dialogs runs
// unattended; unexpected dialogs, missing controls and dialogs left open
// are rejected and reported instead of hanging.
#include "dialogdriver.h"
#include "kora/ui/dialog.h"
#include "uikittest.h"

using namespace Kora::Ui;
using Kora::Ui::Test::DialogDriver;

namespace {

// Asks for a new name: an edit and an import/export choice.
class NameDialog : public CKoUiDialog {
public:
    NameDialog() : CKoUiDialog(210, L"New Mapping Setup", 300, 120) {}
    KoString name;
    int kind = 0;
    void CreateControls() override
    {
        add<Edit>(213, L"", Rect{10, 10, 200, 22});
        add<Button>(216, L"Import", Rect{10, 40, 80, 20}, Button::Kind::Radio, 1);
        add<Button>(217, L"Export", Rect{100, 40, 80, 20}, Button::Kind::Radio, 1);
        add<Button>(KOID_OK, L"OK", Rect{220, 10, 70, 24}, Button::Kind::Default);
    }
    void DoDataExchange(DataExchange& dx) override
    {
        dx.text(213, name);
        dx.radio({216, 217}, kind);
    }
};

// Lists setups; New opens the name dialog and adds its answer.
class SetupsDialog : public CKoUiDialog {
public:
    SetupsDialog() : CKoUiDialog(200, L"DGN Mapping Setups", 400, 240) {}
    KoString chosen;
    int rows = 0;
    void CreateControls() override
    {
        list.create(*this, 202, {10, 10, 280, 200});
        list.insertColumn(0, L"Name", 150);
        list.insertItem(0, L"Standard");
        add<Button>(203, L"New...", Rect{300, 10, 80, 24});
        add<Button>(KOID_OK, L"OK", Rect{300, 200, 80, 24}, Button::Kind::Default);
    }
    void OnCommand(int id) override
    {
        if (id != 203) return CKoUiDialog::OnCommand(id);
        NameDialog newSetup;
        if (newSetup.DoModal() == KOID_OK) list.insertItem(list.itemCount(), newSetup.name + (newSetup.kind == 1 ? L" (export)" : L""));
    }
    void OnOK() override
    {
        chosen = list.itemText(list.selectedItem(), 0);
        rows = list.itemCount();
        CKoUiDialog::OnOK();
    }
    ListCtrl list;
};

}  // namespace

using DriverTest = UiTest;

TEST_F(DriverTest, AFlowThroughTwoDialogsRunsUnattended)
{
    DialogDriver driver;
    driver.on(200).press(203).pickRow(202, 1).ok();
    driver.on(210).type(213, L"Roads").check(217).ok();
    SetupsDialog setups;
    EXPECT_EQ(setups.DoModal(), KOID_OK);
    EXPECT_EQ(setups.chosen, L"Roads (export)");
    EXPECT_TRUE(driver.problems().empty()) << driver.problems().front();
}

TEST_F(DriverTest, AnUnexpectedDialogIsRejectedAndReported)
{
    DialogDriver driver;
    driver.on(200).press(203).ok();
    SetupsDialog setups;
    EXPECT_EQ(setups.DoModal(), KOID_OK);
    EXPECT_EQ(setups.rows, 1) << "the name dialog was cancelled";
    const auto problems = driver.problems();
    ASSERT_EQ(problems.size(), 1u);
    EXPECT_NE(problems[0].find("unexpected dialog 210"), std::string::npos) << problems[0];
}

TEST_F(DriverTest, AMissingControlOrADialogLeftOpenEndsTheRun)
{
    DialogDriver driver(50);
    driver.on(210).type(299, L"x");
    driver.on(210).type(213, L"left open");
    NameDialog first;
    EXPECT_EQ(first.DoModal(), KOID_CANCEL);
    NameDialog second;
    EXPECT_EQ(second.DoModal(), KOID_CANCEL);
    driver.on(210);
    const auto problems = driver.problems();
    ASSERT_EQ(problems.size(), 3u);
    EXPECT_NE(problems[0].find("no edit with control id 299"), std::string::npos) << problems[0];
    EXPECT_NE(problems[1].find("still open after its actions"), std::string::npos) << problems[1];
    EXPECT_NE(problems[2].find("never shown"), std::string::npos) << problems[2];
}
