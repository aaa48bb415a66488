#include "kora/kostring.h"

#include <clocale>
#include <cstdint>
#include <cstdio>
#include <cwctype>
#include <locale.h>
#include <vector>


namespace {

// Case mapping must not depend on the process locale (a host started under
// LANG=C would otherwise upper-case only ASCII), so it uses a private
// UTF-8 locale object.
locale_t caseLocale()
{
    static const locale_t loc = [] {
        locale_t l = newlocale(LC_CTYPE_MASK, "C.UTF-8", static_cast<locale_t>(nullptr));
        return l ? l : newlocale(LC_CTYPE_MASK, "C", static_cast<locale_t>(nullptr));
    }();
    return loc;
}

bool isBlank(wchar_t ch)
{
    return ch == L' ' || ch == L'\t' || ch == L'\n' || ch == L'\r' || ch == L'\v' || ch == L'\f';
}

void appendUtf8(std::string& out, char32_t cp)
{
    if (cp < 0x80) {
        out += static_cast<char>(cp);
    } else if (cp < 0x800) {
        out += static_cast<char>(0xC0 | (cp >> 6));
        out += static_cast<char>(0x80 | (cp & 0x3F));
    } else if (cp < 0x10000) {
        out += static_cast<char>(0xE0 | (cp >> 12));
        out += static_cast<char>(0x80 | ((cp >> 6) & 0x3F));
        out += static_cast<char>(0x80 | (cp & 0x3F));
    } else {
        out += static_cast<char>(0xF0 | (cp >> 18));
        out += static_cast<char>(0x80 | ((cp >> 12) & 0x3F));
        out += static_cast<char>(0x80 | ((cp >> 6) & 0x3F));
        out += static_cast<char>(0x80 | (cp & 0x3F));
    }
}

// One parsed conversion specification of a format string.
struct Spec {
    std::string flags;
    int width = -1;
    int precision = -1;
    std::string length;
    wchar_t conv = 0;
};

std::wstring widen(const char* text)
{
    std::wstring out;
    for (const char* p = text; *p; ++p) out += static_cast<wchar_t>(static_cast<unsigned char>(*p));
    return out;
}

std::wstring pad(std::wstring body, const Spec& spec)
{
    if (spec.width > 0 && static_cast<int>(body.size()) < spec.width) {
        const size_t fill = static_cast<size_t>(spec.width) - body.size();
        if (spec.flags.find('-') != std::string::npos) body.append(fill, L' ');
        else body.insert(0, fill, L' ');
    }
    return body;
}

// Formats one numeric argument through the C library's narrow printf,
// which is exact for every numeric conversion.
template <typename T>
std::wstring formatNumber(const Spec& spec, const char* length, T value)
{
    std::string f = "%" + spec.flags;
    if (spec.width >= 0) f += std::to_string(spec.width);
    if (spec.precision >= 0) f += "." + std::to_string(spec.precision);
    f += length;
    f += static_cast<char>(spec.conv);
    const int n = std::snprintf(nullptr, 0, f.c_str(), value);
    if (n < 0) return {};
    std::vector<char> buf(static_cast<size_t>(n) + 1);
    std::snprintf(buf.data(), buf.size(), f.c_str(), value);
    return widen(buf.data());
}

}  // namespace

wchar_t koToUpper(wchar_t ch)
{
    // ASCII, nearly all names compared without case, skips the locale's tables.
    if (ch >= L'a' && ch <= L'z') return static_cast<wchar_t>(ch - (L'a' - L'A'));
    if (ch >= 0 && ch < 0x80) return ch;
    return static_cast<wchar_t>(towupper_l(static_cast<wint_t>(ch), caseLocale()));
}

wchar_t koToLower(wchar_t ch)
{
    return static_cast<wchar_t>(towlower_l(static_cast<wint_t>(ch), caseLocale()));
}

KoString KoString::fromUtf8(std::string_view utf8)
{
    std::wstring out;
    out.reserve(utf8.size());
    size_t i = 0;
    while (i < utf8.size()) {
        const auto b = static_cast<unsigned char>(utf8[i]);
        int extra = 0;
        char32_t cp = 0;
        if (b < 0x80) { cp = b; }
        else if ((b & 0xE0) == 0xC0) { cp = b & 0x1F; extra = 1; }
        else if ((b & 0xF0) == 0xE0) { cp = b & 0x0F; extra = 2; }
        else if ((b & 0xF8) == 0xF0) { cp = b & 0x07; extra = 3; }
        else { out += L'\xFFFD'; ++i; continue; }
        if (i + static_cast<size_t>(extra) >= utf8.size()) {
            out += L'\xFFFD';
            break;
        }
        bool ok = true;
        for (int k = 1; k <= extra; ++k) {
            const auto c = static_cast<unsigned char>(utf8[i + static_cast<size_t>(k)]);
            if ((c & 0xC0) != 0x80) { ok = false; break; }
            cp = (cp << 6) | (c & 0x3F);
        }
        if (!ok) { out += L'\xFFFD'; ++i; continue; }
        out += static_cast<wchar_t>(cp);
        i += static_cast<size_t>(extra) + 1;
    }
    return KoString(std::move(out));
}

std::string KoString::toUtf8() const
{
    std::string out;
    out.reserve(m_text.size());
    for (wchar_t ch : m_text) {
        const auto cp = static_cast<char32_t>(ch);
        appendUtf8(out, cp > 0x10FFFF || (cp >= 0xD800 && cp <= 0xDFFF) ? U'\xFFFD' : cp);
    }
    return out;
}

KoString KoString::format(const wchar_t* fmt, ...)
{
    va_list args;
    va_start(args, fmt);
    KoString s = formatV(fmt, args);
    va_end(args);
    return s;
}

void KoString::Format(const wchar_t* fmt, ...)
{
    va_list args;
    va_start(args, fmt);
    *this = formatV(fmt, args);
    va_end(args);
}

KoString KoString::formatV(const wchar_t* fmt, va_list args)
{
    std::wstring out;
    if (!fmt) return KoString();
    va_list ap;
    va_copy(ap, args);
    for (const wchar_t* p = fmt; *p;) {
        if (*p != L'%') { out += *p++; continue; }
        const wchar_t* start = p++;
        if (*p == L'%') { out += L'%'; ++p; continue; }
        Spec spec;
        while (*p == L'-' || *p == L'+' || *p == L' ' || *p == L'#' || *p == L'0') spec.flags += static_cast<char>(*p++);
        if (*p == L'*') {
            spec.width = va_arg(ap, int);
            if (spec.width < 0) { spec.flags += '-'; spec.width = -spec.width; }
            ++p;
        } else if (*p >= L'0' && *p <= L'9') {
            spec.width = 0;
            while (*p >= L'0' && *p <= L'9') spec.width = spec.width * 10 + (*p++ - L'0');
        }
        if (*p == L'.') {
            ++p;
            spec.precision = 0;
            if (*p == L'*') { spec.precision = va_arg(ap, int); ++p; }
            else while (*p >= L'0' && *p <= L'9') spec.precision = spec.precision * 10 + (*p++ - L'0');
        }
        if (p[0] == L'I' && p[1] == L'6' && p[2] == L'4') { spec.length = "ll"; p += 3; }
        else if (p[0] == L'I' && p[1] == L'3' && p[2] == L'2') { p += 3; }
        else while (*p == L'h' || *p == L'l' || *p == L'z' || *p == L'j' || *p == L't' || *p == L'L') spec.length += static_cast<char>(*p++);
        spec.conv = *p;
        if (!spec.conv) { out.append(start); break; }
        ++p;
        switch (spec.conv) {
        case L's':
        case L'S': {
            std::wstring text;
            if (spec.length == "h") {
                const char* s = va_arg(ap, const char*);
                text = fromUtf8(s ? s : "(null)").str();
            } else {
                const wchar_t* s = va_arg(ap, const wchar_t*);
                text = s ? s : L"(null)";
            }
            if (spec.precision >= 0 && static_cast<int>(text.size()) > spec.precision) text.resize(static_cast<size_t>(spec.precision));
            out += pad(std::move(text), spec);
            break;
        }
        case L'c':
        case L'C':
            out += pad(std::wstring(1, static_cast<wchar_t>(va_arg(ap, wint_t))), spec);
            break;
        case L'd': case L'i': case L'u': case L'x': case L'X': case L'o': {
            if (spec.length == "ll" || spec.length == "j") out += formatNumber(spec, "ll", va_arg(ap, long long));
            else if (spec.length == "l" || spec.length == "z" || spec.length == "t") out += formatNumber(spec, "l", va_arg(ap, long));
            else if (spec.length == "h") out += formatNumber(spec, "h", va_arg(ap, int));
            else if (spec.length == "hh") out += formatNumber(spec, "hh", va_arg(ap, int));
            else out += formatNumber(spec, "", va_arg(ap, int));
            break;
        }
        case L'e': case L'E': case L'f': case L'F': case L'g': case L'G': case L'a': case L'A':
            if (spec.length == "L") out += formatNumber(spec, "L", va_arg(ap, long double));
            else out += formatNumber(spec, "", va_arg(ap, double));
            break;
        case L'p':
            out += formatNumber(spec, "", va_arg(ap, void*));
            break;
        default:
            // An unknown conversion is copied as it stands rather than
            // guessing at the argument list.
            out.append(start, p);
            break;
        }
    }
    va_end(ap);
    return KoString(std::move(out));
}

int KoString::compare(const KoString& other) const
{
    const int c = m_text.compare(other.m_text);
    return c < 0 ? -1 : (c > 0 ? 1 : 0);
}

int KoString::compareNoCase(const KoString& other) const
{
    const size_t n = std::min(m_text.size(), other.m_text.size());
    for (size_t i = 0; i < n; ++i) {
        const wchar_t a = koToUpper(m_text[i]);
        const wchar_t b = koToUpper(other.m_text[i]);
        if (a != b) return a < b ? -1 : 1;
    }
    if (m_text.size() == other.m_text.size()) return 0;
    return m_text.size() < other.m_text.size() ? -1 : 1;
}

KoString& KoString::makeUpper()
{
    for (wchar_t& ch : m_text) ch = koToUpper(ch);
    return *this;
}

KoString& KoString::makeLower()
{
    for (wchar_t& ch : m_text) ch = koToLower(ch);
    return *this;
}

KoString& KoString::trim() { return trimRight().trimLeft(); }

KoString& KoString::trimLeft()
{
    size_t i = 0;
    while (i < m_text.size() && isBlank(m_text[i])) ++i;
    m_text.erase(0, i);
    return *this;
}

KoString& KoString::trimRight()
{
    size_t n = m_text.size();
    while (n > 0 && isBlank(m_text[n - 1])) --n;
    m_text.resize(n);
    return *this;
}

KoString& KoString::trim(const wchar_t* chars) { return trimRight(chars).trimLeft(chars); }

KoString& KoString::trimLeft(const wchar_t* chars)
{
    const size_t i = m_text.find_first_not_of(chars ? chars : L"");
    m_text.erase(0, i == std::wstring::npos ? m_text.size() : i);
    return *this;
}

KoString& KoString::trimRight(const wchar_t* chars)
{
    const size_t i = m_text.find_last_not_of(chars ? chars : L"");
    m_text.resize(i == std::wstring::npos ? 0 : i + 1);
    return *this;
}

int KoString::find(wchar_t ch, int start) const
{
    if (start < 0 || start > length()) return npos;
    const size_t i = m_text.find(ch, static_cast<size_t>(start));
    return i == std::wstring::npos ? npos : static_cast<int>(i);
}

int KoString::find(const wchar_t* sub, int start) const
{
    if (!sub || start < 0 || start > length()) return npos;
    const size_t i = m_text.find(sub, static_cast<size_t>(start));
    return i == std::wstring::npos ? npos : static_cast<int>(i);
}

int KoString::reverseFind(wchar_t ch) const
{
    const size_t i = m_text.rfind(ch);
    return i == std::wstring::npos ? npos : static_cast<int>(i);
}

int KoString::findOneOf(const wchar_t* chars) const
{
    const size_t i = m_text.find_first_of(chars ? chars : L"");
    return i == std::wstring::npos ? npos : static_cast<int>(i);
}

KoString KoString::left(int count) const
{
    if (count <= 0) return KoString();
    return KoString(m_text.substr(0, static_cast<size_t>(count)));
}

KoString KoString::mid(int first) const
{
    if (first < 0) first = 0;
    if (first >= length()) return KoString();
    return KoString(m_text.substr(static_cast<size_t>(first)));
}

KoString KoString::mid(int first, int count) const
{
    if (first < 0) first = 0;
    if (count <= 0 || first >= length()) return KoString();
    return KoString(m_text.substr(static_cast<size_t>(first), static_cast<size_t>(count)));
}

KoString KoString::right(int count) const
{
    if (count <= 0) return KoString();
    if (count >= length()) return *this;
    return KoString(m_text.substr(m_text.size() - static_cast<size_t>(count)));
}

int KoString::replace(const wchar_t* from, const wchar_t* to)
{
    if (!from || !*from) return 0;
    const std::wstring f(from), t(to ? to : L"");
    int count = 0;
    for (size_t i = m_text.find(f); i != std::wstring::npos; i = m_text.find(f, i + t.size())) {
        m_text.replace(i, f.size(), t);
        ++count;
    }
    return count;
}

int KoString::replace(wchar_t from, wchar_t to)
{
    int count = 0;
    for (wchar_t& ch : m_text)
        if (ch == from) { ch = to; ++count; }
    return count;
}

