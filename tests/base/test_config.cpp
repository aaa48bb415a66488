#include <gtest/gtest.h>

#include <filesystem>
#include <fstream>
#include <sstream>

#include "kora/config.h"
#include "kora/userpaths.h"

// The store is shared by every test of the run (it is the per-user file),
// so each test owns one branch and starts by clearing it.

namespace {

KoraVariant get(int branch, const wchar_t* path, Kora::ErrorStatus expected = Kora::eOk)
{
    KoraVariant value;
    EXPECT_EQ(koraConfig()->getValue(branch, path, value), expected) << KoString(path).toUtf8();
    return value;
}

void clearBranch(int branch)
{
    const Kora::ErrorStatus es = koraConfig()->removeItem(branch, L"\\");
    ASSERT_TRUE(es == Kora::eOk || es == Kora::eKeyNotFound);
}

}  // namespace

TEST(KoraConfig, ValuesComeBackWithTheirTypes)
{
    constexpr int branch = 40;
    clearBranch(branch);
    KoraConfig& config = *koraConfig();
    const wchar_t* width = L"UserInterfaceSettings\\DgnMappingDialog\\MappingTypeColumnWidth";
    const wchar_t* dir = L"UserInterfaceSettings\\DgnExportFileDlg\\InitialDirectory";

    get(branch, width, Kora::eKeyNotFound);
    ASSERT_EQ(config.setValue(branch, width, KoraVariant(42)), Kora::eOk);
    KoraVariant v = get(branch, width);
    EXPECT_EQ(v.type(), KoraVariant::kInteger);
    EXPECT_EQ(v.intValue(), 42);
    ASSERT_EQ(config.setValue(branch, width, KoraVariant(-7)), Kora::eOk);
    EXPECT_EQ(get(branch, L"userinterfacesettings\\DGNMAPPINGDIALOG\\mappingtypecolumnwidth").intValue(), -7);

    // Text stays text, even when it looks like a number, and keeps its blanks and quotes.
    for (const wchar_t* text : {L"42", L"", L"  spaced \"quoted\"  ", L"/home/u/dgn/", L"C:\\dgn\\"}) {
        ASSERT_EQ(config.setValue(branch, dir, KoraVariant(KoString(text))), Kora::eOk);
        v = get(branch, dir);
        EXPECT_EQ(v.type(), KoraVariant::kString);
        EXPECT_EQ(v.stringValue(), text);
    }
    get(branch + 1, dir, Kora::eKeyNotFound);  // branches are separate
    ASSERT_EQ(config.setValue(branch, L"TopLevel", KoraVariant(1)), Kora::eOk);
    EXPECT_EQ(get(branch, L"TopLevel").intValue(), 1);

    EXPECT_EQ(config.setValue(branch, dir, KoraVariant()), Kora::eInvalidInput);
    EXPECT_EQ(config.setValue(branch, L"Folder\\", KoraVariant(1)), Kora::eInvalidInput);
    EXPECT_EQ(config.setValue(branch, dir, KoraVariant(KoString(L"two\nlines"))), Kora::eInvalidInput);
    EXPECT_EQ(config.setValue(branch, nullptr, KoraVariant(1)), Kora::eNullPtr);
    EXPECT_EQ(get(branch, dir).stringValue(), L"C:\\dgn\\");

    // The store is a plain file a person can read.
    std::ifstream in(std::filesystem::path(koraUserConfigFolder().toUtf8()) / "config.ini");
    std::ostringstream text;
    text << in.rdbuf();
    EXPECT_NE(text.str().find("[40\\UserInterfaceSettings\\DgnExportFileDlg]\nInitialDirectory=\"C:\\dgn\\\"\n"),
              std::string::npos);
}

TEST(KoraConfig, RemoveItemTakesAValueOrAWholeFolder)
{
    constexpr int branch = 42;
    clearBranch(branch);
    KoraConfig& config = *koraConfig();
    const wchar_t* paths[] = {
        L"UserInterfaceSettings\\DgnExportDialog\\V7\\SeedFileCount",
        L"UserInterfaceSettings\\DgnExportDialog\\V7\\SeedFile0",
        L"UserInterfaceSettings\\DgnExportDialog\\V7\\SeedFile1",
        L"UserInterfaceSettings\\DgnExportDialog\\V7x\\SeedFile0",
        L"UserInterfaceSettings\\DgnExportDialog\\V8\\SeedFileCount",
        L"UserInterfaceSettings\\DgnExportDialog\\Top",
        L"UserInterfaceSettings\\DgnMappingDialog\\MappingNameColumnWidth",
    };
    for (const wchar_t* path : paths) ASSERT_EQ(config.setValue(branch, path, KoraVariant(1)), Kora::eOk);

    EXPECT_EQ(config.removeItem(branch, paths[2]), Kora::eOk);
    get(branch, paths[2], Kora::eKeyNotFound);
    get(branch, paths[1]);

    // A folder named without the final backslash; its namesake with a longer name stays.
    EXPECT_EQ(config.removeItem(branch, L"UserInterfaceSettings\\DgnExportDialog\\v7"), Kora::eOk);
    get(branch, paths[0], Kora::eKeyNotFound);
    get(branch, paths[1], Kora::eKeyNotFound);
    get(branch, paths[3]);

    EXPECT_EQ(config.removeItem(branch, L"UserInterfaceSettings\\DgnExportDialog\\"), Kora::eOk);
    for (int i : {3, 4, 5}) get(branch, paths[i], Kora::eKeyNotFound);
    get(branch, paths[6]);

    EXPECT_EQ(config.removeItem(branch, L"UserInterfaceSettings\\DgnExportDialog\\"), Kora::eKeyNotFound);
    EXPECT_EQ(config.removeItem(branch, L"UserInterfaceSettings\\Nothing"), Kora::eKeyNotFound);
    EXPECT_EQ(config.removeItem(branch, nullptr), Kora::eNullPtr);
}
