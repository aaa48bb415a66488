// The per-user configuration store: typed values (integers and texts) kept
// under key paths such as L"UserInterfaceSettings\\DgnExportFileDlg\\InitialDirectory"
// (folders separated by backslashes, the last part is the value's name) in
// numbered branches. Everything lives in "config.ini" in the per-user
// configuration folder (kora/userpaths.h), one section per branch and
// folder, and every change replaces that file atomically.
#pragma once

#include "kora/export.h"
#include "kora/kostring.h"
#include "kora/status.h"

class KORA_API KoraVariant {
public:
    enum Type : int { kEmpty = 0, kInteger = 1, kString = 5 };

    KoraVariant() = default;
    explicit KoraVariant(int value) : m_type(kInteger), m_int(value) {}
    explicit KoraVariant(const KoString& value) : m_type(kString), m_string(value) {}

    Type type() const { return m_type; }
    // 0 unless the variant holds an integer.
    int intValue() const { return m_int; }
    // Empty unless the variant holds a text.
    KoString stringValue() const { return m_string; }

private:
    Type m_type = kEmpty;
    int m_int = 0;
    KoString m_string;
};

class KORA_API KoraConfig {
public:
    // eKeyNotFound when the value is absent; eNullPtr for a null path.
    Kora::ErrorStatus getValue(int branch, const wchar_t* path, KoraVariant& value) const;
    // eInvalidInput for an empty variant, a path without a value name, or
    // text that cannot be stored (line breaks); eFileWriteError when the
    // store cannot be written.
    Kora::ErrorStatus setValue(int branch, const wchar_t* path, const KoraVariant& value);
    // A path naming a value removes the value; a folder path (ending with a
    // backslash, or naming a folder) removes the folder and everything
    // below it. eKeyNotFound when there is nothing of that name.
    Kora::ErrorStatus removeItem(int branch, const wchar_t* path);
};

// The process's configuration store.
KORA_API KoraConfig* koraConfig();
