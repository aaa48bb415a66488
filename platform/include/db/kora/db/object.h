// Database objects, object ids and handles, and the open/close protocol.
//
// Every object that lives in a database is reached through its id and
// opened for read or for write; the caller closes it again. An object may be
// open for read several times at once, or open for write once. Objects
// created with `new` belong to the caller until a container (a block table
// record, a symbol table, a dictionary or the database) takes them; they are
// then open for write and the caller closes them.
#pragma once

#include <cstdint>
#include <functional>
#include <string>
#include <vector>

#include "kora/export.h"
#include "kora/kostring.h"
#include "kora/rxobject.h"
#include "kora/status.h"

class KoDbDatabase;
class KoDbObject;
struct KoDbStub;

namespace KoDb {

enum OpenMode { kForRead = 0, kForWrite = 1, kForNotify = 2 };

// Line weights in hundredths of a millimetre, plus the three logical ones.
enum LineWeight : int {
    kLnWt000 = 0, kLnWt005 = 5, kLnWt009 = 9, kLnWt013 = 13, kLnWt015 = 15, kLnWt018 = 18,
    kLnWt020 = 20, kLnWt025 = 25, kLnWt030 = 30, kLnWt035 = 35, kLnWt040 = 40, kLnWt050 = 50,
    kLnWt053 = 53, kLnWt060 = 60, kLnWt070 = 70, kLnWt080 = 80, kLnWt090 = 90, kLnWt100 = 100,
    kLnWt106 = 106, kLnWt120 = 120, kLnWt140 = 140, kLnWt158 = 158, kLnWt200 = 200, kLnWt211 = 211,
    kLnWtByLayer = -1, kLnWtByBlock = -2, kLnWtByLwDefault = -3,
};

enum XrefStatus { kXrfNotAnXref = 0, kXrfResolved, kXrfUnloaded, kXrfUnreferenced, kXrfFileNotFound, kXrfUnresolved };

}  // namespace KoDb

// A database handle: the object's permanent number within its drawing,
// written in files as upper-case hexadecimal.
class KORA_API KoDbHandle {
public:
    constexpr KoDbHandle() = default;
    constexpr explicit KoDbHandle(uint64_t value) : m_value(value) {}
    // Parses hexadecimal text; anything else gives the null handle.
    static KoDbHandle fromText(const wchar_t* text);

    constexpr bool isNull() const { return m_value == 0; }
    constexpr uint64_t value() const { return m_value; }
    KoString ascii() const;

    friend constexpr auto operator<=>(const KoDbHandle&, const KoDbHandle&) = default;

private:
    uint64_t m_value = 0;
};

// Identifies one object of one database for the life of that database.
// Ids compare and hash by identity; an id stays valid (and answers
// isErased) after its object was erased.
class KORA_API KoDbObjectId {
public:
    constexpr KoDbObjectId() = default;
    static const KoDbObjectId kNull;

    bool isNull() const { return m_stub == nullptr; }
    // Not null and its object exists and is not erased.
    bool isValid() const;
    bool isErased() const;
    KoDbHandle handle() const;
    KoDbDatabase* database() const;
    // The class of the object, or null for a null id.
    const KoRxClass* objectClass() const;

    friend bool operator==(const KoDbObjectId& a, const KoDbObjectId& b) { return a.m_stub == b.m_stub; }
    friend bool operator<(const KoDbObjectId& a, const KoDbObjectId& b) { return std::less<const KoDbStub*>()(a.m_stub, b.m_stub); }

    // Internal: ids are made by the database.
    explicit KoDbObjectId(KoDbStub* stub) : m_stub(stub) {}
    KoDbStub* stub() const { return m_stub; }

private:
    KoDbStub* m_stub = nullptr;
};

template <>
struct std::hash<KoDbObjectId> {
    size_t operator()(const KoDbObjectId& id) const noexcept { return std::hash<const void*>{}(id.stub()); }
};

using KoDbObjectIdArray = std::vector<KoDbObjectId>;

// One DXF group: its code and its value as UTF-8 text. Data the database
// does not model (extended data, tags of unknown classes) is kept as tags
// and written back unchanged.
struct KoDbDxfTag {
    int code = 0;
    std::string value;
    friend bool operator==(const KoDbDxfTag&, const KoDbDxfTag&) = default;
};
using KoDbDxfTags = std::vector<KoDbDxfTag>;

KORA_API Kora::ErrorStatus kodbOpenKoDbObject(KoDbObject*& object, KoDbObjectId id, KoDb::OpenMode mode,
                                              bool openErased);

class KORA_API KoDbObject : public KoRxObject {
public:
    KORX_DECLARE_MEMBERS(KoDbObject)
    KoDbObject();
    ~KoDbObject() override;
    KoDbObject(const KoDbObject&) = delete;
    KoDbObject& operator=(const KoDbObject&) = delete;

    KoDbObjectId objectId() const;
    KoDbObjectId ownerId() const;
    Kora::ErrorStatus setOwnerId(KoDbObjectId owner);
    KoDbHandle handle() const { return objectId().handle(); }
    KoDbDatabase* database() const;

    bool isErased() const { return m_erased; }
    bool isReadEnabled() const { return m_readers > 0 || m_writer || isNewObject(); }
    bool isWriteEnabled() const { return m_writer || isNewObject(); }
    // Not (yet) in a database: the caller owns it and may change it freely.
    bool isNewObject() const { return m_stub == nullptr; }
    // eOk when the object may be changed, else eNotOpenForWrite.
    Kora::ErrorStatus assertWriteEnabled() const;

    Kora::ErrorStatus close();
    // Turns the caller's read access into write access; only possible when
    // no one else has the object open.
    Kora::ErrorStatus upgradeOpen();
    Kora::ErrorStatus downgradeOpen();
    // Marks the object erased (or back). It stays in memory, keeps its id
    // and is skipped by iterators and by files written afterwards.
    Kora::ErrorStatus erase(bool erasing = true);

    // Persistent reactors: ids of objects to be told about this one (a
    // definition knows its references this way).
    Kora::ErrorStatus addPersistentReactor(KoDbObjectId reactor);
    Kora::ErrorStatus removePersistentReactor(KoDbObjectId reactor);
    // Every reactor as an opaque pointer; kodbIsPersistentReactor and
    // kodbPersistentReactorObjectId decode them.
    std::vector<void*> reactors() const;

    KoDbObjectId extensionDictionary() const;
    Kora::ErrorStatus setExtensionDictionary(KoDbObjectId dictionary);

    // Extended data (groups 1001 and up) of every application, as read.
    const KoDbDxfTags& xData() const;
    Kora::ErrorStatus setXData(KoDbDxfTags tags);
    // Tags of this object that no property models: application groups and
    // unknown codes, each after the subclass marker (code 100) it came in.
    // They are written back where they were.
    const KoDbDxfTags& preservedTags() const;
    void setPreservedTags(KoDbDxfTags tags);

protected:
    // Called when the object is erased or unerased; may refuse.
    virtual Kora::ErrorStatus subErase(bool erasing);

public:
    // Reactors, extension dictionary and kept tags (opaque outside the library).
    struct Extra;

private:
    friend struct KoDbAccess;
    friend Kora::ErrorStatus kodbOpenKoDbObject(KoDbObject*&, KoDbObjectId, KoDb::OpenMode, bool);
    Extra& extra();

    KoDbStub* m_stub = nullptr;
    KoDbStub* m_owner = nullptr;
    Extra* m_extra = nullptr;
    uint16_t m_readers = 0;
    bool m_writer = false;
    bool m_erased = false;
};

KORA_API bool kodbIsPersistentReactor(const void* reactor);
KORA_API KoDbObjectId kodbPersistentReactorObjectId(const void* reactor);

// Opens the object of `id`. Errors: eNullObjectId, eKeyNotFound (no such
// object), eWasErased (erased and openErased false), eWasOpenForWrite (open
// for write already), eWasOpenForRead (asked for write while open for
// read), eNotThatKindOfClass (the object is not a T; it is left closed).
// kodbOpenKoDbObject (declared above) is the untyped form.

template <class T>
Kora::ErrorStatus kodbOpenObject(T*& object, KoDbObjectId id, KoDb::OpenMode mode, bool openErased = false)
{
    object = nullptr;
    KoDbObject* opened = nullptr;
    const Kora::ErrorStatus es = kodbOpenKoDbObject(opened, id, mode, openErased);
    if (es != Kora::eOk) return es;
    object = T::cast(opened);
    if (!object) {
        opened->close();
        return Kora::eNotThatKindOfClass;
    }
    return Kora::eOk;
}

// Objects currently open in every database of the process.
KORA_API int kodbOpenObjectCount();

// Opens an object for the length of a scope and closes it at the end. A
// pointer made by create() owns a new object until a container takes it;
// one still outside a database at the end is deleted.
template <class T>
class KoDbObjectPointer {
public:
    KoDbObjectPointer() = default;
    explicit KoDbObjectPointer(KoDbObjectId id, KoDb::OpenMode mode = KoDb::kForRead, bool openErased = false)
    {
        open(id, mode, openErased);
    }
    ~KoDbObjectPointer() { close(); }
    KoDbObjectPointer(const KoDbObjectPointer&) = delete;
    KoDbObjectPointer& operator=(const KoDbObjectPointer&) = delete;

    Kora::ErrorStatus open(KoDbObjectId id, KoDb::OpenMode mode = KoDb::kForRead, bool openErased = false)
    {
        close();
        m_status = kodbOpenObject(m_object, id, mode, openErased);
        return m_status;
    }
    Kora::ErrorStatus create()
    {
        close();
        m_object = new T;
        m_status = Kora::eOk;
        return m_status;
    }
    Kora::ErrorStatus close()
    {
        Kora::ErrorStatus es = Kora::eOk;
        if (m_object) {
            if (m_object->isNewObject()) delete m_object;
            else es = m_object->close();
        }
        m_object = nullptr;
        m_status = Kora::eNullObjectPointer;
        return es;
    }
    // Gives up the object without closing it.
    T* release()
    {
        T* object = m_object;
        m_object = nullptr;
        m_status = Kora::eNullObjectPointer;
        return object;
    }

    Kora::ErrorStatus openStatus() const { return m_status; }
    T* object() const { return m_object; }
    T* operator->() const { return m_object; }
    explicit operator bool() const { return m_object != nullptr; }

private:
    T* m_object = nullptr;
    Kora::ErrorStatus m_status = Kora::eNullObjectPointer;
};
