#include <gtest/gtest.h>

#include "kora/kostring.h"

TEST(KoStringFormat, WideStringArgumentsFollowTheHostConvention)
{
    // Resource texts are wide formats whose "%s" takes a wide string.
    EXPECT_EQ(KoString::format(L"\nCan't find file %s.", L"a\u00e9.dgn"), L"\nCan't find file a\u00e9.dgn.");
    EXPECT_EQ(KoString::format(L"%ls|%hs", L"wide", "narrow \xc3\xa9"), L"wide|narrow \u00e9");
    EXPECT_EQ(KoString::format(L"[%-6s][%6s][%.2s]", L"ab", L"cd", L"xyz"), L"[ab    ][    cd][xy]");
    EXPECT_EQ(KoString::format(L"%s", static_cast<const wchar_t*>(nullptr)), L"(null)");
    EXPECT_EQ(KoString::format(L"%c%c", L'\u00c4', L'b'), L"\u00c4b");
}

TEST(KoStringFormat, NumbersMatchTheCLibrary)
{
    EXPECT_EQ(KoString::format(L"%d|%5d|%-3d|%03d", -12, 42, 7, 5), L"-12|   42|7  |005");
    EXPECT_EQ(KoString::format(L"%g|%g|%g", 0.5, 1e20, 100000.0), L"0.5|1e+20|100000");
    EXPECT_EQ(KoString::format(L"%.2lf|%.3f|%8.1f", 3.14159, 2.0, -1.25), L"3.14|2.000|    -1.2");
    EXPECT_EQ(KoString::format(L"%ld|%lld|%I64d|%u|%x", 1L, 1LL << 40, 1LL << 33, 4000000000u, 255), L"1|1099511627776|8589934592|4000000000|ff");
    EXPECT_EQ(KoString::format(L"%*d|%.*f", 4, 9, 1, 2.25), L"   9|2.2");
    EXPECT_EQ(KoString::format(L"100%% %q"), L"100% %q");
}

TEST(KoStringText, CaseTrimSearchAndSlices)
{
    KoString s(L"  Stra\u00dfe \u00e9t\u00e9 \t");
    EXPECT_EQ(s.trimmed(), L"Stra\u00dfe \u00e9t\u00e9");
    EXPECT_EQ(KoString(L"\u00e9t\u00e9 mixed").upper(), L"\u00c9T\u00c9 MIXED");
    EXPECT_EQ(KoString(L"Standard").compareNoCase(L"STANDARD"), 0);
    EXPECT_LT(KoString(L"a").compareNoCase(L"B"), 0);
    // Ordinal comparison puts upper case before lower case.
    EXPECT_LT(KoString(L"B").compare(L"a"), 0);
    KoString path(L"/home/u/dgn/file.name.dgn");
    EXPECT_EQ(path.reverseFind(L'/'), 11);
    EXPECT_EQ(path.mid(path.reverseFind(L'/') + 1), L"file.name.dgn");
    EXPECT_EQ(path.right(3), L"dgn");
    EXPECT_EQ(path.left(5), L"/home");
    EXPECT_EQ(path.mid(6, 1), L"u");
    EXPECT_EQ(path.find(L"dgn"), 8);
    EXPECT_EQ(path.find(L"dgn", 9), 22);
    EXPECT_EQ(path.find(L'x'), KoString::npos);
    EXPECT_EQ(path.left(-1), L"");
    EXPECT_EQ(path.mid(100), L"");
    EXPECT_EQ(path.right(100), path);
    KoString q(L"\"quoted\"");
    EXPECT_EQ(q.trim(L"\""), L"quoted");
    KoString r(L"a-b-c");
    EXPECT_EQ(r.replace(L"-", L"--"), 2);
    EXPECT_EQ(r, L"a--b--c");
}

TEST(KoStringText, Utf8RoundTripAndDamagedInput)
{
    const std::string utf8 = "M\xc3\xbcller \xe2\x82\xac \xf0\x9f\x93\x90";
    EXPECT_EQ(KoString::fromUtf8(utf8).toUtf8(), utf8);
    EXPECT_EQ(KoString::fromUtf8("a\xff" "b"), L"a\uFFFDb");
    EXPECT_EQ(KoString::fromUtf8("ab\xe2\x82"), L"ab\uFFFD");
}
