#include "kora/msgbox.h"

#include "kora/editor.h"
#include "kora/kostring.h"

namespace {

// Without a window system the question goes to the command line, with the
// buttons offered as keywords.
int askAtCommandLine(const wchar_t* text, const wchar_t* caption, unsigned type)
{
    koutPrintf(L"\n[%s] %s", caption ? caption : L"", text ? text : L"");
    switch (type & 0xF) {
    case KOMB_YESNO:
    case KOMB_YESNOCANCEL: {
        const bool cancel = (type & 0xF) == KOMB_YESNOCANCEL;
        koedInitGet(0, cancel ? L"Yes No Cancel _Yes No Cancel" : L"Yes No _Yes No");
        wchar_t answer[16] = {};
        const int rc = koedGetKword(cancel ? L"\n[Yes/No/Cancel] <Yes>: " : L"\n[Yes/No] <Yes>: ", answer, 16);
        if (rc == KORTCAN) return cancel ? KOID_CANCEL : KOID_NO;
        if (rc == KORTNONE || KoString(answer) == L"Yes") return KOID_YES;
        return KoString(answer) == L"No" ? KOID_NO : KOID_CANCEL;
    }
    case KOMB_OKCANCEL: {
        koedInitGet(0, L"OK Cancel _OK Cancel");
        wchar_t answer[16] = {};
        const int rc = koedGetKword(L"\n[OK/Cancel] <OK>: ", answer, 16);
        return rc == KORTCAN || KoString(answer) == L"Cancel" ? KOID_CANCEL : KOID_OK;
    }
    default:
        return KOID_OK;
    }
}

KoMessageBoxHandler& handler()
{
    static KoMessageBoxHandler h = askAtCommandLine;
    return h;
}

}  // namespace

int koraMessageBox(const wchar_t* text, const wchar_t* caption, unsigned type)
{
    return handler()(text, caption, type);
}

KoMessageBoxHandler koraSetMessageBoxHandler(KoMessageBoxHandler replacement)
{
    KoMessageBoxHandler previous = std::move(handler());
    handler() = replacement ? std::move(replacement) : KoMessageBoxHandler(askAtCommandLine);
    return previous;
}
