// Shared by the mapping dialog tests: an offscreen Qt application, a clean
// slate of test answers and a store file each test writes itself.
#pragma once

#include <gtest/gtest.h>

#include <QApplication>
#include <QLineEdit>
#include <QTest>

#include <cstdlib>

#include "kora/ui/application.h"
#include "kora/ui/testhooks.h"
#include "storefile.h"

class MappingDialogTest : public ::testing::Test {
protected:
    void SetUp() override
    {
        Kora::Ui::installHostServices();
        ASSERT_TRUE(Kora::Ui::ensureApplication());
        Kora::Ui::Test::clear();
        unsetenv("KORA_DPI_SCALE");
        removeStoreFile();
    }
    void TearDown() override
    {
        Kora::Ui::Test::clear();
        unsetenv("KORA_DPI_SCALE");
        removeStoreFile();
    }

    // Texts of the message boxes asked so far.
    static std::vector<KoString> messages()
    {
        std::vector<KoString> texts;
        for (const auto& asked : Kora::Ui::Test::messageBoxesAsked()) texts.push_back(asked.text);
        return texts;
    }
};

// Three setups: an import, an export, and one of an unusual kind.
inline const char* kThreeSetups =
    "[MappingSetup1]\nName=Roads\nisImport=1\nDescription=road layers\nLayerCount=1\nDGNLevel0=1\nDWGLayer0=ROAD\n"
    "[MappingSetup2]\nName=Pipes\nisImport=0\nDescription=pipe work\nLayerCount=1\nDWGLayer0=PIPE\nDGNLevel0=7\n"
    "[MappingSetup3]\nName=Odd\nisImport=2\n";
