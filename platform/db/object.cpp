#include "kora/db/object.h"

#include <algorithm>
#include <atomic>
#include <cwchar>

#include "dbimpl.h"

namespace {

// Open objects of every database; a test host checks it after each command.
std::atomic<int> g_openObjects {0};

void countOpen(KoDbStub* stub, int delta)
{
    g_openObjects += delta;
    if (stub && stub->database) KoDbAccess::impl(*stub->database).openCount += delta;
}

// Persistent reactors travel as tagged stub pointers so that they can share
// one list type with transient ones.
void* encodeReactor(KoDbStub* stub) { return reinterpret_cast<void*>(reinterpret_cast<uintptr_t>(stub) | 1u); }

}  // namespace

// ---- handles and ids --------------------------------------------------

KoDbHandle KoDbHandle::fromText(const wchar_t* text)
{
    if (!text || !*text) return {};
    uint64_t value = 0;
    int digits = 0;
    for (const wchar_t* p = text; *p; ++p, ++digits) {
        int v;
        if (*p >= L'0' && *p <= L'9') v = *p - L'0';
        else if (*p >= L'a' && *p <= L'f') v = *p - L'a' + 10;
        else if (*p >= L'A' && *p <= L'F') v = *p - L'A' + 10;
        else return {};
        if (digits >= 16) return {};
        value = value << 4 | static_cast<uint64_t>(v);
    }
    return KoDbHandle(value);
}

KoString KoDbHandle::ascii() const
{
    wchar_t buf[20];
    std::swprintf(buf, 20, L"%llX", static_cast<unsigned long long>(m_value));
    return KoString(buf);
}

const KoDbObjectId KoDbObjectId::kNull;

bool KoDbObjectId::isValid() const { return m_stub && m_stub->object && !m_stub->object->isErased(); }
bool KoDbObjectId::isErased() const { return m_stub && m_stub->object && m_stub->object->isErased(); }
KoDbHandle KoDbObjectId::handle() const { return KoDbHandle(m_stub ? m_stub->handle : 0); }
KoDbDatabase* KoDbObjectId::database() const { return m_stub ? m_stub->database : nullptr; }
const KoRxClass* KoDbObjectId::objectClass() const { return m_stub && m_stub->object ? m_stub->object->isA() : nullptr; }

// ---- objects ------------------------------------------------------------

KORX_DEFINE_MEMBERS(KoDbObject, KoRxObject)

KoDbObject::KoDbObject() = default;
KoDbObject::~KoDbObject() { delete m_extra; }

KoDbObject::Extra& KoDbObject::extra()
{
    if (!m_extra) m_extra = new Extra;
    return *m_extra;
}

KoDbObjectId KoDbObject::objectId() const { return KoDbObjectId(m_stub); }
KoDbObjectId KoDbObject::ownerId() const { return KoDbObjectId(m_owner); }
KoDbDatabase* KoDbObject::database() const { return m_stub ? m_stub->database : nullptr; }

Kora::ErrorStatus KoDbObject::setOwnerId(KoDbObjectId owner)
{
    if (const auto es = assertWriteEnabled(); es != Kora::eOk) return es;
    m_owner = owner.stub();
    return Kora::eOk;
}

Kora::ErrorStatus KoDbObject::assertWriteEnabled() const { return isWriteEnabled() ? Kora::eOk : Kora::eNotOpenForWrite; }

Kora::ErrorStatus kodbOpenKoDbObject(KoDbObject*& object, KoDbObjectId id, KoDb::OpenMode mode, bool openErased)
{
    object = nullptr;
    KoDbStub* stub = id.stub();
    if (!stub) return Kora::eNullObjectId;
    KoDbObject* o = stub->object;
    if (!o) return Kora::eKeyNotFound;
    if (o->isErased() && !openErased) return Kora::eWasErased;
    if (o->isWriteEnabled()) return Kora::eWasOpenForWrite;
    if (mode == KoDb::kForWrite) {
        if (o->isReadEnabled()) return Kora::eWasOpenForRead;
        o->m_writer = true;
    } else {
        if (o->m_readers == UINT16_MAX) return Kora::eWasOpenForRead;
        ++o->m_readers;
    }
    countOpen(stub, 1);
    object = o;
    return Kora::eOk;
}

Kora::ErrorStatus KoDbObject::close()
{
    if (!m_stub) return Kora::eNotInDatabase;
    if (m_writer) m_writer = false;
    else if (m_readers > 0) --m_readers;
    else return Kora::eNotOpenForRead;
    countOpen(m_stub, -1);
    return Kora::eOk;
}

Kora::ErrorStatus KoDbObject::upgradeOpen()
{
    if (m_writer) return Kora::eWasOpenForWrite;
    if (m_readers == 0) return Kora::eNotOpenForRead;
    if (m_readers > 1) return Kora::eWasOpenForRead;
    m_readers = 0;
    m_writer = true;
    return Kora::eOk;
}

Kora::ErrorStatus KoDbObject::downgradeOpen()
{
    if (!m_writer) return Kora::eNotOpenForWrite;
    m_writer = false;
    m_readers = 1;
    return Kora::eOk;
}

Kora::ErrorStatus KoDbObject::erase(bool erasing)
{
    if (!m_stub) return Kora::eNotInDatabase;
    if (!m_writer) return Kora::eNotOpenForWrite;
    if (m_erased == erasing) return erasing ? Kora::eWasErased : Kora::eWasNotErased;
    if (const auto es = subErase(erasing); es != Kora::eOk) return es;
    m_erased = erasing;
    return Kora::eOk;
}

Kora::ErrorStatus KoDbObject::subErase(bool) { return Kora::eOk; }

Kora::ErrorStatus KoDbObject::addPersistentReactor(KoDbObjectId reactor)
{
    if (const auto es = assertWriteEnabled(); es != Kora::eOk) return es;
    if (reactor.isNull()) return Kora::eNullObjectId;
    auto& list = extra().reactors;
    if (std::find(list.begin(), list.end(), reactor.stub()) == list.end()) list.push_back(reactor.stub());
    return Kora::eOk;
}

Kora::ErrorStatus KoDbObject::removePersistentReactor(KoDbObjectId reactor)
{
    if (const auto es = assertWriteEnabled(); es != Kora::eOk) return es;
    if (!m_extra) return Kora::eKeyNotFound;
    auto& list = m_extra->reactors;
    const auto it = std::find(list.begin(), list.end(), reactor.stub());
    if (it == list.end()) return Kora::eKeyNotFound;
    list.erase(it);
    return Kora::eOk;
}

std::vector<void*> KoDbObject::reactors() const
{
    std::vector<void*> out;
    if (m_extra)
        for (KoDbStub* s : m_extra->reactors) out.push_back(encodeReactor(s));
    return out;
}

bool kodbIsPersistentReactor(const void* reactor) { return (reinterpret_cast<uintptr_t>(reactor) & 1u) != 0; }

KoDbObjectId kodbPersistentReactorObjectId(const void* reactor)
{
    if (!kodbIsPersistentReactor(reactor)) return {};
    return KoDbObjectId(reinterpret_cast<KoDbStub*>(reinterpret_cast<uintptr_t>(reactor) & ~uintptr_t(1)));
}

KoDbObjectId KoDbObject::extensionDictionary() const
{
    return KoDbObjectId(m_extra ? m_extra->extensionDictionary : nullptr);
}

Kora::ErrorStatus KoDbObject::setExtensionDictionary(KoDbObjectId dictionary)
{
    if (const auto es = assertWriteEnabled(); es != Kora::eOk) return es;
    extra().extensionDictionary = dictionary.stub();
    return Kora::eOk;
}

const KoDbDxfTags& KoDbObject::xData() const
{
    static const KoDbDxfTags none;
    return m_extra ? m_extra->xdata : none;
}

Kora::ErrorStatus KoDbObject::setXData(KoDbDxfTags tags)
{
    if (const auto es = assertWriteEnabled(); es != Kora::eOk) return es;
    if (!tags.empty() && tags.front().code != 1001) return Kora::eInvalidInput;
    for (const auto& t : tags)
        if (t.code < 1000) return Kora::eInvalidInput;
    if (!tags.empty() || m_extra) extra().xdata = std::move(tags);
    return Kora::eOk;
}

const KoDbDxfTags& KoDbObject::preservedTags() const
{
    static const KoDbDxfTags none;
    return m_extra ? m_extra->preserved : none;
}

void KoDbObject::setPreservedTags(KoDbDxfTags tags)
{
    if (!tags.empty() || m_extra) extra().preserved = std::move(tags);
}

int kodbOpenObjectCount() { return g_openObjects; }

// ---- value types ------------------------------------------------------------

void KoDbExtents::addPoint(const KoGePoint3d& p)
{
    m_min = {std::min(m_min.x, p.x), std::min(m_min.y, p.y), std::min(m_min.z, p.z)};
    m_max = {std::max(m_max.x, p.x), std::max(m_max.y, p.y), std::max(m_max.z, p.z)};
}

void KoDbExtents::addExt(const KoDbExtents& other)
{
    if (!other.isValid()) return;
    addPoint(other.m_min);
    addPoint(other.m_max);
}

Kora::ErrorStatus KoDbExtents::set(const KoGePoint3d& minPoint, const KoGePoint3d& maxPoint)
{
    if (minPoint.x > maxPoint.x || minPoint.y > maxPoint.y || minPoint.z > maxPoint.z) return Kora::eInvalidInput;
    m_min = minPoint;
    m_max = maxPoint;
    return Kora::eOk;
}

KoCmColor KoCmColor::fromIndex(int index)
{
    KoCmColor c;
    if (index == 0) {
        c.m_method = kByBlock;
        c.m_index = 0;
    } else if (index == 256 || index < 0 || index > 257) {
        c.m_method = kByLayer;
        c.m_index = 256;
    } else if (index == 257) {
        c.m_method = kForeground;
        c.m_index = 257;
    } else {
        c.m_method = kByACI;
        c.m_index = static_cast<int16_t>(index);
    }
    return c;
}

uint32_t kocmPaletteRgb(int index)
{
    static constexpr uint32_t kPalette[256] = {
        0x000000, 0xFF0000, 0xFFFF00, 0x00FF00, 0x00FFFF, 0x0000FF, 0xFF00FF, 0xFFFFFF,
        0x808080, 0xC0C0C0, 0xFF0000, 0xFF7F7F, 0xA50000, 0xA55252, 0x7F0000, 0x7F3F3F,
        0x4C0000, 0x4C2626, 0x260000, 0x261313, 0xFF3F00, 0xFF9F7F, 0xA52900, 0xA56752,
        0x7F1F00, 0x7F4F3F, 0x4C1300, 0x4C2F26, 0x260900, 0x261713, 0xFF7F00, 0xFFBF7F,
        0xA55200, 0xA57C52, 0x7F3F00, 0x7F5F3F, 0x4C2600, 0x4C3926, 0x261300, 0x261C13,
        0xFFBF00, 0xFFDF7F, 0xA57C00, 0xA59152, 0x7F5F00, 0x7F6F3F, 0x4C3900, 0x4C4226,
        0x261C00, 0x262113, 0xFFFF00, 0xFFFF7F, 0xA5A500, 0xA5A552, 0x7F7F00, 0x7F7F3F,
        0x4C4C00, 0x4C4C26, 0x262600, 0x262613, 0xBFFF00, 0xDFFF7F, 0x7CA500, 0x91A552,
        0x5F7F00, 0x6F7F3F, 0x394C00, 0x424C26, 0x1C2600, 0x212613, 0x7FFF00, 0xBFFF7F,
        0x52A500, 0x7CA552, 0x3F7F00, 0x5F7F3F, 0x264C00, 0x394C26, 0x132600, 0x1C2613,
        0x3FFF00, 0x9FFF7F, 0x29A500, 0x67A552, 0x1F7F00, 0x4F7F3F, 0x134C00, 0x2F4C26,
        0x092600, 0x172613, 0x00FF00, 0x7FFF7F, 0x00A500, 0x52A552, 0x007F00, 0x3F7F3F,
        0x004C00, 0x264C26, 0x002600, 0x132613, 0x00FF3F, 0x7FFF9F, 0x00A529, 0x52A567,
        0x007F1F, 0x3F7F4F, 0x004C13, 0x264C2F, 0x002609, 0x135817, 0x00FF7F, 0x7FFFBF,
        0x00A552, 0x52A57C, 0x007F3F, 0x3F7F5F, 0x004C26, 0x264C39, 0x002613, 0x13581C,
        0x00FFBF, 0x7FFFDF, 0x00A57C, 0x52A591, 0x007F5F, 0x3F7F6F, 0x004C39, 0x264C42,
        0x00261C, 0x135858, 0x00FFFF, 0x7FFFFF, 0x00A5A5, 0x52A5A5, 0x007F7F, 0x3F7F7F,
        0x004C4C, 0x264C4C, 0x002626, 0x135858, 0x00BFFF, 0x7FDFFF, 0x007CA5, 0x5291A5,
        0x005F7F, 0x3F6F7F, 0x00394C, 0x26427E, 0x001C26, 0x135858, 0x007FFF, 0x7FBFFF,
        0x0052A5, 0x527CA5, 0x003F7F, 0x3F5F7F, 0x00264C, 0x26397E, 0x001326, 0x131C58,
        0x003FFF, 0x7F9FFF, 0x0029A5, 0x5267A5, 0x001F7F, 0x3F4F7F, 0x00134C, 0x262F7E,
        0x000926, 0x131758, 0x0000FF, 0x7F7FFF, 0x0000A5, 0x5252A5, 0x00007F, 0x3F3F7F,
        0x00004C, 0x26267E, 0x000026, 0x131358, 0x3F00FF, 0x9F7FFF, 0x2900A5, 0x6752A5,
        0x1F007F, 0x4F3F7F, 0x13004C, 0x2F267E, 0x090026, 0x171358, 0x7F00FF, 0xBF7FFF,
        0x5200A5, 0x7C52A5, 0x3F007F, 0x5F3F7F, 0x26004C, 0x39267E, 0x130026, 0x1C1358,
        0xBF00FF, 0xDF7FFF, 0x7C00A5, 0x9152A5, 0x5F007F, 0x6F3F7F, 0x39004C, 0x42264C,
        0x1C0026, 0x581358, 0xFF00FF, 0xFF7FFF, 0xA500A5, 0xA552A5, 0x7F007F, 0x7F3F7F,
        0x4C004C, 0x4C264C, 0x260026, 0x581358, 0xFF00BF, 0xFF7FDF, 0xA5007C, 0xA55291,
        0x7F005F, 0x7F3F6F, 0x4C0039, 0x4C2642, 0x26001C, 0x581358, 0xFF007F, 0xFF7FBF,
        0xA50052, 0xA5527C, 0x7F003F, 0x7F3F5F, 0x4C0026, 0x4C2639, 0x260013, 0x58131C,
        0xFF003F, 0xFF7F9F, 0xA50029, 0xA55267, 0x7F001F, 0x7F3F4F, 0x4C0013, 0x4C262F,
        0x260009, 0x581317, 0x000000, 0x656565, 0x666666, 0x999999, 0xCCCCCC, 0xFFFFFF,
    };
    return index >= 1 && index <= 255 ? kPalette[index] : 0;
}

KoCmColor KoCmColor::fromRGB(uint8_t red, uint8_t green, uint8_t blue)
{
    KoCmColor c;
    c.m_method = kByColor;
    c.m_index = 7;
    c.m_rgb = uint32_t(red) << 16 | uint32_t(green) << 8 | blue;
    return c;
}

int KoCmColor::colorIndex() const
{
    switch (m_method) {
    case kByLayer: return 256;
    case kByBlock: return 0;
    default: return m_index;
    }
}

// ---- database slots ------------------------------------------------------

KoDbStub* KoDbDatabase::Impl::newStub(uint64_t handle)
{
    if (handle == 0) handle = handseed++;
    else if (handle >= handseed) handseed = handle + 1;
    KoDbStub& stub = stubs.emplace_back();
    stub.database = self;
    stub.handle = handle;
    byHandle.insert(handle, &stub);
    return &stub;
}

KoDbStub* KoDbDatabase::Impl::stubFor(uint64_t handle)
{
    KoDbStub* stub = byHandle.find(handle);
    return stub ? stub : newStub(handle);
}

KoDbDatabase::Impl::~Impl()
{
    // Objects still open belong to nobody any more; keep the global count
    // honest for the hosts that check it.
    for (KoDbStub& stub : stubs) {
        if (!stub.object) continue;
        g_openObjects -= KoDbAccess::openCount(stub.object);
        delete stub.object;
    }
}

void KoDbAccess::addUnnumbered(KoDbDatabase& db, KoDbObject* o, KoDbStub* owner)
{
    KoDbStub& stub = db.m_impl->stubs.emplace_back();
    stub.database = &db;
    stub.object = o;
    o->m_stub = &stub;
    o->m_owner = owner;
}

void KoDbAccess::numberStub(KoDbDatabase& db, KoDbStub* stub)
{
    KoDbDatabase::Impl& impl = *db.m_impl;
    stub->handle = impl.handseed++;
    impl.byHandle.insert(stub->handle, stub);
}

Kora::ErrorStatus KoDbAccess::add(KoDbDatabase& db, KoDbObject* o, KoDbStub* owner, bool openForWrite, uint64_t handle)
{
    if (!o) return Kora::eNullObjectPointer;
    if (o->m_stub) return Kora::eAlreadyInDb;
    KoDbDatabase::Impl& impl = *db.m_impl;
    KoDbStub* stub = handle ? impl.stubFor(handle) : impl.newStub(0);
    if (stub->object) return Kora::eDuplicateKey;
    stub->object = o;
    o->m_stub = stub;
    o->m_owner = owner;
    if (openForWrite) {
        o->m_writer = true;
        countOpen(stub, 1);
    }
    return Kora::eOk;
}
