// Naming a setup: the character and length rules, the new setup dialog's
// proposal, kind and checks, and the setup it creates through the modify
// dialog, down to the store file.
#include <QDialog>
#include <QLineEdit>
#include <QPushButton>
#include <QRadioButton>

#include "dialogdriver.h"
#include "mappingdialogtest.h"
#include "ui/mappingmodifydialog.h"
#include "ui/mappingnewdialog.h"
#include "ui/mappingsetupsdialog.h"
#include "ui/setupnaming.h"

using namespace Kora::DgnCommands;
using namespace Kora::Ui;
namespace Hooks = Kora::Ui::Test;

namespace {

QString nameTyped(QDialog& dialog) { return dialog.findChild<QLineEdit*>()->text(); }

QRadioButton* radio(QDialog& dialog, const char* text)
{
    for (QRadioButton* button : dialog.findChildren<QRadioButton*>())
        if (button->text() == text) return button;
    return nullptr;
}

QPushButton* button(QDialog& dialog, const char* text)
{
    for (QPushButton* b : dialog.findChildren<QPushButton*>())
        if (b->text() == text) return b;
    return nullptr;
}

}  // namespace

TEST(SetupNames, CharacterAndLengthRules)
{
    for (const wchar_t* valid : {L"Roads", L"A\\U+00C4B", L"A\\u+00c4", L"A\\M+1ABCD", L"Roads (2) - east.v8", L"Stra\u00dfe"})
        EXPECT_TRUE(isValidSetupNameText(valid)) << KoString(valid).toUtf8();
    for (const wchar_t* invalid : {L"", L" Roads", L"A\\U+00G4", L"A\\M+ABCDE", L"a\"b", L"a*b", L"a,b", L"a/b", L"a:b",
                                   L"a;b", L"a<b", L"a=b", L"a>b", L"a?b", L"a\\b", L"a`b", L"a|b"})
        EXPECT_FALSE(isValidSetupNameText(invalid)) << KoString(invalid).toUtf8();
    EXPECT_TRUE(isValidSetupNameText(KoString(L'x', 255)));
    EXPECT_FALSE(isValidSetupNameText(KoString(L'x', 256)));
}

TEST_F(MappingDialogTest, NewSetupProposesAFreeNameAndIsCreatedAsTypedThenListedLast)
{
    writeStoreFile(std::string(kThreeSetups) + "[MappingSetup4]\nName=Copy of Roads\nisImport=1\n");
    CDgnMappingDlg setups(0, L"Roads");
    ASSERT_TRUE(setups.Create());

    Hooks::DialogDriver driver;
    driver.on(CDgnMappingNewDlg::kDialogId)
        .call([](QDialog& dialog) {
            EXPECT_EQ(nameTyped(dialog), "Copy of Roads (2)");
            // An import base proposes an import setup.
            EXPECT_TRUE(radio(dialog, "DGN import setup")->isChecked());
        })
        .type(CDgnMappingNewDlg::kName, L" Aardvark")
        .ok();
    driver.on(CDgnMappingModifyDlg::kDialogId)
        .call([](QDialog& dialog) { EXPECT_EQ(dialog.windowTitle(), "Edit Mapping Setup -  Aardvark"); })
        .ok();
    setups.newSetup();
    EXPECT_TRUE(driver.problems().empty()) << (driver.problems().empty() ? "" : driver.problems()[0]);

    // The leading blank passed the checks trimmed but stays in the name.
    const int last = setups.list().itemCount() - 1;
    EXPECT_EQ(setups.list().itemText(last, 0), L" Aardvark");
    EXPECT_EQ(setups.list().itemText(last, 1), L"Import");
    EXPECT_EQ(setups.list().selectedItem(), last);
    ASSERT_NE(setups.store().find(L" Aardvark"), nullptr);
    EXPECT_EQ(setups.store().find(L" Aardvark")->layerMap, (DgnMappingTable{{L"1", L"ROAD"}}));
    EXPECT_NE(readStoreFile().find("Name= Aardvark"), std::string::npos);

    // Proposals count on while taken.
    Hooks::DialogDriver again;
    again.on(CDgnMappingNewDlg::kDialogId)
        .call([](QDialog& dialog) { EXPECT_EQ(nameTyped(dialog), "Copy of Pipes"); })
        .cancel();
    setups.list().selectItem(3);
    ASSERT_EQ(setups.currentName(), L"Pipes");
    setups.newSetup();
    EXPECT_TRUE(again.problems().empty());
    EXPECT_EQ(setups.list().itemCount(), last + 1);
}

TEST_F(MappingDialogTest, NewSetupRefusesBadNamesAndKeepsTheDialogOpen)
{
    writeStoreFile(kThreeSetups);
    DgnMappingSetupStore store;
    loadMappingSetups(store);
    for (int i = 0; i < 4; ++i) Hooks::queueMessageBoxAnswer(KOID_OK);

    Hooks::DialogDriver driver;
    driver.on(CDgnMappingNewDlg::kDialogId)
        .type(CDgnMappingNewDlg::kName, L"roads")
        .ok()
        .type(CDgnMappingNewDlg::kName, KoString(L'x', 256))
        .ok()
        .type(CDgnMappingNewDlg::kName, L"a\"b")
        .ok()
        .type(CDgnMappingNewDlg::kName, KoString(L'x', 255))
        .ok();
    driver.on(CDgnMappingModifyDlg::kDialogId).cancel();
    CDgnMappingNewDlg dialog(L"Roads", store, 0);
    EXPECT_EQ(dialog.DoModal(), KOID_OK);
    EXPECT_TRUE(driver.problems().empty()) << (driver.problems().empty() ? "" : driver.problems()[0]);
    EXPECT_EQ(messages(), (std::vector<KoString>{
                              L"A mapping setup named \"roads\" already exists. Please enter a different name.",
                              L"Maximum length allowed is 255 characters.",
                              L"The name contains unsupported characters. \nThe following characters are not supported: \n\\<>/?:;*|,=`",
                          }));
    // The modify dialog was cancelled: nothing was created.
    EXPECT_EQ(store.size(), 4u);
    EXPECT_EQ(storedValue(L"MappingSetup4", L"Name"), L"<missing>");
}

TEST_F(MappingDialogTest, ExportOnlyRestrictionMakesAnExportSetupWithTheButtonsSwapped)
{
    writeStoreFile(kThreeSetups);
    CDgnMappingDlg setups(2, L"Roads");
    ASSERT_TRUE(setups.Create());
    Hooks::DialogDriver driver;
    driver.on(CDgnMappingNewDlg::kDialogId)
        .call([](QDialog& dialog) {
            EXPECT_FALSE(radio(dialog, "DGN import setup")->isEnabled());
            EXPECT_TRUE(radio(dialog, "DGN export setup")->isChecked());
        })
        .ok();
    driver.on(CDgnMappingModifyDlg::kDialogId)
        .call([](QDialog& dialog) {
            // The source side's button comes first: the drawing in an export.
            EXPECT_EQ(button(dialog, "->DWG")->property("koraControlId").toInt(), CDgnMappingModifyDlg::kSourceButton);
            EXPECT_EQ(button(dialog, "->DGN")->property("koraControlId").toInt(), CDgnMappingModifyDlg::kTargetButton);
            EXPECT_EQ(button(dialog, "->DGN")->toolTip(), "Add properties from DGN file");
        })
        .ok();
    setups.newSetup();
    EXPECT_TRUE(driver.problems().empty()) << (driver.problems().empty() ? "" : driver.problems()[0]);
    const int last = setups.list().itemCount() - 1;
    EXPECT_EQ(setups.list().itemText(last, 0), L"Copy of Roads");
    EXPECT_EQ(setups.list().itemText(last, 1), L"Export");
    EXPECT_EQ(setups.store().find(L"Copy of Roads")->isImport, 0);
}
