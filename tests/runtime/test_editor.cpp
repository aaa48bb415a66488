#include <gtest/gtest.h>

#include <filesystem>
#include <fstream>

#include "kora/editor.h"
#include "kora/msgbox.h"
#include "kora/sysvars.h"
#include "testeditor.h"

namespace {

struct KwordAnswer {
    int rc;
    KoString keyword;
};

KwordAnswer askKeyword(TestEditor&, const wchar_t* list, int flags = 0)
{
    koedInitGet(flags, list);
    wchar_t result[64] = {};
    const int rc = koedGetKword(L"\nChoose [Bind/Insert] <Bind>: ", result, 64);
    return {rc, result};
}

}  // namespace

TEST(KeywordPrompt, LocalRepliesMapToGlobalKeywords)
{
    // A translated list: local words first, global words after "_".
    const wchar_t* list = L"Binden Einfuegen _Bind Insert";
    {
        TestEditor editor;
        editor.reply(L"einf");
        const KwordAnswer a = askKeyword(editor, list);
        EXPECT_EQ(a.rc, KORTNORM);
        EXPECT_EQ(a.keyword, L"Insert");
    }
    {
        TestEditor editor;
        editor.reply(L"_ins");
        const KwordAnswer a = askKeyword(editor, list);
        EXPECT_EQ(a.rc, KORTNORM);
        EXPECT_EQ(a.keyword, L"Insert");
    }
    {
        // A global keyword without the underscore is not a local one.
        TestEditor editor;
        editor.reply(L"Insert").reply(L"BINDEN");
        const KwordAnswer a = askKeyword(editor, list);
        EXPECT_EQ(a.keyword, L"Bind");
        EXPECT_NE(editor.transcript().find(L"Invalid option keyword."), KoString::npos);
        EXPECT_EQ(editor.prompts().size(), 2u);
    }
}

TEST(KeywordPrompt, AmbiguityEnterCancelAndNoNull)
{
    const wchar_t* list = L"Master Meters Sub _Master Meters Sub";
    {
        TestEditor editor;
        editor.reply(L"M").reply(L"ma");
        const KwordAnswer a = askKeyword(editor, list);
        EXPECT_EQ(a.keyword, L"Master");
        EXPECT_NE(editor.transcript().find(L"Ambiguous response"), KoString::npos);
    }
    {
        // An exact match wins over a longer keyword it begins.
        TestEditor editor;
        editor.reply(L"v7");
        EXPECT_EQ(askKeyword(editor, L"V7 V7X _V7 V7X").keyword, L"V7");
    }
    {
        TestEditor editor;
        editor.reply(L"");
        EXPECT_EQ(askKeyword(editor, list).rc, KORTNONE);
    }
    {
        TestEditor editor;
        editor.reply(L"").reply(L"sub");
        const KwordAnswer a = askKeyword(editor, list, KORSG_NONULL);
        EXPECT_EQ(a.rc, KORTNORM);
        EXPECT_EQ(a.keyword, L"Sub");
    }
    {
        TestEditor editor;
        editor.cancel();
        EXPECT_EQ(askKeyword(editor, list).rc, KORTCAN);
    }
    {
        // The keyword list applies to one prompt only.
        TestEditor editor;
        editor.reply(L"Sub").reply(L"Sub");
        EXPECT_EQ(askKeyword(editor, list).keyword, L"Sub");
        wchar_t result[16] = {};
        EXPECT_EQ(koedGetKword(L"again: ", result, 16), KORTCAN);
    }
}

TEST(StringPrompt, SpacesBufferLimitAndCancel)
{
    TestEditor editor;
    editor.reply(L"my drawing.dgn").reply(L"my drawing.dgn").reply(L"0123456789").reply(L"").cancel();
    wchar_t buf[8] = {};
    wchar_t big[64] = {};
    EXPECT_EQ(koedGetString(1, L"File: ", big, 64), KORTNORM);
    EXPECT_STREQ(big, L"my drawing.dgn");
    EXPECT_EQ(koedGetString(0, L"Word: ", big, 64), KORTNORM);
    EXPECT_STREQ(big, L"my");
    EXPECT_EQ(koedGetString(1, L"Short: ", buf, 8), KORTINPUTTRUNCATED);
    EXPECT_STREQ(buf, L"0123456");
    EXPECT_EQ(koedGetString(1, L"Enter: ", big, 64), KORTNORM);
    EXPECT_STREQ(big, L"");
    EXPECT_EQ(koedGetString(1, L"Esc: ", big, 64), KORTCAN);
}

TEST(Printing, FormatsWideArgumentsIntoTheTranscript)
{
    TestEditor editor;
    koutPrintf(L"\n%s not found", L"Setup \u00e9");
    koedPrompt(L"\nTranslation successful.");
    EXPECT_EQ(editor.transcript(), L"\nSetup \u00e9 not found\nTranslation successful.");
}

TEST(SystemVariables, TypesDefaultsAndRanges)
{
    koraResetSysVars();
    koresbuf rb;
    ASSERT_EQ(koedGetVar(L"filedia", &rb), KORTNORM);
    EXPECT_EQ(rb.restype, KORTSHORT);
    EXPECT_EQ(rb.resval.rint, 1);

    koresbuf value;
    value.restype = KORTSHORT;
    value.resval.rint = 0;
    EXPECT_EQ(koedSetVar(L"FILEDIA", &value), KORTNORM);
    value.resval.rint = 2;
    EXPECT_EQ(koedSetVar(L"FILEDIA", &value), KORTERROR);
    value.restype = KORTREAL;
    value.resval.rreal = 1.0;
    EXPECT_EQ(koedSetVar(L"INSUNITS", &value), KORTERROR);
    EXPECT_EQ(koedGetVar(L"NOSUCHVAR", &rb), KORTERROR);

    // A short variable without a range takes any short value, given as a
    // short or a long, and nothing wider.
    koraRegisterSysVar({L"TESTMODE", KORTSHORT, L"a test variable"}, L"1", 0, -1);
    value.restype = KORTLONG;
    value.resval.rlong = 70000;
    EXPECT_EQ(koedSetVar(L"TESTMODE", &value), KORTERROR);
    value.resval.rlong = 7;
    EXPECT_EQ(koedSetVar(L"TESTMODE", &value), KORTNORM);
    EXPECT_EQ(koraSysVarText(L"TESTMODE"), L"7");
    koraUnregisterSysVar(L"TESTMODE");

    ASSERT_EQ(koedGetVar(L"FILEDIA", &rb), KORTNORM);
    EXPECT_EQ(rb.resval.rint, 0);
    koraResetSysVars();
    EXPECT_EQ(koraSysVarText(L"FILEDIA"), L"1");
}

TEST(FileSearch, AsGivenThenSupportFolders)
{
    namespace fs = std::filesystem;
    const fs::path root = fs::path(std::getenv("KORA_USER_ROOT")) / "findfile";
    fs::create_directories(root / "extra");
    std::ofstream(root / "extra" / "seed.dgn") << "x";
    const std::string saved = std::getenv("KORA_SUPPORT_PATH") ? std::getenv("KORA_SUPPORT_PATH") : "";
    setenv("KORA_SUPPORT_PATH", ("/nonexistent:" + (root / "extra").string()).c_str(), 1);

    wchar_t found[1024] = {};
    EXPECT_EQ(koedFindFile(L"seed.dgn", found, 1024), KORTNORM);
    EXPECT_EQ(KoString(found), KoString::fromUtf8((root / "extra" / "seed.dgn").string()));
    const KoString absolute = KoString::fromUtf8((root / "extra" / "seed.dgn").string());
    EXPECT_EQ(koedFindFile(absolute, found, 1024), KORTNORM);
    EXPECT_EQ(koedFindFile(L"missing.dgn", found, 1024), KORTERROR);
    EXPECT_STREQ(found, L"");
    wchar_t tiny[4] = {};
    EXPECT_EQ(koedFindFile(L"seed.dgn", tiny, 4), KORTERROR);
    setenv("KORA_SUPPORT_PATH", saved.c_str(), 1);
}

TEST(MessageBoxes, AskedAtTheCommandLineUnlessAHandlerAnswers)
{
    {
        TestEditor editor;
        editor.reply(L"n").reply(L"").cancel();
        EXPECT_EQ(koraMessageBox(L"Overwrite?", L"KORA", KOMB_YESNO | KOMB_ICONWARNING), KOID_NO);
        EXPECT_EQ(koraMessageBox(L"Overwrite?", L"KORA", KOMB_YESNOCANCEL | KOMB_ICONWARNING), KOID_YES);
        EXPECT_EQ(koraMessageBox(L"Overwrite?", L"KORA", KOMB_YESNOCANCEL | KOMB_ICONWARNING), KOID_CANCEL);
        EXPECT_EQ(koraMessageBox(L"Done.", L"KORA", KOMB_OK), KOID_OK);
        EXPECT_NE(editor.transcript().find(L"[KORA] Overwrite?"), KoString::npos);
    }
    unsigned seenType = 0;
    KoMessageBoxHandler previous = koraSetMessageBoxHandler([&](const wchar_t*, const wchar_t*, unsigned type) {
        seenType = type;
        return static_cast<int>(KOID_NO);
    });
    EXPECT_EQ(koraMessageBox(L"Overwrite?", L"KORA", 0x34), KOID_NO);
    EXPECT_EQ(seenType, 0x34u);
    koraSetMessageBoxHandler(previous);
}
