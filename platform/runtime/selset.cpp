#include "kora/selset.h"

#include <algorithm>
#include <cstdarg>
#include <cstdlib>
#include <cstring>
#include <map>
#include <vector>

#include "currentspace.h"
#include "kora/dxf/dxf.h"
#include "kora/docman.h"
#include "resbuf_internal.h"

namespace {

// Selection sets live until koedSSFree; their names carry a number and a
// tag that tells them from entity names.
constexpr int64_t kSetTag = 0x5353;
std::map<int64_t, KoDbObjectIdArray> g_sets;
int64_t g_nextSet = 1;

int64_t newSet(KoDbObjectIdArray ids, koads_name ss)
{
    const int64_t number = g_nextSet++;
    g_sets.emplace(number, std::move(ids));
    ss[0] = number;
    ss[1] = kSetTag;
    return number;
}

const KoDbObjectIdArray* findSet(const koads_name ss)
{
    if (!ss || ss[1] != kSetTag) return nullptr;
    const auto it = g_sets.find(ss[0]);
    return it == g_sets.end() ? nullptr : &it->second;
}

// "*" matches any run of characters; comparison ignores case.
bool wildcardMatch(const wchar_t* pattern, const wchar_t* text)
{
    if (*pattern == 0) return *text == 0;
    if (*pattern == L'*') return wildcardMatch(pattern + 1, text) || (*text && wildcardMatch(pattern, text + 1));
    return *text && koToUpper(*pattern) == koToUpper(*text) && wildcardMatch(pattern + 1, text + 1);
}

bool matchesList(const wchar_t* patterns, const KoString& value)
{
    const KoString list(patterns ? patterns : L"");
    for (int start = 0; start <= list.length();) {
        int end = list.find(L',', start);
        if (end == KoString::npos) end = list.length();
        if (wildcardMatch(list.mid(start, end - start).trimmed().c_str(), value.c_str())) return true;
        start = end + 1;
    }
    return false;
}

bool passes(const koresbuf* filter, KoDbObjectId id)
{
    if (!filter) return true;
    KoDbEntity* entity = nullptr;
    if (kodbOpenObject(entity, id, KoDb::kForRead) != Kora::eOk) return false;
    bool ok = true;
    for (const koresbuf* rb = filter; rb && ok; rb = rb->rbnext) {
        if (rb->restype == KORTDXF0) ok = matchesList(rb->resval.rstring, KoString::fromUtf8(kodbDxfName(entity)));
        else if (rb->restype == 8) ok = matchesList(rb->resval.rstring, entity->layer());
    }
    entity->close();
    return ok;
}

// The entities of the current space in drawing order, or of the whole
// drawing (model space and every sheet).
KoDbObjectIdArray entitiesOf(KoDbDatabase& db, bool wholeDrawing)
{
    std::vector<KoDbObjectId> spaces{Kora::Runtime::currentSpaceId(db)};
    if (wholeDrawing) spaces = {db.modelSpaceId(), db.paperSpaceId()};
    KoDbObjectIdArray ids;
    for (KoDbObjectId spaceId : spaces) {
        KoDbBlockTableRecord* space = nullptr;
        if (kodbOpenObject(space, spaceId, KoDb::kForRead) != Kora::eOk) continue;
        for (auto it = space->newIterator(); !it->done(); it->step()) {
            KoDbObjectId id;
            if (it->getEntityId(id) == Kora::eOk) ids.push_back(id);
        }
        space->close();
    }
    return ids;
}

KoDbObjectIdArray filtered(const KoDbObjectIdArray& ids, const koresbuf* filter)
{
    KoDbObjectIdArray kept;
    for (KoDbObjectId id : ids)
        if (!id.isErased() && passes(filter, id)) kept.push_back(id);
    return kept;
}

// Reads replies until Enter; answers false on cancel.
bool askSelection(KoDbDatabase& db, const wchar_t* prompt, const koresbuf* filter, KoDbObjectIdArray& selected)
{
    for (;;) {
        wchar_t reply[1024] = {};
        const int rc = koedGetString(0, prompt, reply, 1024);
        if (rc == KORTCAN) return false;
        const KoString word = KoString(reply).trimmed();
        if (word.isEmpty()) return true;
        KoDbObjectIdArray found;
        const KoDbObjectIdArray space = entitiesOf(db, false);
        if (word.equalsNoCase(L"ALL")) {
            found = space;
        } else if (word.equalsNoCase(L"L") || word.equalsNoCase(L"LAST")) {
            const KoDbObjectIdArray live = filtered(space, nullptr);
            if (!live.empty()) found.push_back(live.back());
        } else {
            KoDbObjectId id;
            const KoDbHandle handle = KoDbHandle::fromText(word);
            if (handle.isNull() || db.getKoDbObjectId(id, false, handle) != Kora::eOk ||
                std::find(space.begin(), space.end(), id) == space.end()) {
                koutPrintf(L"\n%s: no entity of the current space has this handle.", word.c_str());
                continue;
            }
            found.push_back(id);
        }
        const KoDbObjectIdArray live = filtered(found, nullptr);
        const KoDbObjectIdArray kept = filtered(live, filter);
        int added = 0;
        for (KoDbObjectId id : kept)
            if (std::find(selected.begin(), selected.end(), id) == selected.end()) {
                selected.push_back(id);
                ++added;
            }
        koutPrintf(L"\n%d found", static_cast<int>(live.size()));
        if (live.size() != kept.size()) koutPrintf(L", %d filtered out", static_cast<int>(live.size() - kept.size()));
        if (added != static_cast<int>(kept.size())) koutPrintf(L", %d already selected", static_cast<int>(kept.size()) - added);
    }
}

}  // namespace

koresbuf* koutBuildList(int type, ...)
{
    va_list args;
    va_start(args, type);
    koresbuf* head = nullptr;
    koresbuf** tail = &head;
    for (int t = type; t != 0; t = va_arg(args, int)) {
        koresbuf* rb = koutNewRb(static_cast<short>(t));
        if (Kora::Runtime::resbufHoldsText(t)) {
            const wchar_t* text = va_arg(args, const wchar_t*);
            const size_t bytes = (std::wcslen(text ? text : L"") + 1) * sizeof(wchar_t);
            rb->resval.rstring = static_cast<wchar_t*>(std::malloc(bytes));
            std::memcpy(rb->resval.rstring, text ? text : L"", bytes);
        } else if (t == KORTSHORT) {
            rb->resval.rint = static_cast<short>(va_arg(args, int));
        } else if (t == KORTLONG) {
            rb->resval.rlong = va_arg(args, int32_t);
        } else if (t == KORTREAL) {
            rb->resval.rreal = va_arg(args, double);
        } else {
            // A type this list cannot carry: the rest of the arguments
            // cannot be read safely.
            koutRelRb(rb);
            break;
        }
        *tail = rb;
        tail = &rb->rbnext;
    }
    va_end(args);
    return head;
}

int koedSSGet(const wchar_t* mode, const void* pt1, const void*, const koresbuf* filter, koads_name ss)
{
    if (!ss) return KORTREJ;
    KoDbDatabase* db = kodbHostApplicationServices()->workingDatabase();
    KoApDocument* doc = koDocManagerPtr()->curDocument();
    if (!db) return KORTERROR;
    const KoString m(mode ? mode : L"");
    KoDbObjectIdArray selected;
    if (m == L"_I" || m == L"I") {
        if (doc && doc->database() == db) selected = filtered(doc->pickfirst(), filter);
    } else if (m == L"_X" || m == L"X") {
        selected = filtered(entitiesOf(*db, true), filter);
    } else if (m == L"_L" || m == L"L") {
        const KoDbObjectIdArray live = filtered(entitiesOf(*db, false), nullptr);
        if (!live.empty()) selected = filtered({live.back()}, filter);
    } else if (m.isEmpty() || m == L":$") {
        const wchar_t* prompt = L"\nSelect objects: ";
        if (m == L":$" && pt1) prompt = static_cast<const wchar_t* const*>(pt1)[0];
        if (!askSelection(*db, prompt, filter, selected)) return KORTCAN;
    } else {
        return KORTREJ;
    }
    if (selected.empty()) return KORTERROR;
    newSet(std::move(selected), ss);
    return KORTNORM;
}

int koedSSLength(const koads_name ss, int32_t* length)
{
    const KoDbObjectIdArray* set = findSet(ss);
    if (!set || !length) return KORTERROR;
    *length = static_cast<int32_t>(set->size());
    return KORTNORM;
}

int koedSSName(const koads_name ss, int32_t index, koads_name entity)
{
    const KoDbObjectIdArray* set = findSet(ss);
    if (!set || !entity || index < 0 || index >= static_cast<int32_t>(set->size())) return KORTERROR;
    return kodbGetAdsName(entity, (*set)[static_cast<size_t>(index)]) == Kora::eOk ? KORTNORM : KORTERROR;
}

int koedSSFree(const koads_name ss)
{
    if (!findSet(ss)) return KORTERROR;
    g_sets.erase(ss[0]);
    return KORTNORM;
}

int koedSSSetFirst(const koads_name pickfirst, const koads_name)
{
    KoApDocument* doc = koDocManagerPtr()->curDocument();
    if (!doc) return KORTERROR;
    if (!pickfirst) {
        doc->setPickfirst({});
        return KORTNORM;
    }
    const KoDbObjectIdArray* set = findSet(pickfirst);
    if (!set) return KORTERROR;
    doc->setPickfirst(*set);
    return KORTNORM;
}

Kora::ErrorStatus kodbGetObjectId(KoDbObjectId& id, const koads_name entity)
{
    if (!entity || entity[1] != 0 || entity[0] == 0) return Kora::eInvalidInput;
    id = KoDbObjectId(reinterpret_cast<KoDbStub*>(entity[0]));
    return Kora::eOk;
}

Kora::ErrorStatus kodbGetAdsName(koads_name entity, KoDbObjectId id)
{
    if (!entity || id.isNull()) return Kora::eNullObjectId;
    entity[0] = reinterpret_cast<int64_t>(id.stub());
    entity[1] = 0;
    return Kora::eOk;
}
