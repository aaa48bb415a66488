#include "kora/editor.h"

#include <cmath>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <utility>
#include <vector>

#include "kora/editorbackend.h"
#include "kora/userpaths.h"
#include "inputparse.h"
#include "resbuf_internal.h"

namespace fs = std::filesystem;

namespace {

KoEditorBackend* g_backend = nullptr;
KoDrawingFolderFn g_drawingFolder = nullptr;

// koedInitGet applies to the next keyword prompt only.
struct PendingKeywords {
    int flags = 0;
    std::vector<KoString> local;
    std::vector<KoString> global;
};
PendingKeywords g_pending;
// The global keyword of the last KORTKWORD answer.
KoString g_lastKeyword;

// Prints through the back end; without one (a module used outside a host)
// output goes nowhere.
void print(const KoString& text)
{
    if (g_backend) g_backend->print(text);
}

std::optional<KoString> readReply(const wchar_t* prompt, bool spacesAllowed)
{
    if (!g_backend) return std::nullopt;
    return g_backend->readReply(prompt ? prompt : L"", spacesAllowed);
}

int copyOut(const KoString& text, wchar_t* result, size_t bufLen)
{
    if (!result || bufLen == 0) return KORTREJ;
    const size_t n = std::min(static_cast<size_t>(text.length()), bufLen - 1);
    std::wmemcpy(result, text.c_str(), n);
    result[n] = 0;
    return n < static_cast<size_t>(text.length()) ? KORTINPUTTRUNCATED : KORTNORM;
}

std::vector<KoString> splitWords(const KoString& text)
{
    std::vector<KoString> words;
    KoString word;
    for (int i = 0; i <= text.length(); ++i) {
        const wchar_t ch = i < text.length() ? text.getAt(i) : L' ';
        if (ch == L' ' || ch == L'\t') {
            if (!word.isEmpty()) words.push_back(word);
            word.empty();
        } else {
            word += ch;
        }
    }
    return words;
}

enum class Match { Found, NotFound, Ambiguous };

// Finds a reply among keywords: an exact match (ignoring case) wins,
// otherwise the reply must be the beginning of exactly one keyword.
Match matchKeyword(const std::vector<KoString>& keywords, const KoString& reply, size_t& index)
{
    for (size_t i = 0; i < keywords.size(); ++i)
        if (keywords[i].equalsNoCase(reply)) { index = i; return Match::Found; }
    size_t hits = 0;
    for (size_t i = 0; i < keywords.size(); ++i)
        if (keywords[i].length() > reply.length() && keywords[i].left(reply.length()).equalsNoCase(reply)) {
            if (hits == 0 || !keywords[i].equalsNoCase(keywords[index])) ++hits;
            index = i;
        }
    return hits == 0 ? Match::NotFound : (hits == 1 ? Match::Found : Match::Ambiguous);
}

bool fileExists(const KoString& path)
{
    std::error_code ec;
    return !path.isEmpty() && fs::is_regular_file(path.toUtf8(), ec);
}

}  // namespace

KoEditorBackend::~KoEditorBackend() = default;

KoEditorBackend* koraSetEditorBackend(KoEditorBackend* backend)
{
    KoEditorBackend* previous = g_backend;
    g_backend = backend;
    return previous;
}

KoEditorBackend* koraEditorBackend() { return g_backend; }

void koraSetDrawingFolderSource(KoDrawingFolderFn source) { g_drawingFolder = source; }

koresbuf* koutNewRb(short type)
{
    auto* rb = new koresbuf;
    rb->restype = type;
    if (type == KORTSTR) rb->resval.rstring = nullptr;
    return rb;
}

int koutRelRb(koresbuf* chain)
{
    while (chain) {
        koresbuf* next = chain->rbnext;
        if (Kora::Runtime::resbufHoldsText(chain->restype)) std::free(chain->resval.rstring);
        delete chain;
        chain = next;
    }
    return KORTNORM;
}

int koedGetString(int cronly, const wchar_t* prompt, wchar_t* result, size_t bufLen)
{
    if (!result || bufLen == 0) return KORTREJ;
    const std::optional<KoString> reply = readReply(prompt, cronly != 0);
    if (!reply) {
        result[0] = 0;
        return KORTCAN;
    }
    return copyOut(*reply, result, bufLen);
}

int koedInitGet(int flags, const wchar_t* keywordList)
{
    g_pending = {};
    g_pending.flags = flags;
    const std::vector<KoString> words = splitWords(keywordList ? keywordList : L"");
    bool afterUnderscore = false;
    for (const KoString& w : words) {
        if (!afterUnderscore && w.getAt(0) == L'_') {
            afterUnderscore = true;
            if (w.length() > 1) g_pending.global.push_back(w.mid(1));
        } else if (afterUnderscore) {
            g_pending.global.push_back(w);
        } else {
            g_pending.local.push_back(w);
        }
    }
    if (!afterUnderscore) g_pending.global = g_pending.local;
    // A list with fewer global names than local ones keeps the local name
    // for the rest, so every keyword has an answer.
    for (size_t i = g_pending.global.size(); i < g_pending.local.size(); ++i) g_pending.global.push_back(g_pending.local[i]);
    return KORTNORM;
}

namespace {

// Matches a reply against the pending keywords: local ones, or global
// ones when the reply starts with "_".
Match matchReply(const PendingKeywords& keywords, const KoString& text, size_t& index)
{
    if (text.getAt(0) == L'_' && text.length() > 1) return matchKeyword(keywords.global, text.mid(1), index);
    return matchKeyword(keywords.local, text, index);
}

// One reply to a prompt. A reply that is a keyword of the pending list
// answers KORTKWORD; otherwise `accept` judges the text (knowing how the
// keyword match failed) and answers KORTNORM, or prints why not and
// answers KORTREJ to ask again.
template <typename Accept>
int askValue(const wchar_t* prompt, Accept accept)
{
    const PendingKeywords keywords = std::move(g_pending);
    g_pending = {};
    for (;;) {
        const std::optional<KoString> reply = readReply(prompt, false);
        if (!reply) return KORTCAN;
        const KoString text = reply->trimmed();
        if (text.isEmpty()) {
            if (keywords.flags & KORSG_NONULL) continue;
            return KORTNONE;
        }
        size_t index = 0;
        const Match m = matchReply(keywords, text, index);
        if (m == Match::Found) {
            g_lastKeyword = keywords.global[index];
            return KORTKWORD;
        }
        const int rc = accept(text, keywords.flags, m);
        if (rc != KORTREJ) return rc;
    }
}

// Refuses zero or negative numbers when the flags say so.
bool signAccepted(double value, int flags)
{
    if ((flags & KORSG_NOZERO) && value == 0.0) {
        print(L"\nRequires a nonzero value.");
        return false;
    }
    if ((flags & KORSG_NONEG) && value < 0.0) {
        print(L"\nRequires a positive value.");
        return false;
    }
    return true;
}

}  // namespace

int koedGetPoint(const double* basePoint, const wchar_t* prompt, double result[3])
{
    if (!result) return KORTREJ;
    const KoGePoint3d base = basePoint ? KoGePoint3d(basePoint[0], basePoint[1], basePoint[2]) : KoGePoint3d();
    return askValue(prompt, [&](const KoString& text, int, Match) {
        const std::optional<KoGePoint3d> p = Kora::Runtime::parsePoint(text, basePoint ? &base : nullptr);
        if (!p) {
            print(L"\nInvalid point.");
            return static_cast<int>(KORTREJ);
        }
        result[0] = p->x;
        result[1] = p->y;
        result[2] = p->z;
        Kora::Runtime::lastPoint() = *p;
        return static_cast<int>(KORTNORM);
    });
}

int koedGetDist(const double* basePoint, const wchar_t* prompt, double* result)
{
    if (!result) return KORTREJ;
    const KoGePoint3d base = basePoint ? KoGePoint3d(basePoint[0], basePoint[1], basePoint[2]) : Kora::Runtime::lastPoint();
    return askValue(prompt, [&](const KoString& text, int flags, Match) {
        std::optional<double> d = Kora::Runtime::parseReal(text);
        if (!d) {
            if (const std::optional<KoGePoint3d> p = Kora::Runtime::parsePoint(text, &base))
                d = std::sqrt((p->x - base.x) * (p->x - base.x) + (p->y - base.y) * (p->y - base.y) + (p->z - base.z) * (p->z - base.z));
        }
        if (!d) {
            print(L"\nRequires numeric distance or second point.");
            return static_cast<int>(KORTREJ);
        }
        if (!signAccepted(*d, flags)) return static_cast<int>(KORTREJ);
        *result = *d;
        return static_cast<int>(KORTNORM);
    });
}

int koedGetAngle(const double* basePoint, const wchar_t* prompt, double* result)
{
    if (!result) return KORTREJ;
    const KoGePoint3d base = basePoint ? KoGePoint3d(basePoint[0], basePoint[1], basePoint[2]) : Kora::Runtime::lastPoint();
    return askValue(prompt, [&](const KoString& text, int, Match) {
        std::optional<double> a;
        if (const std::optional<double> degrees = Kora::Runtime::parseReal(text)) a = *degrees * M_PI / 180.0;
        else if (const std::optional<KoGePoint3d> p = Kora::Runtime::parsePoint(text, &base)) a = std::atan2(p->y - base.y, p->x - base.x);
        if (!a) {
            print(L"\nRequires valid numeric angle or second point.");
            return static_cast<int>(KORTREJ);
        }
        *result = *a;
        return static_cast<int>(KORTNORM);
    });
}

int koedGetReal(const wchar_t* prompt, double* result)
{
    if (!result) return KORTREJ;
    return askValue(prompt, [&](const KoString& text, int flags, Match) {
        const std::optional<double> v = Kora::Runtime::parseReal(text);
        if (!v) {
            print(L"\nRequires numeric value.");
            return static_cast<int>(KORTREJ);
        }
        if (!signAccepted(*v, flags)) return static_cast<int>(KORTREJ);
        *result = *v;
        return static_cast<int>(KORTNORM);
    });
}

int koedGetInt(const wchar_t* prompt, int* result)
{
    if (!result) return KORTREJ;
    return askValue(prompt, [&](const KoString& text, int flags, Match) {
        const std::optional<double> v = Kora::Runtime::parseReal(text);
        if (!v || *v != std::floor(*v) || std::fabs(*v) > 32767) {
            print(L"\nRequires an integer between -32768 and 32767.");
            return static_cast<int>(KORTREJ);
        }
        if (!signAccepted(*v, flags)) return static_cast<int>(KORTREJ);
        *result = static_cast<int>(*v);
        return static_cast<int>(KORTNORM);
    });
}

int koedGetInput(wchar_t* result, size_t bufLen)
{
    return copyOut(g_lastKeyword, result, bufLen);
}

int koedGetKword(const wchar_t* prompt, wchar_t* result, size_t bufLen)
{
    if (!result || bufLen == 0) {
        g_pending = {};
        return KORTREJ;
    }
    result[0] = 0;
    const int rc = askValue(prompt, [](const KoString&, int, Match m) {
        print(m == Match::Ambiguous ? L"\nAmbiguous response, please clarify..." : L"\nInvalid option keyword.");
        return static_cast<int>(KORTREJ);
    });
    return rc == KORTKWORD ? copyOut(g_lastKeyword, result, bufLen) : rc;
}

int koedPrompt(const wchar_t* message)
{
    print(message ? message : L"");
    return KORTNORM;
}

int koutPrintf(const wchar_t* format, ...)
{
    va_list args;
    va_start(args, format);
    const KoString text = KoString::formatV(format, args);
    va_end(args);
    print(text);
    return KORTNORM;
}

int koedFindFile(const wchar_t* fileName, wchar_t* result, size_t bufLen)
{
    if (!fileName || !*fileName || !result || bufLen == 0) return KORTERROR;
    const KoString name(fileName);
    std::vector<KoString> candidates{name};
    if (name.getAt(0) != L'/') {
        if (g_drawingFolder) {
            const KoString folder = g_drawingFolder();
            if (!folder.isEmpty()) candidates.push_back(folder + L"/" + name);
        }
        wchar_t support[1024] = {};
        if (GetUserApplicationDataSupportPath(support, 1024)) candidates.push_back(KoString(support) + name);
        if (const char* extra = std::getenv("KORA_SUPPORT_PATH")) {
            KoString folders = KoString::fromUtf8(extra);
            for (int start = 0; start <= folders.length();) {
                int end = folders.find(L':', start);
                if (end == KoString::npos) end = folders.length();
                if (end > start) candidates.push_back(folders.mid(start, end - start) + L"/" + name);
                start = end + 1;
            }
        }
    }
    for (const KoString& c : candidates) {
        if (!fileExists(c)) continue;
        std::error_code ec;
        const KoString full = KoString::fromUtf8(fs::absolute(c.toUtf8(), ec).lexically_normal().string());
        return copyOut(full, result, bufLen) == KORTNORM ? KORTNORM : KORTERROR;
    }
    result[0] = 0;
    return KORTERROR;
}

int koedTextScr()
{
    if (g_backend) g_backend->showTextScreen();
    return KORTNORM;
}

namespace {
KoHelpHandler g_helpHandler = nullptr;
}

KoHelpHandler koraSetHelpHandler(KoHelpHandler handler)
{
    return std::exchange(g_helpHandler, handler);
}

int koedHelp(const wchar_t* helpFile, const wchar_t* topic, int)
{
    if (!helpFile) helpFile = L"";
    if (!topic) topic = L"";
    if (g_helpHandler) return g_helpHandler(helpFile, topic) ? KORTNORM : KORTERROR;
    return g_backend && g_backend->showHelp(helpFile, topic) ? KORTNORM : KORTERROR;
}
