#include <gtest/gtest.h>

#include <filesystem>

#include "attach/DgnAttachCommand.h"
#include "kora/commandstack.h"
#include "kora/sysvars.h"
#include "kora/rxmodule.h"
#include "module.h"
#include "testeditor.h"

namespace fs = std::filesystem;

namespace {

const fs::path kBin = KORA_BIN_DIR;

KoRxDynamicLinker* linker() { return KoRxDynamicLinker::cast(korxSysRegistry()->at(KORX_DYNAMIC_LINKER)); }
KoEdCommandStack* stack() { return KoEdCommandStack::cast(korxSysRegistry()->at(KORX_COMMAND_DOCK)); }

struct Row {
    const wchar_t* global;
    const wchar_t* local;
    int flags;
};

std::vector<Row> registeredRows()
{
    std::vector<Row> rows;
    for (KoEdCommand* c : stack()->groupCommands(L"KRX_DGN")) rows.push_back({c->globalName(), c->localName(), c->commandFlags()});
    return rows;
}

void expectTable(const std::vector<Row>& expected)
{
    const std::vector<Row> rows = registeredRows();
    ASSERT_EQ(rows.size(), expected.size());
    for (size_t i = 0; i < rows.size(); ++i) {
        EXPECT_STREQ(rows[i].global, expected[i].global) << "row " << i + 1;
        EXPECT_STREQ(rows[i].local, expected[i].local) << "row " << i + 1;
        EXPECT_EQ(rows[i].flags, expected[i].flags) << "row " << i + 1;
    }
}

// A private folder holding a copy of the module and, optionally, a
// resource library under the name the module asks for.
fs::path moduleCopy(const char* name, const char* resourceLibrary)
{
    const fs::path folder = fs::path(std::getenv("KORA_USER_ROOT")) / name;
    fs::remove_all(folder);
    fs::create_directories(folder);
    fs::copy_file(kBin / "DgnCommands.krx", folder / "DgnCommands.krx");
    if (resourceLibrary) fs::copy_file(kBin / resourceLibrary, folder / "DgnCommandsRes.so");
    return folder / "DgnCommands.krx";
}

KoString wide(const fs::path& p) { return KoString::fromUtf8(p.string()); }

}  // namespace

TEST(ModuleFrame, RegistersTheNineCommandsInOrderAndUnloadsThemAsAGroup)
{
    const KoString path = wide(kBin / "DgnCommands.krx");
    const std::vector<Row> english = {
        {L"DGNEXPORT", L"DGNEXPORT", 0},   {L"-DGNEXPORT", L"-DGNEXPORT", 0}, {L"DGNMAPPING", L"DGNMAPPING", 0},
        {L"DGNIMPORT", L"DGNIMPORT", 4},   {L"-DGNIMPORT", L"-DGNIMPORT", 0}, {L"DGNBIND", L"DGNBIND", 2},
        {L"-DGNBIND", L"-DGNBIND", 0},     {L"DGNATTACH", L"DGNATTACH", 0},   {L"-DGNATTACH", L"-DGNATTACH", 0},
    };
    TestEditor editor;
    ASSERT_EQ(linker()->loadModule(path, true), Kora::eOk) << editor.transcript().toUtf8();
    expectTable(english);
    EXPECT_NE(stack()->lookupCmd(L"-dgnimport"), nullptr);
    EXPECT_EQ(stack()->lookupCmd(L"DGNEXPORT")->resourceInstance().isEmpty(), false);
    // The module made itself unloadable at init.
    EXPECT_FALSE(linker()->isApplicationLocked(path));

    ASSERT_EQ(linker()->unloadModule(path, true), Kora::eOk);
    EXPECT_TRUE(registeredRows().empty());
    for (const Row& r : english) EXPECT_EQ(stack()->lookupGlobalCmd(r.global), nullptr);

    ASSERT_EQ(linker()->loadModule(path, true), Kora::eOk);
    expectTable(english);
    ASSERT_EQ(linker()->unloadModule(path, true), Kora::eOk);
}

TEST(ModuleFrame, WithoutLocalNamesTheBuiltInNamesAreUsed)
{
    const KoString path = wide(moduleCopy("empty-resources", "test_emptyres.so"));
    TestEditor editor;
    ASSERT_EQ(linker()->loadModule(path, true), Kora::eOk) << editor.transcript().toUtf8();
    // -DGNBIND falls back to the word of the selection variant.
    expectTable({
        {L"DGNEXPORT", L"DGNEXPORT", 0}, {L"-DGNEXPORT", L"-DGNEXPORT", 0}, {L"DGNMAPPING", L"DGNMAPPING", 0},
        {L"DGNIMPORT", L"DGNIMPORT", 4}, {L"-DGNIMPORT", L"-DGNIMPORT", 0}, {L"DGNBIND", L"DGNBIND", 2},
        {L"-DGNBIND", L"DGNBIND", 0},    {L"DGNATTACH", L"DGNATTACH", 0},   {L"-DGNATTACH", L"-DGNATTACH", 0},
    });
    // Typing the shared local name finds the selection variant, which was
    // registered first; the global name still reaches the other one.
    EXPECT_STREQ(stack()->lookupCmd(L"dgnbind")->globalName(), L"DGNBIND");
    EXPECT_STREQ(stack()->lookupCmd(L"_-DGNBIND")->globalName(), L"-DGNBIND");
    ASSERT_EQ(linker()->unloadModule(path, true), Kora::eOk);
}

TEST(ModuleFrame, AModuleWithoutItsResourceLibraryIsRefused)
{
    const KoString path = wide(moduleCopy("no-resources", nullptr));
    TestEditor editor;
    EXPECT_EQ(linker()->loadModule(path, true), Kora::eLoadFailed);
    EXPECT_NE(editor.transcript().find(L"resource library"), KoString::npos) << editor.transcript().toUtf8();
    EXPECT_TRUE(registeredRows().empty());
    EXPECT_TRUE(linker()->loadedModules().empty());
}

TEST(ModuleFrame, ResourceLibraryNameFollowsTheModuleName)
{
    EXPECT_EQ(Kora::DgnCommands::resourceLibraryName(L"/opt/kora/lib/DgnCommands.krx"), L"DgnCommandsRes.dll");
    EXPECT_EQ(Kora::DgnCommands::resourceLibraryName(L"/a.b/c/My.Module.krx"), L"My.ModuleRes.dll");
    EXPECT_EQ(Kora::DgnCommands::resourceLibraryName(L"a.kr"), L"a.kr");
}

TEST(ModuleFrame, LocalStringsComeFromTheResourceLibraryWithFallbacks)
{
    Kora::DgnCommands::ModuleState& state = Kora::DgnCommands::moduleState();
    const Kora::DgnCommands::ModuleState saved = state;
    state.resourceInstance = LoadResourceDll(wide(kBin / "DgnCommandsRes.dll"));
    ASSERT_NE(state.resourceInstance, nullptr);

    koraSetResourceHandle(nullptr);
    EXPECT_EQ(loadLocalString(421, L"fallback"), L"Enter DGN file format [V7/V8] <%s>: ");
    EXPECT_EQ(loadLocalString(99999, L"fallback"), L"fallback");
    EXPECT_EQ(loadLocalString(99999, L""), L"");

    // The earlier source is put back unless there was none.
    KoInstanceHandle other = LoadResourceDll(wide(kBin / "test_emptyres.so"));
    ASSERT_NE(other, nullptr);
    koraSetResourceHandle(other);
    loadLocalString(128, L"Standard");
    EXPECT_EQ(koraCurrentResourceHandle(), other);
    {
        ResourceScope scope;
        EXPECT_EQ(koraCurrentResourceHandle(), state.resourceInstance);
        KoString text;
        EXPECT_TRUE(koraLoadString(128, text));
    }
    EXPECT_EQ(koraCurrentResourceHandle(), other);
    koraSetResourceHandle(nullptr);
    state = saved;
}

TEST(CommandObjects, AttachReadsFileDiaAndTakesOneWhenTheHostCannotAnswer)
{
    koraResetSysVars();
    ASSERT_EQ(koraSetSysVarText(L"FILEDIA", L"0"), KORTNORM);
    EXPECT_EQ(DgnAttachCommand::fileDialogSetting(), 0);
    koraUnregisterSysVar(L"FILEDIA");
    EXPECT_EQ(DgnAttachCommand::fileDialogSetting(), 1);
    koraRegisterSysVar({L"FILEDIA", KORTSHORT, L"File dialogs"}, L"1", 0, 1);
    EXPECT_EQ(DgnAttachCommand::fileDialogSetting(), 1);
}

TEST(ModuleFrame, DgnMappingWithoutADisplaySaysItNeedsOne)
{
    for (const char* variable : {"QT_QPA_PLATFORM", "DISPLAY", "WAYLAND_DISPLAY"}) unsetenv(variable);
    const KoString path = wide(kBin / "DgnCommands.krx");
    TestEditor editor;
    ASSERT_EQ(linker()->loadModule(path, true), Kora::eOk) << editor.transcript().toUtf8();
    stack()->lookupGlobalCmd(L"DGNMAPPING")->functionAddr()();
    EXPECT_NE(editor.transcript().find(L"DGNMAPPING needs a display."), -1) << editor.transcript().toUtf8();
    ASSERT_EQ(linker()->unloadModule(path, true), Kora::eOk);
}
