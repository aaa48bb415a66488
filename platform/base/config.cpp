#include "kora/config.h"

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

#include "kora/profile.h"
#include "kora/userpaths.h"
#include "profile_internal.h"

// The store is an initialisation file: section "<branch>\<folder path>"
// ("<branch>" alone for values at the top), one key per value. Texts are
// written in double quotes and integers bare, so "42" typed as text comes
// back as text, and a text keeps its leading and trailing blanks.

namespace {

KoString storeFile() { return koraUserConfigFolder() + L"/config.ini"; }

KoString folderSection(int branch, std::wstring_view folder)
{
    KoString section = KoString::format(L"%d", branch);
    if (!folder.empty()) section += L"\\" + KoString(folder);
    return section;
}

std::wstring_view withoutLeadingBackslashes(const wchar_t* path)
{
    std::wstring_view p(path);
    while (!p.empty() && p.front() == L'\\') p.remove_prefix(1);
    return p;
}

// Where a value path lives: its folder's section and its own name.
struct Location {
    KoString section;
    KoString name;
};

Location locate(int branch, const wchar_t* path)
{
    const std::wstring_view p = withoutLeadingBackslashes(path);
    const size_t cut = p.rfind(L'\\');
    if (cut == std::wstring_view::npos) return {folderSection(branch, {}), KoString(p)};
    return {folderSection(branch, p.substr(0, cut)), KoString(p.substr(cut + 1))};
}

KoraVariant parseValue(const std::wstring& raw)
{
    if (raw.size() >= 2 && raw.front() == L'"' && raw.back() == L'"') return KoraVariant(KoString(raw.substr(1, raw.size() - 2)));
    // Bare decimal integers in int range are integers; any other bare text
    // (a hand-edited file) is taken as text.
    size_t digits = raw.starts_with(L'-') ? 1 : 0;
    if (raw.size() > digits && raw.size() - digits <= 10
        && raw.find_first_not_of(L"0123456789", digits) == std::wstring::npos) {
        const long long n = std::stoll(raw);
        if (n >= INT32_MIN && n <= INT32_MAX) return KoraVariant(static_cast<int>(n));
    }
    return KoraVariant(KoString(raw));
}

// Removes the folder's section and every section below it, in one
// replacement of the file.
Kora::ErrorStatus removeFolder(int branch, std::wstring_view folder)
{
    while (!folder.empty() && folder.back() == L'\\') folder.remove_suffix(1);
    const KoString file = storeFile();
    const KoString top = folderSection(branch, folder).upper();
    const KoString below = top + L"\\";
    KoProfileBatch batch(file);
    bool found = false;
    for (const std::wstring& section : Kora::profileSectionNames(file)) {
        const KoString name = KoString(section).upper();
        if (name != top && !name.str().starts_with(below.str())) continue;
        found = true;
        if (!koWritePrivateProfileString(section.c_str(), nullptr, nullptr, file)) return Kora::eFileWriteError;
    }
    return found ? Kora::eOk : Kora::eKeyNotFound;
}

}  // namespace

Kora::ErrorStatus KoraConfig::getValue(int branch, const wchar_t* path, KoraVariant& value) const
{
    if (!path) return Kora::eNullPtr;
    const Location at = locate(branch, path);
    const std::optional<std::wstring> raw = Kora::profileRawValue(at.section, at.name, storeFile());
    if (!raw) return Kora::eKeyNotFound;
    value = parseValue(*raw);
    return Kora::eOk;
}

Kora::ErrorStatus KoraConfig::setValue(int branch, const wchar_t* path, const KoraVariant& value)
{
    if (!path) return Kora::eNullPtr;
    const Location at = locate(branch, path);
    KoString text;
    if (value.type() == KoraVariant::kInteger) text = KoString::format(L"%d", value.intValue());
    else if (value.type() == KoraVariant::kString) text = L"\"" + value.stringValue() + L"\"";
    if (text.isEmpty() || at.name.trimmed().isEmpty() || at.section.findOneOf(L"\r\n") != KoString::npos
        || !Kora::profileCanStore(at.name, text))
        return Kora::eInvalidInput;
    return koWritePrivateProfileString(at.section, at.name, text, storeFile()) ? Kora::eOk : Kora::eFileWriteError;
}

Kora::ErrorStatus KoraConfig::removeItem(int branch, const wchar_t* path)
{
    if (!path) return Kora::eNullPtr;
    const std::wstring_view p = withoutLeadingBackslashes(path);
    if (p.empty() || p.back() == L'\\') return removeFolder(branch, p);
    const Location at = locate(branch, path);
    const KoString file = storeFile();
    if (!Kora::profileRawValue(at.section, at.name, file)) return removeFolder(branch, p);
    return koWritePrivateProfileString(at.section, at.name, nullptr, file) ? Kora::eOk : Kora::eFileWriteError;
}

KoraConfig* koraConfig()
{
    static KoraConfig config;
    return &config;
}
