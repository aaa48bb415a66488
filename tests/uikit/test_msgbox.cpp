// Message boxes once the kit is loaded: answered from the test queue, or
// shown as Qt boxes with the platform's buttons and answers.
#include <QAbstractButton>
#include <QMessageBox>
#include <QTimer>

#include "kora/msgbox.h"
#include "kora/resources.h"
#include "uikittest.h"

using MessageBoxTest = UiTest;

namespace {

// Presses the button of the given role of the next message box shown, and
// remembers what it showed.
struct BoxPress {
    QMessageBox::StandardButton press;
    QString title;
    QMessageBox::Icon icon = QMessageBox::NoIcon;
    QMessageBox::StandardButtons buttons;

    void arm()
    {
        QTimer::singleShot(0, [this] {
            auto* box = qobject_cast<QMessageBox*>(QApplication::activeModalWidget());
            ASSERT_NE(box, nullptr);
            title = box->windowTitle();
            icon = box->icon();
            buttons = box->standardButtons();
            if (press == QMessageBox::NoButton) QTest::keyClick(box, Qt::Key_Escape);
            else box->button(press)->click();
        });
    }
};

}  // namespace

TEST_F(MessageBoxTest, QueuedAnswersAnswerInOrderAndEveryBoxIsRecorded)
{
    Kora::Ui::Test::queueMessageBoxAnswer(KOID_NO);
    Kora::Ui::Test::queueMessageBoxAnswer(KOID_CANCEL);
    EXPECT_EQ(koraMessageBox(L"Delete \"Roads\"?", nullptr, KOMB_YESNO | KOMB_ICONWARNING), KOID_NO);
    EXPECT_EQ(koraMessageBox(L"Go back?", L"Export", KOMB_YESNOCANCEL | KOMB_ICONWARNING), KOID_CANCEL);
    const auto asked = Kora::Ui::Test::messageBoxesAsked();
    ASSERT_EQ(asked.size(), 2u);
    EXPECT_EQ(asked[0].text, L"Delete \"Roads\"?");
    EXPECT_EQ(asked[0].caption, GetOemProductName()) << "the product name is the caption when none is given";
    EXPECT_EQ(asked[0].type, 0x34u);
    EXPECT_EQ(asked[1].caption, L"Export");
}

TEST_F(MessageBoxTest, ShownBoxesUseThePlatformNumbers)
{
    BoxPress yesNo{QMessageBox::No, {}, {}, {}};
    yesNo.arm();
    EXPECT_EQ(koraMessageBox(L"Remove this mapping row ?", nullptr, KOMB_YESNO | KOMB_ICONWARNING), KOID_NO);
    EXPECT_EQ(yesNo.icon, QMessageBox::Warning);
    EXPECT_EQ(yesNo.buttons, QMessageBox::Yes | QMessageBox::No);
    EXPECT_EQ(yesNo.title, QString::fromStdWString(GetOemProductName()));

    BoxPress three{QMessageBox::Yes, {}, {}, {}};
    three.arm();
    EXPECT_EQ(koraMessageBox(L"Another format?", L"Export", KOMB_YESNOCANCEL | KOMB_ICONQUESTION), KOID_YES);
    EXPECT_EQ(three.icon, QMessageBox::Question);
    EXPECT_EQ(three.buttons, QMessageBox::Yes | QMessageBox::No | QMessageBox::Cancel);

    BoxPress escaped{QMessageBox::NoButton, {}, {}, {}};
    escaped.arm();
    EXPECT_EQ(koraMessageBox(L"Continue?", nullptr, KOMB_OKCANCEL | KOMB_ICONINFORMATION), KOID_CANCEL);
    EXPECT_EQ(escaped.icon, QMessageBox::Information);

    BoxPress escapedYesNo{QMessageBox::NoButton, {}, {}, {}};
    escapedYesNo.arm();
    EXPECT_EQ(koraMessageBox(L"Need 3d seed file.", nullptr, KOMB_YESNO | KOMB_ICONWARNING), KOID_NO) << "Escape is No without Cancel";

    BoxPress ok{QMessageBox::Ok, {}, {}, {}};
    ok.arm();
    EXPECT_EQ(koraMessageBox(L"Not found.", nullptr, KOMB_OK | KOMB_ICONERROR), KOID_OK);
    EXPECT_EQ(ok.icon, QMessageBox::Critical);
    EXPECT_EQ(ok.buttons, QMessageBox::Ok);
}
