#include <gtest/gtest.h>

#include <pwd.h>
#include <unistd.h>

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <optional>
#include <string>
#include <vector>

#include "kora/config.h"
#include "kora/userpaths.h"

namespace fs = std::filesystem;

namespace {

// Sets (or unsets) an environment variable for the length of a scope.
class ScopedEnv {
public:
    ScopedEnv(const char* name, const char* value) : m_name(name)
    {
        if (const char* old = std::getenv(name)) m_old = old;
        if (value) setenv(name, value, 1);
        else unsetenv(name);
    }
    ~ScopedEnv()
    {
        if (m_old) setenv(m_name, m_old->c_str(), 1);
        else unsetenv(m_name);
    }

private:
    const char* m_name;
    std::optional<std::string> m_old;
};

// A fresh folder under the test run's per-user root.
fs::path testFolder(const char* name)
{
    const char* root = std::getenv("KORA_USER_ROOT");
    EXPECT_NE(root, nullptr);
    const fs::path folder = fs::path(root ? root : ".") / "userpaths" / name;
    fs::remove_all(folder);
    fs::create_directories(folder);
    return folder;
}

std::string utf8(const wchar_t* text) { return KoString(text).toUtf8(); }

}  // namespace

TEST(UserPaths, TheUserRootMovesEveryFolder)
{
    const fs::path root = testFolder("moved");
    ScopedEnv moved("KORA_USER_ROOT", root.c_str());
    wchar_t buffer[1024] = {};

    ASSERT_TRUE(GetUserApplicationDataSupportPath(buffer, 1024));
    EXPECT_EQ(utf8(buffer), (root / "data/kora/Support/").string());
    EXPECT_TRUE(fs::is_directory(root / "data/kora/Support"));

    ASSERT_TRUE(GetUserLocalApplicationDataTemplatePath(buffer, 1024));
    EXPECT_EQ(utf8(buffer), (root / "data/kora/Template").string());
    EXPECT_TRUE(fs::is_directory(root / "data/kora/Template"));

    EXPECT_EQ(koraUserConfigFolder().toUtf8(), (root / "config/kora").string());
    EXPECT_TRUE(fs::is_directory(root / "config/kora"));
    EXPECT_EQ(koraUserDocumentsFolder().toUtf8(), (root / "Documents").string());

    ASSERT_EQ(koraConfig()->setValue(4, L"Moved\\Here", KoraVariant(1)), Kora::eOk);
    EXPECT_TRUE(fs::exists(root / "config/kora/config.ini"));
    fs::remove_all(root);
}

TEST(UserPaths, SmallBuffersAreRefusedAndLeftAlone)
{
    const fs::path root = testFolder("small");
    ScopedEnv moved("KORA_USER_ROOT", root.c_str());
    const size_t exact = (root / "data/kora/Support/").string().size() + 1;  // ASCII path: one char a byte
    std::vector<wchar_t> buffer(exact + 1, L'#');
    EXPECT_FALSE(GetUserApplicationDataSupportPath(buffer.data(), static_cast<unsigned>(exact - 1)));
    EXPECT_EQ(std::wstring(buffer.data(), buffer.size()), std::wstring(buffer.size(), L'#'));
    EXPECT_FALSE(GetUserLocalApplicationDataTemplatePath(nullptr, 1024));
    EXPECT_TRUE(GetUserApplicationDataSupportPath(buffer.data(), static_cast<unsigned>(exact)));
    EXPECT_EQ(buffer[exact], L'#');
    fs::remove_all(root);
}

TEST(UserPaths, XdgFoldersAndTheDocumentsEntry)
{
    const fs::path home = testFolder("xdg");
    ScopedEnv noRoot("KORA_USER_ROOT", nullptr);
    ScopedEnv fakeHome("HOME", home.c_str());
    ScopedEnv noConfig("XDG_CONFIG_HOME", nullptr);
    ScopedEnv relativeData("XDG_DATA_HOME", "relative/is/ignored");

    EXPECT_EQ(koraUserConfigFolder().toUtf8(), (home / ".config/kora").string());
    wchar_t buffer[1024] = {};
    ASSERT_TRUE(GetUserApplicationDataSupportPath(buffer, 1024));
    EXPECT_EQ(utf8(buffer), (home / ".local/share/kora/Support/").string());
    EXPECT_EQ(koraUserDocumentsFolder().toUtf8(), (home / "Documents").string());

    std::ofstream(home / ".config/user-dirs.dirs") << "# written by xdg-user-dirs-update\n"
                                                      "XDG_DESKTOP_DIR=\"$HOME/Desktop\"\n"
                                                      "XDG_DOCUMENTS_DIR=\"$HOME/Dokumente\"\n";
    EXPECT_EQ(koraUserDocumentsFolder().toUtf8(), (home / "Dokumente").string());

    const fs::path elsewhere = home / "elsewhere";
    ScopedEnv config("XDG_CONFIG_HOME", elsewhere.c_str());
    ScopedEnv data("XDG_DATA_HOME", (home / "data").c_str());
    EXPECT_EQ(koraUserConfigFolder().toUtf8(), (elsewhere / "kora").string());
    ASSERT_TRUE(GetUserLocalApplicationDataTemplatePath(buffer, 1024));
    EXPECT_EQ(utf8(buffer), (home / "data/kora/Template").string());
    fs::create_directories(elsewhere);
    std::ofstream(elsewhere / "user-dirs.dirs") << "XDG_DOCUMENTS_DIR=\"/srv/docs/\"\n";
    EXPECT_EQ(koraUserDocumentsFolder().toUtf8(), "/srv/docs");
    fs::remove_all(home);
}

TEST(UserPaths, UserNameIsTheProcessOwner)
{
    const struct passwd* entry = getpwuid(geteuid());
    ASSERT_NE(entry, nullptr);
    EXPECT_EQ(koraUserName().toUtf8(), entry->pw_name);
}
