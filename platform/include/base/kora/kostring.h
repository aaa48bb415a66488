// KoString: the host's wide-character string. Names, paths, prompts and
// messages cross the module boundary as KoString or as zero-terminated
// wide text.
#pragma once

#include <cstdarg>
#include <cstddef>
#include <functional>
#include <string>
#include <string_view>

#include "kora/export.h"

class KORA_API KoString {
public:
    static constexpr int npos = -1;

    KoString() = default;
    KoString(const wchar_t* text) : m_text(text ? text : L"") {}
    KoString(const wchar_t* text, int count) : m_text(text ? text : L"", text && count > 0 ? count : 0) {}
    KoString(std::wstring text) : m_text(std::move(text)) {}
    KoString(std::wstring_view text) : m_text(text) {}
    KoString(wchar_t ch, int repeat = 1) : m_text(repeat > 0 ? repeat : 0, ch) {}

    // Conversions to and from UTF-8 (file names, terminal output).
    static KoString fromUtf8(std::string_view utf8);
    std::string toUtf8() const;

    // printf-style formatting in the host's convention: in these wide
    // formats "%s" (and "%ls") takes a wide string, "%hs" a narrow UTF-8
    // string and "%c" a wide character. Width, precision, flags, '*' and
    // the length modifiers h, hh, l, ll, z, j, t, L and I64 are honoured.
    static KoString format(const wchar_t* fmt, ...);
    static KoString formatV(const wchar_t* fmt, va_list args);
    // Replaces the contents with the formatted text.
    void Format(const wchar_t* fmt, ...);

    const wchar_t* c_str() const { return m_text.c_str(); }
    operator const wchar_t*() const { return m_text.c_str(); }
    const std::wstring& str() const { return m_text; }
    std::wstring_view view() const { return m_text; }

    int length() const { return static_cast<int>(m_text.size()); }
    bool isEmpty() const { return m_text.empty(); }
    void empty() { m_text.clear(); }
    wchar_t getAt(int index) const { return m_text.at(static_cast<size_t>(index)); }
    void setAt(int index, wchar_t ch) { m_text.at(static_cast<size_t>(index)) = ch; }

    KoString& operator+=(const KoString& other) { m_text += other.m_text; return *this; }
    KoString& operator+=(const wchar_t* other) { m_text += other ? other : L""; return *this; }
    KoString& operator+=(wchar_t ch) { m_text += ch; return *this; }

    // Ordinal comparison (code point by code point), as the host's string
    // ordering and keyed containers use it.
    int compare(const KoString& other) const;
    // Comparison without regard to case (full Unicode simple case folding).
    int compareNoCase(const KoString& other) const;
    bool equalsNoCase(const KoString& other) const { return compareNoCase(other) == 0; }

    // In-place case changes; both return the string itself.
    KoString& makeUpper();
    KoString& makeLower();
    KoString upper() const { KoString s(*this); return s.makeUpper(); }
    KoString lower() const { KoString s(*this); return s.makeLower(); }

    // Removal of white space, or of any of the given characters, at the ends.
    KoString& trim();
    KoString& trimLeft();
    KoString& trimRight();
    KoString& trim(const wchar_t* chars);
    KoString& trimLeft(const wchar_t* chars);
    KoString& trimRight(const wchar_t* chars);
    KoString trimmed() const { KoString s(*this); return s.trim(); }

    // Searches answer the zero-based position or npos (-1).
    int find(wchar_t ch, int start = 0) const;
    int find(const wchar_t* sub, int start = 0) const;
    int reverseFind(wchar_t ch) const;
    int findOneOf(const wchar_t* chars) const;

    // Substrings; counts past the end are clipped, negative counts are 0.
    KoString left(int count) const;
    KoString mid(int first) const;
    KoString mid(int first, int count) const;
    KoString right(int count) const;

    // Replaces every occurrence; answers how many were replaced.
    int replace(const wchar_t* from, const wchar_t* to);
    int replace(wchar_t from, wchar_t to);

    friend KoString operator+(const KoString& a, const KoString& b) { return KoString(a.m_text + b.m_text); }
    friend KoString operator+(const KoString& a, const wchar_t* b) { return KoString(a.m_text + (b ? b : L"")); }
    friend KoString operator+(const wchar_t* a, const KoString& b) { return KoString((a ? a : L"") + b.m_text); }
    friend KoString operator+(const KoString& a, wchar_t b) { return KoString(a.m_text + b); }
    friend bool operator==(const KoString& a, const KoString& b) { return a.m_text == b.m_text; }
    friend bool operator==(const KoString& a, const wchar_t* b) { return a.m_text == (b ? b : L""); }
    friend bool operator<(const KoString& a, const KoString& b) { return a.m_text < b.m_text; }
    friend auto operator<=>(const KoString& a, const KoString& b) { return a.m_text <=> b.m_text; }

private:
    std::wstring m_text;
};

// Upper-cases one character with the same rules as KoString::makeUpper.
KORA_API wchar_t koToUpper(wchar_t ch);
KORA_API wchar_t koToLower(wchar_t ch);

template <>
struct std::hash<KoString> {
    size_t operator()(const KoString& s) const noexcept { return std::hash<std::wstring>{}(s.str()); }
};
