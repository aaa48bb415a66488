// Shared by the mapping dialog tests: the kit's test fixture and a store
// file each test writes itself.
#pragma once

#include <QLineEdit>

#include "storefile.h"
#include "uikittest.h"

class MappingDialogTest : public UiTest {
protected:
    void SetUp() override
    {
        UiTest::SetUp();
        removeStoreFile();
    }
    void TearDown() override
    {
        UiTest::TearDown();
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
