#include "kora/userpaths.h"

#include <pwd.h>
#include <unistd.h>

#include <algorithm>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <string>
#include <vector>

namespace fs = std::filesystem;

namespace {

std::string environment(const char* name)
{
    const char* value = std::getenv(name);
    return value ? value : "";
}

// The password-database entry of the user the process runs as.
struct Account {
    std::string name;
    std::string home;
};

Account account()
{
    long size = sysconf(_SC_GETPW_R_SIZE_MAX);
    std::vector<char> storage(static_cast<size_t>(size > 0 ? size : 16384));
    struct passwd entry;
    struct passwd* found = nullptr;
    if (getpwuid_r(geteuid(), &entry, storage.data(), storage.size(), &found) != 0 || !found) return {};
    return {found->pw_name ? found->pw_name : "", found->pw_dir ? found->pw_dir : ""};
}

std::string homeFolder()
{
    const std::string home = environment("HOME");
    return home.empty() ? account().home : home;
}

// A folder as the per-user functions report it: absolute, normalised and
// without a trailing "/".
std::string clean(const fs::path& path)
{
    std::error_code ec;
    std::string text = fs::absolute(path, ec).lexically_normal().string();
    while (text.size() > 1 && text.back() == '/') text.pop_back();
    return text;
}

// An XDG base directory: the variable when it holds an absolute path (the
// XDG rules ignore relative ones), else its default under the home folder.
fs::path xdgFolder(const char* variable, const char* fallback)
{
    const std::string value = environment(variable);
    if (!value.empty() && value.front() == '/') return value;
    return fs::path(homeFolder()) / fallback;
}

std::string userRoot() { return environment("KORA_USER_ROOT"); }

std::string configFolder()
{
    const std::string root = userRoot();
    return clean(root.empty() ? xdgFolder("XDG_CONFIG_HOME", ".config") / "kora" : fs::path(root) / "config" / "kora");
}

std::string dataFolder()
{
    const std::string root = userRoot();
    return clean(root.empty() ? xdgFolder("XDG_DATA_HOME", ".local/share") / "kora" : fs::path(root) / "data" / "kora");
}

bool makeFolder(const std::string& path)
{
    std::error_code ec;
    fs::create_directories(path, ec);
    return fs::is_directory(path, ec);
}

// Copies a folder into a caller's buffer, creating the folder first.
bool reportFolder(const std::string& folder, const char* suffix, wchar_t* buffer, unsigned size)
{
    const KoString text = KoString::fromUtf8(folder + suffix);
    if (!buffer || static_cast<unsigned>(text.length()) >= size || !makeFolder(folder)) return false;
    std::copy_n(text.c_str(), text.length() + 1, buffer);
    return true;
}

// XDG_DOCUMENTS_DIR of "user-dirs.dirs": a line XDG_DOCUMENTS_DIR="..."
// whose value is "$HOME/..." or an absolute path; empty when there is none.
std::string userDirsDocuments()
{
    std::ifstream in(xdgFolder("XDG_CONFIG_HOME", ".config") / "user-dirs.dirs");
    const std::string key = "XDG_DOCUMENTS_DIR=";
    std::string found;
    for (std::string line; std::getline(in, line);) {
        const size_t start = line.find_first_not_of(" \t");
        if (start == std::string::npos || line.compare(start, key.size(), key) != 0) continue;
        std::string value = line.substr(start + key.size());
        while (!value.empty() && (value.back() == ' ' || value.back() == '\t' || value.back() == '\r')) value.pop_back();
        if (value.size() >= 2 && value.front() == '"' && value.back() == '"') value = value.substr(1, value.size() - 2);
        if (value == "$HOME" || value.starts_with("$HOME/")) found = homeFolder() + value.substr(5);
        else if (value.starts_with("/")) found = value;
    }
    return found;
}

}  // namespace

bool GetUserApplicationDataSupportPath(wchar_t* buffer, unsigned size)
{
    return reportFolder(dataFolder() + "/Support", "/", buffer, size);
}

bool GetUserLocalApplicationDataTemplatePath(wchar_t* buffer, unsigned size)
{
    return reportFolder(dataFolder() + "/Template", "", buffer, size);
}

KoString koraUserConfigFolder()
{
    const std::string folder = configFolder();
    makeFolder(folder);
    return KoString::fromUtf8(folder);
}

KoString koraUserDocumentsFolder()
{
    const std::string root = userRoot();
    if (!root.empty()) return KoString::fromUtf8(clean(fs::path(root) / "Documents"));
    const std::string documents = userDirsDocuments();
    return KoString::fromUtf8(clean(documents.empty() ? fs::path(homeFolder()) / "Documents" : fs::path(documents)));
}

KoString koraUserName()
{
    std::string name = account().name;
    if (name.empty()) name = environment("USER");
    if (name.empty()) name = environment("LOGNAME");
    return KoString::fromUtf8(name);
}
