#include "ui/setupnaming.h"

#include <clocale>
#include <cwctype>
#include <utility>

#include "kora/msgbox.h"
#include "kora/userpaths.h"
#include "module.h"

namespace Kora::DgnCommands {

namespace {

// The built-in texts; numbers without one carry the resource table's wording
// so that the dialogs read the same without the resource library.
const std::pair<unsigned, const wchar_t*> kTexts[] = {
    {127, L"Current user: %s"},
    {128, L"Standard"},
    {129, L"Standard mapping setup"},
    {130, L"Name"},
    {131, L"Type"},
    {132, L"Copy of %s"},
    {133, L"Copy of %s (%d)"},
    {135, L"A mapping setup named \"%s\" already exists. Please enter a different name."},
    {136, L"Edit Mapping Setup - %s"},
    {137, L"Layer"},
    {138, L"Linetype"},
    {139, L"Lineweight"},
    {140, L"Color"},
    {141, L"Specify property mapping for DGN import"},
    {142, L"Specify property mapping for DGN export"},
    {143, L"Import"},
    {144, L"Export"},
    {145, L"&New..."},
    {146, L"&Rename"},
    {147, L"&Modify..."},
    {148, L"&Delete"},
    {149, L"Maximum length allowed is %d characters."},
    {151, L"The name contains unsupported characters. \nThe following characters are not supported: \n\\<>/?:;*|,=`"},
    {152, L"More..."},
    {153, L"&Copy"},
    {154, L"&Paste"},
    {155, L"&Add Color..."},
    {156, L"&Remove Row"},
    {157, L"Add properties from DGN file"},
    {158, L"Add properties from drawing file"},
    {159, L"Are you sure you want to delete \"%s\"?"},
    {161, L"Are you sure you want to remove this mapping row ?"},
    {163, L"mm"},
};

bool isHex(wchar_t c) { return std::iswxdigit(static_cast<wint_t>(c)) != 0; }

// \U+XXXX (7 characters) or \M+NXXXX (8) at `at`; 0 when neither.
int escapeLength(const KoString& text, int at)
{
    const int rest = text.length() - at;
    if (text.getAt(at) != L'\\' || rest < 7 || text.getAt(at + 2) != L'+') return 0;
    const wchar_t kind = text.getAt(at + 1);
    if (kind == L'U' || kind == L'u') {
        for (int i = 3; i < 7; ++i)
            if (!isHex(text.getAt(at + i))) return 0;
        return 7;
    }
    if ((kind == L'M' || kind == L'm') && rest >= 8 && std::iswdigit(static_cast<wint_t>(text.getAt(at + 3)))) {
        for (int i = 4; i < 8; ++i)
            if (!isHex(text.getAt(at + i))) return 0;
        return 8;
    }
    return 0;
}

// Letters and digits are judged in the user's locale for the time of a check.
class UserCharacterClasses {
public:
    UserCharacterClasses() { std::setlocale(LC_CTYPE, ""); }
    ~UserCharacterClasses() { std::setlocale(LC_CTYPE, "C"); }
};

void warn(const KoString& text) { koraMessageBox(text, nullptr, KOMB_OK | KOMB_ICONWARNING); }

}  // namespace

KoString setupText(unsigned id)
{
    const wchar_t* fallback = nullptr;
    for (const auto& [number, text] : kTexts)
        if (number == id) fallback = text;
    return loadLocalString(id, fallback);
}

bool isValidSetupNameText(const KoString& name)
{
    if (name.isEmpty() || name.getAt(0) == L' ' || name.length() > kMaxSetupNameLength) return false;
    UserCharacterClasses classes;
    for (int i = 0; i < name.length();) {
        if (const int escape = escapeLength(name, i)) {
            i += escape;
            continue;
        }
        const wchar_t c = name.getAt(i++);
        if (std::iswalnum(static_cast<wint_t>(c))) continue;
        if (std::wstring_view(L"\"*,/:;<=>?\\`|").find(c) != std::wstring_view::npos) return false;
    }
    return true;
}

bool checkSetupNameText(const KoString& trimmedName)
{
    if (trimmedName.length() > kMaxSetupNameLength) {
        warn(KoString::format(setupText(149), kMaxSetupNameLength));
        return false;
    }
    if (!isValidSetupNameText(trimmedName)) {
        warn(setupText(151));
        return false;
    }
    return true;
}

void reportDuplicateSetupName(const KoString& name) { warn(KoString::format(setupText(135), name.c_str())); }

KoString currentUserLabel() { return KoString::format(setupText(127), koraUserName().c_str()); }

KoString proposedSetupName(const KoString& baseName, const DgnMappingSetupStore& store)
{
    KoString name = KoString::format(setupText(132), baseName.c_str());
    for (int n = 2; store.find(name); ++n) name = KoString::format(setupText(133), baseName.c_str(), n);
    return name;
}

}  // namespace Kora::DgnCommands
