// The dialog bases: anchors, minimum size, height lock, data exchange,
// modal results and the remembered place.
#include <QAbstractButton>
#include <QDialog>
#include <QLineEdit>
#include <QTimer>

#include "kora/config.h"
#include "kora/ui/dialog.h"
#include "uikittest.h"

using namespace Kora::Ui;

namespace {

// A small resizable dialog: a list that stretches, buttons that follow the
// right and bottom edges, a name field and two radio buttons.
class SampleDialog : public CKoUiDialog {
public:
    explicit SampleDialog(const KoString& key = L"SampleDialog") : CKoUiDialog(300, L"Sample", 300, 200, key) {}

    KoString name = L"Roads";
    int kind = 1;
    int accepted = 0;
    bool refuseEmptyName = true;

    void CreateControls() override
    {
        list.create(*this, 202, {10, 10, 200, 120});
        name_.create(*this, 213, L"", {10, 140, 200, 20});
        add<Button>(216, L"Import", Rect{10, 170, 80, 20}, Button::Kind::Radio, 1);
        add<Button>(217, L"Export", Rect{100, 170, 80, 20}, Button::Kind::Radio, 1);
        add<Button>(KOID_OK, L"OK", Rect{220, 140, 70, 24}, Button::Kind::Default);
        add<Button>(KOID_CANCEL, L"Cancel", Rect{220, 170, 70, 24});
    }
    bool OnInitDialog() override
    {
        SetControlAnchor(202, kSizeXY);
        SetControlAnchor(213, kMoveY | kSizeX);
        SetControlAnchor(KOID_OK, kMoveXY);
        SetControlAnchor(KOID_CANCEL, kMoveXY);
        SetMinTrackSize(263, 160);
        return CKoUiDialog::OnInitDialog();
    }
    void DoDataExchange(DataExchange& dx) override
    {
        dx.text(213, name);
        dx.radio({216, 217}, kind);
        if (dx.saving() && refuseEmptyName && name.isEmpty()) dx.fail();
    }
    void OnOK() override
    {
        ++accepted;
        CKoUiDialog::OnOK();
    }

    ListCtrl list;
    Edit name_;
};

// Runs `act` once the modal loop of the dialog is running.
void whenShown(std::function<void()> act) { QTimer::singleShot(0, std::move(act)); }

void clearPlacement(const wchar_t* key)
{
    koraConfig()->removeItem(4, (KoString(L"UserInterfaceSettings\\") + key + L"\\").c_str());
}

}  // namespace

using DialogTest = UiTest;

TEST_F(DialogTest, AnchoredControlsFollowAResize)
{
    SampleDialog dialog;
    ASSERT_TRUE(dialog.Create());
    dialog.window()->show();
    const Rect list = dialog.list.rect();
    const Rect name = dialog.name_.rect();
    const Rect ok = dialog.GetDlgItem(KOID_OK)->rect();
    const Rect kind = dialog.GetDlgItem(216)->rect();

    dialog.window()->resize(dialog.window()->width() + 50, dialog.window()->height() + 30);
    QApplication::processEvents();

    EXPECT_EQ(dialog.list.rect(), (Rect{list.x, list.y, list.width + 50, list.height + 30}));
    EXPECT_EQ(dialog.name_.rect(), (Rect{name.x, name.y + 30, name.width + 50, name.height}));
    EXPECT_EQ(dialog.GetDlgItem(KOID_OK)->rect(), (Rect{ok.x + 50, ok.y + 30, ok.width, ok.height}));
    EXPECT_EQ(dialog.GetDlgItem(216)->rect(), kind) << "a control without anchor stays";

    // Back to the first size puts everything back where it was.
    dialog.window()->resize(dialog.window()->width() - 50, dialog.window()->height() - 30);
    QApplication::processEvents();
    EXPECT_EQ(dialog.list.rect(), list);
    EXPECT_EQ(dialog.GetDlgItem(KOID_OK)->rect(), ok);
}

TEST_F(DialogTest, LayoutAndMinimumSizeScaleWithTheDisplay)
{
    setenv("KORA_DPI_SCALE", "2.5", 1);
    EXPECT_DOUBLE_EQ(koraGetDPIScale(), 2.5);
    SampleDialog dialog;
    ASSERT_TRUE(dialog.Create());
    // 263 x 160 times 2.5, truncated.
    EXPECT_EQ(dialog.window()->minimumSize(), QSize(657, 400));
    EXPECT_EQ(dialog.list.rect(), (Rect{25, 25, 500, 300}));
    dialog.DestroyWindow();

    setenv("KORA_DPI_SCALE", "not a number", 1);
    EXPECT_GT(koraGetDPIScale(), 0.0) << "an unreadable override falls back to the screen";
}

TEST_F(DialogTest, ALockedHeightLetsOnlyTheWidthChange)
{
    SampleDialog dialog;
    ASSERT_TRUE(dialog.Create());
    dialog.LockHeight(true);
    const int height = dialog.window()->height();
    dialog.window()->show();
    dialog.window()->resize(dialog.window()->width() + 40, height + 100);
    QApplication::processEvents();
    EXPECT_EQ(dialog.window()->height(), height);
    dialog.LockHeight(false);
    dialog.window()->resize(dialog.window()->width(), height + 100);
    EXPECT_EQ(dialog.window()->height(), height + 100);
}

TEST_F(DialogTest, DataMovesBetweenMembersAndControls)
{
    SampleDialog dialog;
    ASSERT_TRUE(dialog.Create());
    EXPECT_EQ(dialog.name_.text(), L"Roads");
    EXPECT_FALSE(dialog.item<Button>(216)->isChecked());
    EXPECT_TRUE(dialog.item<Button>(217)->isChecked());

    dialog.name_.setText(L"Rivers");
    dialog.item<Button>(216)->setChecked(true);
    EXPECT_FALSE(dialog.item<Button>(217)->isChecked()) << "radio buttons of a group exclude each other";
    ASSERT_TRUE(dialog.UpdateData(true));
    EXPECT_EQ(dialog.name, L"Rivers");
    EXPECT_EQ(dialog.kind, 0);

    // Neither radio checked leaves the member as it was.
    dialog.item<Button>(216)->setChecked(false);
    dialog.kind = 7;
    dialog.UpdateData(true);
    EXPECT_EQ(dialog.kind, 7);

    dialog.name_.setText(L"");
    EXPECT_FALSE(dialog.UpdateData(true)) << "the exchange may refuse a value";
}

TEST_F(DialogTest, ModalRunsAnswerOkOrCancel)
{
    SampleDialog dialog;
    whenShown([&] { QTest::keyClick(QApplication::activeModalWidget(), Qt::Key_Escape); });
    EXPECT_EQ(dialog.DoModal(), KOID_CANCEL);
    EXPECT_EQ(dialog.window(), nullptr) << "the window goes with the modal run";

    whenShown([&] {
        dialog.name_.setText(L"Kerbs");
        static_cast<QAbstractButton*>(dialog.GetDlgItem(KOID_OK)->widget())->click();
    });
    EXPECT_EQ(dialog.DoModal(), KOID_OK);
    EXPECT_EQ(dialog.name, L"Kerbs");

    // A refused exchange keeps the dialog open: OK twice, the second after
    // a name was typed.
    dialog.accepted = 0;
    whenShown([&] {
        dialog.name_.setText(L"");
        QTest::keyClick(QApplication::activeModalWidget(), Qt::Key_Return);
        EXPECT_NE(dialog.window(), nullptr);
        dialog.name_.setText(L"Walls");
        QTest::keyClick(QApplication::activeModalWidget(), Qt::Key_Return);
    });
    EXPECT_EQ(dialog.DoModal(), KOID_OK);
    EXPECT_EQ(dialog.accepted, 2);
    EXPECT_EQ(dialog.name, L"Walls");
}

TEST_F(DialogTest, SizeAndPlaceAreRememberedBetweenRuns)
{
    clearPlacement(L"RememberedDialog");
    {
        SampleDialog first(L"RememberedDialog");
        whenShown([&] {
            first.window()->resize(420, 333);
            first.EndDialog(KOID_CANCEL);
        });
        first.DoModal();
    }
    SampleDialog second(L"RememberedDialog");
    ASSERT_TRUE(second.Create());
    EXPECT_EQ(second.window()->size(), QSize(420, 333));
    // Another dialog keeps its own size.
    clearPlacement(L"OtherDialog");
    SampleDialog other(L"OtherDialog");
    ASSERT_TRUE(other.Create());
    EXPECT_EQ(other.window()->size(), QSize(300, 200));
}

TEST_F(DialogTest, ARememberedSizeBelowTheMinimumGrowsToIt)
{
    clearPlacement(L"TinyDialog");
    for (const auto& [name, value] : {std::pair{L"WindowLeft", 5}, {L"WindowTop", 5}, {L"WindowWidth", 20}, {L"WindowHeight", 20}})
        koraConfig()->setValue(4, (KoString(L"UserInterfaceSettings\\TinyDialog\\") + name).c_str(), KoraVariant(value));
    SampleDialog dialog(L"TinyDialog");
    ASSERT_TRUE(dialog.Create());
    EXPECT_EQ(dialog.window()->size(), QSize(263, 160));
}
