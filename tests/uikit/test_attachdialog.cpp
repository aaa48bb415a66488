// The attach-options dialog as the attach command meets it: the block it
// fills before the call, what the user changes, and what comes back.
#include <QDialog>

#include <numbers>

#include "dialogdriver.h"
#include "kora/ui/attachdialog.h"
#include "uikittest.h"

using namespace Kora::Ui::AttachDialog;
using Kora::Ui::Test::DialogDriver;

namespace {

KoUiDgnAttachSource site()
{
    return {L"/drawings/site.dgn", {L"Default", L"Sheet 1"}, {L"roads-Default"}, nullptr};
}

}  // namespace

using AttachDialogTest = UiTest;

TEST_F(AttachDialogTest, ShowsTheCommandsDefaultsAndGivesBackTheChoices)
{
    bool insertionPicked = false;
    bool rotationPicked = true;
    QString shownPath;
    DialogDriver driver;
    driver.on(kDialogId)
        .call([&](QDialog& dialog) {
            // The command's block: insertion and scale on screen, rotation not.
            insertionPicked = dialog.findChild<QWidget*>("control705")->property("checked").toBool();
            rotationPicked = dialog.findChild<QWidget*>("control711")->property("checked").toBool();
            shownPath = dialog.findChild<QWidget*>("control703")->property("text").toString();
        })
        .pickRow(kModels, 1)
        .check(kPickInsertion, false)
        .type(kInsertionX, L"10")
        .type(kInsertionY, L"20.5")
        .type(kInsertionZ, L"0")
        .check(kPickScale, false)
        .type(kScale, L"2.5")
        .type(kRotation, L"90")
        .check(kSubUnits)
        .type(kActivePath, L"../site.dgn")
        .ok();
    KoUiDgnAttachData data;
    data.scale = 0.3048;
    ASSERT_EQ(koraDgnAttachOptionsDialog(site(), data), KOID_OK);
    EXPECT_TRUE(driver.problems().empty()) << driver.problems().front();
    EXPECT_TRUE(insertionPicked);
    EXPECT_FALSE(rotationPicked);
    EXPECT_EQ(shownPath, QString("/drawings/site.dgn")) << "the saved path starts as the file's";

    EXPECT_EQ(data.sourcePath, L"/drawings/site.dgn");
    EXPECT_EQ(data.activePath, L"../site.dgn");
    EXPECT_EQ(data.chosenModels, std::vector<KoString>{L"Sheet 1"});
    EXPECT_DOUBLE_EQ(data.insertionPoint[0], 10.0);
    EXPECT_DOUBLE_EQ(data.insertionPoint[1], 20.5);
    EXPECT_DOUBLE_EQ(data.scale, 2.5);
    EXPECT_DOUBLE_EQ(data.rotation, std::numbers::pi / 2);
    EXPECT_EQ(data.pickInsertion, 0);
    EXPECT_EQ(data.pickScale, 0);
    EXPECT_EQ(data.pickRotation, 0);
    EXPECT_EQ(data.useMasterUnits, 0);
}

TEST_F(AttachDialogTest, ValuesPickedOnScreenKeepTheBlocksDefaults)
{
    DialogDriver driver;
    driver.on(kDialogId).check(kPickRotation).ok();
    KoUiDgnAttachData data;
    data.scale = 0.3048;
    ASSERT_EQ(koraDgnAttachOptionsDialog(site(), data), KOID_OK);
    EXPECT_EQ(data.chosenModels, std::vector<KoString>{L"Default"}) << "the first model is chosen at first";
    EXPECT_EQ(data.activePath, L"/drawings/site.dgn");
    EXPECT_DOUBLE_EQ(data.scale, 0.3048);
    EXPECT_EQ(data.pickInsertion, 1);
    EXPECT_EQ(data.pickScale, 1);
    EXPECT_EQ(data.pickRotation, 1);
    EXPECT_EQ(data.useMasterUnits, 1);
}

TEST_F(AttachDialogTest, BadNumbersKeepTheDialogOpenAndCancelChangesNothing)
{
    Kora::Ui::Test::queueMessageBoxAnswer(KOID_OK);
    DialogDriver driver;
    driver.on(kDialogId).check(kPickScale, false).type(kScale, L"-2").ok().cancel();
    KoUiDgnAttachData data;
    EXPECT_EQ(koraDgnAttachOptionsDialog(site(), data), KOID_CANCEL);
    EXPECT_TRUE(driver.problems().empty()) << driver.problems().front();
    const auto asked = Kora::Ui::Test::messageBoxesAsked();
    ASSERT_EQ(asked.size(), 1u);
    EXPECT_EQ(asked[0].text, L"The scale must be a number greater than 0.");
    EXPECT_TRUE(data.sourcePath.isEmpty());
    EXPECT_DOUBLE_EQ(data.scale, 1.0);
}

TEST_F(AttachDialogTest, WithoutAFileTheUserBrowsesToOne)
{
    Kora::Ui::Test::queueFileDialogAnswer({L"/drawings/empty.dgn", 0});
    Kora::Ui::Test::queueMessageBoxAnswer(KOID_OK);
    Kora::Ui::Test::queueFileDialogAnswer({L"/drawings/plan.dgn", 0});
    KoUiDgnAttachSource source;
    source.modelsOf = [](const KoString& path) {
        return path == L"/drawings/plan.dgn" ? std::vector<KoString>{L"Plan"} : std::vector<KoString>{};
    };
    DialogDriver driver;
    driver.on(kDialogId).press(kBrowse).press(kBrowse).ok();
    KoUiDgnAttachData data;
    ASSERT_EQ(koraDgnAttachOptionsDialog(source, data), KOID_OK);
    EXPECT_TRUE(driver.problems().empty()) << driver.problems().front();
    EXPECT_EQ(Kora::Ui::Test::messageBoxesAsked().size(), 1u) << "a file without models is refused";
    EXPECT_EQ(data.sourcePath, L"/drawings/plan.dgn");
    EXPECT_EQ(data.chosenModels, std::vector<KoString>{L"Plan"});
}
