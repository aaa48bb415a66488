// Help once the kit is loaded: a topic's page beside the executable, or a
// line at the command line saying there is none.
#include <filesystem>

#include "kora/editor.h"
#include "testeditor.h"
#include "uikittest.h"

using HelpTest = UiTest;

TEST_F(HelpTest, ATopicOpensItsPage)
{
    Kora::Ui::Test::recordHelpPages(true);
    TestEditor editor;
    EXPECT_EQ(koedHelp(nullptr, L"DGNMAPPING_DIA", 0), KORTNORM);
    const auto pages = Kora::Ui::Test::helpPagesOpened();
    ASSERT_EQ(pages.size(), 1u);
    EXPECT_EQ(std::filesystem::path(pages[0].toUtf8()),
              std::filesystem::path(KORA_BIN_DIR).parent_path() / "share" / "kora" / "help" / "DGNMAPPING_DIA.html");
    EXPECT_TRUE(editor.transcript().isEmpty());
}

TEST_F(HelpTest, AMissingPageIsSaidAtTheCommandLine)
{
    Kora::Ui::Test::recordHelpPages(true);
    TestEditor editor;
    EXPECT_EQ(koedHelp(L"", L"NoSuchTopic", 0), KORTERROR);
    EXPECT_TRUE(Kora::Ui::Test::helpPagesOpened().empty());
    EXPECT_NE(editor.transcript().find(L"No help page for \"NoSuchTopic\""), KoString::npos) << editor.transcript().toUtf8();
}
