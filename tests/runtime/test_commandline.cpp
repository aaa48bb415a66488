#include <gtest/gtest.h>

#include <filesystem>
#include <fstream>

#include "kora/commandstack.h"
#include "kora/host.h"
#include "kora/resources.h"
#include "kora/sysvars.h"
#include "testeditor.h"

namespace {

int g_runs = 0;
KoInstanceHandle g_resourceSeen = reinterpret_cast<KoInstanceHandle>(1);
void countRun() { ++g_runs; }
void recordResource() { g_resourceSeen = koraCurrentResourceHandle(); }

KoEdCommandStack* stack() { return KoEdCommandStack::cast(korxSysRegistry()->at(KORX_COMMAND_DOCK)); }

}  // namespace

TEST(CommandStack, RegistryObjectsCarryTheirClasses)
{
    KoRxObject* linker = korxSysRegistry()->at(KORX_DYNAMIC_LINKER);
    ASSERT_NE(linker, nullptr);
    EXPECT_TRUE(linker->isA()->isDerivedFrom(KoRxDynamicLinker::desc()));
    EXPECT_FALSE(linker->isA()->isDerivedFrom(KoEdCommandStack::desc()));
    EXPECT_EQ(KoEdCommandStack::cast(linker), nullptr);
    EXPECT_NE(stack(), nullptr);
}

TEST(CommandStack, LookupByLocalAndGlobalNamesAndGroupRemoval)
{
    ASSERT_EQ(stack()->addCommand(L"T_GROUP", L"FIRST", L"ERSTE", 0, countRun), Kora::eOk);
    ASSERT_EQ(stack()->addCommand(L"T_GROUP", L"SECOND", L"ZWEITE", 2, countRun), Kora::eOk);
    EXPECT_EQ(stack()->addCommand(L"T_OTHER", L"first", L"x", 0, countRun), Kora::eDuplicateKey);

    EXPECT_EQ(stack()->lookupCmd(L"erste"), stack()->lookupGlobalCmd(L"FIRST"));
    EXPECT_EQ(stack()->lookupCmd(L"first"), stack()->lookupGlobalCmd(L"FIRST"));
    EXPECT_EQ(stack()->lookupCmd(L"_zweite"), nullptr);  // "_" asks for global names only
    EXPECT_EQ(stack()->lookupCmd(L"_second")->commandFlags(), 2);

    const auto group = stack()->groupCommands(L"t_group");
    ASSERT_EQ(group.size(), 2u);
    EXPECT_STREQ(group[0]->globalName(), L"FIRST");
    EXPECT_STREQ(group[1]->localName(), L"ZWEITE");

    EXPECT_EQ(stack()->removeGroup(L"T_GROUP"), Kora::eOk);
    EXPECT_EQ(stack()->lookupCmd(L"FIRST"), nullptr);
    EXPECT_EQ(stack()->lookupCmd(L"SECOND"), nullptr);
    EXPECT_EQ(stack()->removeGroup(L"T_GROUP"), Kora::eKeyNotFound);
}

TEST(CommandLine, RunsCommandsVariablesAndReportsUnknownOnes)
{
    koraRegisterHostCommands();
    koraResetSysVars();
    ASSERT_EQ(stack()->addCommand(L"T_RUN", L"COUNT", L"ZAEHLEN", 0, countRun, nullptr, -1, KoRxResourceInstance()), Kora::eOk);
    g_runs = 0;
    TestEditor editor;
    editor.reply(L"zaehlen").reply(L"_COUNT").reply(L"filedia").reply(L"0").reply(L"NOPE").reply(L"");
    for (int i = 0; i < 5; ++i) EXPECT_TRUE(koraProcessCommand());
    EXPECT_EQ(g_runs, 2);
    EXPECT_EQ(koraSysVarText(L"FILEDIA"), L"0");
    EXPECT_NE(editor.transcript().find(L"Enter new value for FILEDIA <1>: 0"), KoString::npos);
    EXPECT_NE(editor.transcript().find(L"Unknown command \"NOPE\""), KoString::npos);
    EXPECT_FALSE(koraProcessCommand());  // input ended
    stack()->removeGroup(L"T_RUN");
    koraResetSysVars();
}

TEST(CommandLine, CommandsRunWithTheirOwnResourceSource)
{
    // The stack hands a command's resource instance to the resource switch
    // while it runs and puts the previous source back afterwards.
    KoInstanceHandle fake = reinterpret_cast<KoInstanceHandle>(0x1234);
    ASSERT_EQ(stack()->addCommand(L"T_RES", L"RESCHECK", L"RESCHECK", 0, recordResource, nullptr, -1, KoRxResourceInstance(fake)), Kora::eOk);
    koraSetResourceHandle(nullptr);
    EXPECT_TRUE(koraRunCommand(L"RESCHECK"));
    EXPECT_EQ(g_resourceSeen, fake);
    EXPECT_EQ(koraCurrentResourceHandle(), nullptr);
    stack()->removeGroup(L"T_RES");
}

TEST(Scripts, RepliesEndAtSpacesAndLinesAndCancelStopsAPrompt)
{
    namespace fs = std::filesystem;
    koraRegisterHostCommands();
    koraResetSysVars();
    const fs::path file = fs::path(std::getenv("KORA_USER_ROOT")) / "test.scr";
    fs::create_directories(file.parent_path());
    std::ofstream(file) << "setvar insunits 6\r\nSETVAR\n^C\nGETVAR INSUNITS\n";
    TestEditor editor;
    EXPECT_EQ(koraRunScript(KoString::fromUtf8(file.string())), Kora::eOk);
    EXPECT_EQ(koraSysVarText(L"INSUNITS"), L"6");
    EXPECT_NE(editor.transcript().find(L"Enter variable name or [?]: *Cancel*"), KoString::npos);
    EXPECT_NE(editor.transcript().find(L"INSUNITS = 6"), KoString::npos);
    EXPECT_EQ(koraRunScript(L"/nonexistent/file.scr"), Kora::eFileNotFound);
    koraResetSysVars();
}
