// The mapping setups dialog against a real store file: what it lists and
// selects, deleting and renaming in place, and its column widths.
#include <QAbstractItemView>

#include "dialogdriver.h"
#include "kora/config.h"
#include "mappingdialogtest.h"
#include "ui/mappingsetupsdialog.h"

using namespace Kora::DgnCommands;
using namespace Kora::Ui;
namespace Hooks = Kora::Ui::Test;

namespace {

std::vector<KoString> column(ListCtrl& list, int col)
{
    std::vector<KoString> texts;
    for (int row = 0; row < list.itemCount(); ++row) texts.push_back(list.itemText(row, col));
    return texts;
}

bool setupButtonsEnabled(CDgnMappingDlg& dialog)
{
    return dialog.GetDlgItem(CDgnMappingDlg::kRename)->isEnabled() && dialog.GetDlgItem(CDgnMappingDlg::kModify)->isEnabled() &&
           dialog.GetDlgItem(CDgnMappingDlg::kDelete)->isEnabled();
}

// Renames a row as a user does: opens the editor, types, presses Enter.
void renameRow(CDgnMappingDlg& dialog, int row, const KoString& text)
{
    dialog.list().selectItem(row);
    dialog.startRename();
    auto* editor = qobject_cast<QLineEdit*>(dialog.list().cellEditor());
    ASSERT_NE(editor, nullptr);
    editor->setText(QString::fromStdWString(text.str()));
    QTest::keyClick(editor, Qt::Key_Return);
}

}  // namespace

TEST_F(MappingDialogTest, ListsEverySetupWithItsTypeAndSelectsTheCurrentOne)
{
    writeStoreFile(kThreeSetups);
    for (const wchar_t* name : {L"", L"Nowhere", L"STANDARD"}) {
        CDgnMappingDlg dialog(0, name);
        ASSERT_TRUE(dialog.Create());
        EXPECT_EQ(column(dialog.list(), 0), (std::vector<KoString>{L"Standard", L"Odd", L"Pipes", L"Roads"}));
        // A kind other than 1 and -1 is listed as an export setup.
        EXPECT_EQ(column(dialog.list(), 1), (std::vector<KoString>{L"", L"Export", L"Export", L"Import"}));
        EXPECT_EQ(dialog.list().selectedItem(), 0) << name;
        EXPECT_FALSE(dialog.GetDlgItem(CDgnMappingDlg::kRename)->isEnabled());
        EXPECT_FALSE(dialog.GetDlgItem(CDgnMappingDlg::kModify)->isEnabled());
        EXPECT_FALSE(dialog.GetDlgItem(CDgnMappingDlg::kDelete)->isEnabled());
        EXPECT_EQ(dialog.GetDlgItem(CDgnMappingDlg::kDescription)->text(), L"Standard mapping setup");
        EXPECT_EQ(dialog.currentName(), L"Standard");
    }

    CDgnMappingDlg dialog(0, L"roads");
    ASSERT_TRUE(dialog.Create());
    EXPECT_EQ(dialog.list().selectedItem(), 3);
    EXPECT_TRUE(setupButtonsEnabled(dialog));
    EXPECT_EQ(dialog.GetDlgItem(CDgnMappingDlg::kDescription)->text(), L"road layers");

    // Choosing another row follows with the buttons and the description;
    // a click below the rows keeps it.
    dialog.list().selectItem(2);
    EXPECT_EQ(dialog.currentName(), L"Pipes");
    EXPECT_EQ(dialog.GetDlgItem(CDgnMappingDlg::kDescription)->text(), L"pipe work");
    auto* view = qobject_cast<QAbstractItemView*>(dialog.list().widget());
    ASSERT_NE(view, nullptr);
    QTest::mouseClick(view->viewport(), Qt::LeftButton, {}, QPoint(5, view->viewport()->height() - 3));
    EXPECT_EQ(dialog.list().selectedItem(), 2);
    dialog.list().selectItem(0);
    EXPECT_FALSE(setupButtonsEnabled(dialog));
}

TEST_F(MappingDialogTest, AMissingStoreFileListsOnlyTheStandardSetup)
{
    CDgnMappingDlg dialog(0, L"Roads");
    ASSERT_TRUE(dialog.Create());
    EXPECT_EQ(column(dialog.list(), 0), (std::vector<KoString>{L"Standard"}));
}

TEST_F(MappingDialogTest, DeleteAsksThenRemovesTheSetupFromListAndFile)
{
    writeStoreFile(kThreeSetups);
    CDgnMappingDlg dialog(0, L"Roads");
    ASSERT_TRUE(dialog.Create());

    Hooks::queueMessageBoxAnswer(KOID_NO);
    dialog.deleteSetup();
    EXPECT_EQ(messages(), (std::vector<KoString>{L"Are you sure you want to delete \"Roads\"?"}));
    EXPECT_EQ(dialog.list().itemCount(), 4);
    EXPECT_EQ(storedValue(L"MappingSetup1", L"Name"), L"Roads");

    // The last row goes: the new last row is selected.
    Hooks::queueMessageBoxAnswer(KOID_YES);
    dialog.deleteSetup();
    EXPECT_EQ(column(dialog.list(), 0), (std::vector<KoString>{L"Standard", L"Odd", L"Pipes"}));
    EXPECT_EQ(dialog.list().selectedItem(), 2);
    EXPECT_EQ(storedValue(L"MappingSetup1", L"Name"), L"<missing>");

    // Another row goes: the row moving into its place is selected.
    dialog.list().selectItem(1);
    Hooks::queueMessageBoxAnswer(KOID_YES);
    dialog.deleteSetup();
    EXPECT_EQ(column(dialog.list(), 0), (std::vector<KoString>{L"Standard", L"Pipes"}));
    EXPECT_EQ(dialog.list().selectedItem(), 1);
    EXPECT_EQ(dialog.currentName(), L"Pipes");
    EXPECT_EQ(storedValue(L"MappingSetup3", L"Name"), L"<missing>");
    EXPECT_EQ(storedValue(L"MappingSetup2", L"Name"), L"Pipes");
}

TEST_F(MappingDialogTest, RenameInPlacePassesTheNamingRulesAndWritesTheNameAtOnce)
{
    writeStoreFile(kThreeSetups);
    CDgnMappingDlg dialog(0, L"Roads");
    ASSERT_TRUE(dialog.Create());

    // Refused names: the row keeps its name and the file is untouched.
    for (int i = 0; i < 4; ++i) Hooks::queueMessageBoxAnswer(KOID_OK);
    renameRow(dialog, 3, L"ROADS");  // letter case alone is no rename
    renameRow(dialog, 3, L"Ro*ads");
    renameRow(dialog, 3, L"pipes");
    renameRow(dialog, 3, KoString(L'x', 256));
    renameRow(dialog, 3, L"Ro\"ads");
    EXPECT_EQ(messages(), (std::vector<KoString>{
                              L"The name contains unsupported characters. \nThe following characters are not supported: \n\\<>/?:;*|,=`",
                              L"A mapping setup named \"pipes\" already exists. Please enter a different name.",
                              L"Maximum length allowed is 255 characters.",
                              L"The name contains unsupported characters. \nThe following characters are not supported: \n\\<>/?:;*|,=`",
                          }));
    EXPECT_EQ(dialog.list().itemText(3, 0), L"Roads");
    EXPECT_EQ(storedValue(L"MappingSetup1", L"Name"), L"Roads");

    renameRow(dialog, 3, L"  Streets ");
    EXPECT_EQ(dialog.list().itemText(3, 0), L"Streets");
    EXPECT_EQ(storedValue(L"MappingSetup1", L"Name"), L"Streets");
    EXPECT_EQ(dialog.currentName(), L"Streets");
    ASSERT_NE(dialog.store().find(L"STREETS"), nullptr);
    EXPECT_EQ(dialog.store().find(L"Roads"), nullptr);
    EXPECT_EQ(dialog.store().find(L"Streets")->layerMap, (DgnMappingTable{{L"1", L"ROAD"}}));

    // The standard row has no section: nothing is renamed.
    dialog.list().selectItem(0);
    dialog.list().editLabel(0);
    auto* editor = qobject_cast<QLineEdit*>(dialog.list().cellEditor());
    ASSERT_NE(editor, nullptr);
    editor->setText("Mine");
    QTest::keyClick(editor, Qt::Key_Return);
    EXPECT_EQ(dialog.list().itemText(0, 0), L"Standard");
}

TEST_F(MappingDialogTest, ColumnWidthsAreStoredUnscaledOnOkOnly)
{
    const wchar_t* nameWidth = L"UserInterfaceSettings\\DgnMappingDialog\\MappingNameColumnWidth";
    const wchar_t* typeWidth = L"UserInterfaceSettings\\DgnMappingDialog\\MappingTypeColumnWidth";
    koraConfig()->setValue(4, nameWidth, KoraVariant(120));
    koraConfig()->setValue(4, typeWidth, KoraVariant(80));
    setenv("KORA_DPI_SCALE", "2.5", 1);
    auto stored = [](const wchar_t* path) {
        KoraVariant value;
        koraConfig()->getValue(4, path, value);
        return value.intValue();
    };

    for (bool ok : {false, true}) {
        Hooks::DialogDriver driver;
        CDgnMappingDlg dialog(0, KoString());
        auto& script = driver.on(CDgnMappingDlg::kDialogId).call([&](QDialog&) {
            EXPECT_EQ(dialog.list().columnWidth(0), 240);
            EXPECT_EQ(dialog.list().columnWidth(1), 160);
            dialog.list().setColumnWidth(0, 300);
            dialog.list().setColumnWidth(1, 100);
        });
        if (ok) script.ok();
        else script.cancel();
        dialog.DoModal();
        EXPECT_TRUE(driver.problems().empty());
        EXPECT_EQ(stored(nameWidth), ok ? 150 : 120);
        EXPECT_EQ(stored(typeWidth), ok ? 50 : 80);
    }
    koraConfig()->removeItem(4, L"UserInterfaceSettings\\DgnMappingDialog\\");
}

TEST_F(MappingDialogTest, HelpOpensTheMappingTopic)
{
    Hooks::recordHelpPages(true);
    CDgnMappingDlg dialog(0, KoString());
    ASSERT_TRUE(dialog.Create());
    QTest::mouseClick(dialog.GetDlgItem(CDgnMappingDlg::kHelp)->widget(), Qt::LeftButton);
    ASSERT_EQ(Hooks::helpPagesOpened().size(), 1u);
    EXPECT_NE(Hooks::helpPagesOpened()[0].find(L"DGNMAPPING_DIA"), -1);
}
