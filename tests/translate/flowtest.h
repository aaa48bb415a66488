// Whole command flows on the test editor: the module is loaded as the host
// loads it, each test starts from no setup store file, default variables,
// no remembered folders and one fresh untitled drawing.
#pragma once

#include <gtest/gtest.h>

#include <filesystem>
#include <fstream>

#include "dbtest.h"
#include "kora/config.h"
#include "kora/docman.h"
#include "kora/host.h"
#include "kora/commandstack.h"
#include "kora/rxmodule.h"
#include "kora/sysvars.h"
#include "kora/ui/testhooks.h"
#include "storefile.h"
#include "testeditor.h"

// Prompts show as text when a comparison fails.
inline void PrintTo(const KoString& text, std::ostream* out) { *out << '"' << text.toUtf8() << '"'; }

namespace Kora::Test {

class FlowTest : public ::testing::Test {
protected:
    static void SetUpTestSuite()
    {
        // Once for the process: the suites of one run share the module.
        static bool loaded = false;
        if (loaded) return;
        loaded = true;
        TestEditor editor;
        KoRxDynamicLinker* linker = KoRxDynamicLinker::cast(korxSysRegistry()->at(KORX_DYNAMIC_LINKER));
        ASSERT_EQ(linker->loadModule(wide(fs::path(KORA_BIN_DIR) / "DgnCommands.krx"), true), Kora::eOk)
            << editor.transcript().toUtf8();
    }

    void SetUp() override
    {
        removeStoreFile();
        koraResetSysVars();
        koraConfig()->removeItem(4, L"UserInterfaceSettings\\");
        Kora::Ui::Test::clear();
        KoApDocManager* documents = koDocManagerPtr();
        while (documents->curDocument()) documents->closeDocument(documents->curDocument());
        ASSERT_EQ(documents->appContextNewDocument(), Kora::eOk);
        dir = workDir(::testing::UnitTest::GetInstance()->current_test_info()->name());
    }

    void TearDown() override { removeStoreFile(); }

    // Runs a command with the editor's queued replies.
    static void run(const wchar_t* command, TestEditor& editor)
    {
        ASSERT_TRUE(koraRunCommand(command));
        EXPECT_EQ(editor.unansweredPrompts(), 0) << editor.transcript().toUtf8();
    }

    static KoString text(const fs::path& p) { return wide(p); }

    // The folder a command's file dialog starts in next time ("" when none).
    static KoString initialDirectory(const wchar_t* dialog)
    {
        KoraVariant folder;
        if (koraConfig()->getValue(4, KoString(L"UserInterfaceSettings\\") + dialog + L"\\InitialDirectory", folder) != Kora::eOk)
            return KoString();
        return folder.stringValue();
    }

    static short variable(const wchar_t* name)
    {
        return static_cast<short>(std::stoi(koraSysVarText(name).toUtf8()));
    }

    fs::path dir;
};

}  // namespace Kora::Test
