// Runtime classes: every object the host hands across the module boundary
// derives from KoRxObject and carries a class descriptor, so a module can
// check what it was given (isA()->isDerivedFrom(...)) without RTTI across
// shared-library boundaries.
#pragma once

#include <map>
#include <memory>
#include <string>

#include "kora/export.h"
#include "kora/kostring.h"
#include "kora/status.h"

class KORA_API KoRxClass {
public:
    KoRxClass(const wchar_t* name, const KoRxClass* parent) : m_name(name), m_parent(parent) {}
    const wchar_t* name() const { return m_name; }
    const KoRxClass* myParent() const { return m_parent; }
    // True when this class is `other` or derives from it.
    bool isDerivedFrom(const KoRxClass* other) const;

private:
    const wchar_t* m_name;
    const KoRxClass* m_parent;
};

// Declares the class-descriptor members of a runtime class.
#define KORX_DECLARE_MEMBERS(CLASS)                                   \
    static KoRxClass* desc();                                         \
    KoRxClass* isA() const override;                                  \
    static CLASS* cast(const KoRxObject* object)                      \
    {                                                                 \
        return object && object->isKindOf(CLASS::desc())              \
                   ? static_cast<CLASS*>(const_cast<KoRxObject*>(object)) \
                   : nullptr;                                         \
    }

// Defines them, naming the parent class.
#define KORX_DEFINE_MEMBERS(CLASS, PARENT)                            \
    KoRxClass* CLASS::desc()                                          \
    {                                                                 \
        static KoRxClass descriptor(L## #CLASS, PARENT::desc());      \
        return &descriptor;                                           \
    }                                                                 \
    KoRxClass* CLASS::isA() const { return CLASS::desc(); }

class KORA_API KoRxObject {
public:
    virtual ~KoRxObject();
    static KoRxClass* desc();
    virtual KoRxClass* isA() const;
    virtual KoRxObject* clone() const;
    virtual Kora::ErrorStatus copyFrom(const KoRxObject* other);
    virtual bool isEqualTo(const KoRxObject* other) const;
    virtual int comparedTo(const KoRxObject* other) const;
    virtual KoRxObject* subQueryX(const KoRxClass* protocolClass) const;

    bool isKindOf(const KoRxClass* cls) const { return isA()->isDerivedFrom(cls); }
};

// A dictionary of runtime objects by key; the system registry is one.
class KORA_API KoRxDictionary : public KoRxObject {
public:
    KORX_DECLARE_MEMBERS(KoRxDictionary)
    KoRxDictionary();
    ~KoRxDictionary() override;
    // The object under `key`, or null.
    KoRxObject* at(const wchar_t* key) const;
    // Stores `object` (taking ownership) and answers the one it replaced,
    // which the caller then owns.
    KoRxObject* atPut(const wchar_t* key, KoRxObject* object);
    // Removes the entry and answers its object, which the caller then owns.
    KoRxObject* remove(const wchar_t* key);

private:
    std::map<std::wstring, std::unique_ptr<KoRxObject>> m_entries;
};

// The host's system registry: "DynamicLinker" and
// "KORA_REGISTERED_COMMANDS" are always present while modules are loaded.
KORA_API KoRxDictionary* korxSysRegistry();

#define KORX_DYNAMIC_LINKER L"DynamicLinker"
#define KORX_COMMAND_DOCK L"KORA_REGISTERED_COMMANDS"
