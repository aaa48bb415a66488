#include "kora/sysvars.h"

#include <cstdlib>
#include <cstring>
#include <cwchar>
#include <map>

#include "kora/editor.h"

namespace {

struct SysVar {
    KoSysVarInfo info;
    KoString defaultValue;
    KoString value;  // kept as text; parsed for numeric types on every change
    int minimum = 0;
    int maximum = -1;  // below minimum: no range
};

bool parseInteger(const KoString& text, long& out)
{
    const KoString t = text.trimmed();
    if (t.isEmpty()) return false;
    wchar_t* end = nullptr;
    out = std::wcstol(t.c_str(), &end, 10);
    return end && *end == 0;
}

bool parseReal(const KoString& text, double& out)
{
    const KoString t = text.trimmed();
    if (t.isEmpty()) return false;
    wchar_t* end = nullptr;
    out = std::wcstod(t.c_str(), &end);
    return end && *end == 0;
}

// The variables every host session has.
std::map<KoString, SysVar>& table()
{
    static std::map<KoString, SysVar> vars = [] {
        std::map<KoString, SysVar> v;
        auto add = [&](const wchar_t* name, short type, const wchar_t* def, int lo, int hi, const wchar_t* text) {
            v.emplace(KoString(name), SysVar{{name, type, text}, def, def, lo, hi});
        };
        add(L"FILEDIA", KORTSHORT, L"1", 0, 1, L"Whether file dialogs are shown (1) or names are asked at the command line (0)");
        add(L"INSUNITS", KORTSHORT, L"4", 0, 24, L"Units of inserted content (drawing units code; 4 = millimetres)");
        add(L"UCSICON", KORTSHORT, L"3", 0, 3, L"Display of the coordinate-system icon (bit 1: on, bit 2: at the origin)");
        return v;
    }();
    return vars;
}

SysVar* lookup(const wchar_t* name)
{
    if (!name) return nullptr;
    const auto it = table().find(KoString(name).upper());
    return it == table().end() ? nullptr : &it->second;
}

bool inRange(const SysVar& var, long value)
{
    return var.maximum < var.minimum || (value >= var.minimum && value <= var.maximum);
}

}  // namespace

void koraRegisterSysVar(const KoSysVarInfo& info, const KoString& defaultValue, int minimum, int maximum)
{
    KoSysVarInfo stored = info;
    stored.name = info.name.upper();
    table().emplace(stored.name, SysVar{stored, defaultValue, defaultValue, minimum, maximum});
}

void koraUnregisterSysVar(const wchar_t* name)
{
    if (name) table().erase(KoString(name).upper());
}

std::vector<KoSysVarInfo> koraSysVars()
{
    std::vector<KoSysVarInfo> all;
    for (const auto& [name, var] : table()) all.push_back(var.info);
    return all;
}

bool koraSysVarExists(const wchar_t* name) { return lookup(name) != nullptr; }

KoString koraSysVarText(const wchar_t* name)
{
    const SysVar* var = lookup(name);
    return var ? var->value : KoString();
}

int koraSetSysVarText(const wchar_t* name, const KoString& text)
{
    SysVar* var = lookup(name);
    if (!var) return KORTERROR;
    switch (var->info.type) {
    case KORTSHORT:
    case KORTLONG: {
        long v = 0;
        if (!parseInteger(text, v) || !inRange(*var, v)) return KORTERROR;
        if (var->info.type == KORTSHORT && (v < -32768 || v > 32767)) return KORTERROR;
        var->value = KoString::format(L"%ld", v);
        return KORTNORM;
    }
    case KORTREAL: {
        double v = 0;
        if (!parseReal(text, v)) return KORTERROR;
        var->value = KoString::format(L"%.15g", v);
        return KORTNORM;
    }
    default:
        var->value = text;
        return KORTNORM;
    }
}

void koraResetSysVars()
{
    for (auto& [name, var] : table()) var.value = var.defaultValue;
}

int koedGetVar(const wchar_t* name, koresbuf* result)
{
    const SysVar* var = lookup(name);
    if (!var || !result) return KORTERROR;
    result->rbnext = nullptr;
    result->restype = var->info.type;
    long integer = 0;
    double real = 0;
    switch (var->info.type) {
    case KORTSHORT:
        parseInteger(var->value, integer);
        result->resval.rint = static_cast<short>(integer);
        break;
    case KORTLONG:
        parseInteger(var->value, integer);
        result->resval.rlong = static_cast<int32_t>(integer);
        break;
    case KORTREAL:
        parseReal(var->value, real);
        result->resval.rreal = real;
        break;
    default: {
        // The caller frees the copy with free() (koutRelRb does).
        const size_t bytes = (static_cast<size_t>(var->value.length()) + 1) * sizeof(wchar_t);
        result->resval.rstring = static_cast<wchar_t*>(std::malloc(bytes));
        std::memcpy(result->resval.rstring, var->value.c_str(), bytes);
        break;
    }
    }
    return KORTNORM;
}

int koedSetVar(const wchar_t* name, const koresbuf* value)
{
    const SysVar* var = lookup(name);
    if (!var || !value) return KORTERROR;
    const bool integerVar = var->info.type == KORTSHORT || var->info.type == KORTLONG;
    switch (value->restype) {
    case KORTSHORT:
        return integerVar ? koraSetSysVarText(name, KoString::format(L"%d", value->resval.rint)) : KORTERROR;
    case KORTLONG:
        return integerVar ? koraSetSysVarText(name, KoString::format(L"%d", value->resval.rlong)) : KORTERROR;
    case KORTREAL:
        return var->info.type == KORTREAL ? koraSetSysVarText(name, KoString::format(L"%.17g", value->resval.rreal)) : KORTERROR;
    case KORTSTR:
        return var->info.type == KORTSTR && value->resval.rstring ? koraSetSysVarText(name, value->resval.rstring) : KORTERROR;
    default:
        return KORTERROR;
    }
}
