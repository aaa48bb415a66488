// Initialisation files: "[section]" lines, "key=value" lines, comment and
// blank lines, read and updated one key at a time with the semantics of the
// classic private-profile functions.
//
// Files are read through a parsed cache that is checked against the file on
// every call outside a batch (see KoProfileBatch); the 16 files used last
// stay parsed, an older one is read again at its next use. Every change
// replaces the file atomically (temporary file in the same folder, then
// rename) under an exclusive lock, so two processes updating different keys
// of one file never lose either update. File names are wide paths with "/"
// as separator. A file of 4 GiB or more is not read, and so never replaced.
#pragma once

#include "kora/diagnostics.h"
#include "kora/export.h"

// Reads from an initialisation file.
// - section == nullptr: all section names in file order, each zero-terminated,
//   the list ended by one more zero.
// - key == nullptr: all key names of the section in the same layout.
// - otherwise the key's value, trimmed of surrounding blanks and of one pair
//   of enclosing quotes; defaultValue (nullptr = "") when the key is missing.
// Answers the number of characters copied, not counting the terminating
// zero. A value that does not fit is cut to size-1 characters and answers
// size-1; a list that does not fit ends with two zeros and answers size-2.
KORA_API unsigned koGetPrivateProfileString(const wchar_t* section, const wchar_t* key, const wchar_t* defaultValue,
                                            wchar_t* buffer, unsigned size, const wchar_t* fileName);

// The leading decimal integer of a value (blanks skipped, optional sign);
// 0 when the value is not a number, defaultValue when the key is missing
// or its value empty.
KORA_API unsigned koGetPrivateProfileInt(const wchar_t* section, const wchar_t* key, int defaultValue,
                                         const wchar_t* fileName);

// key == nullptr deletes the whole section; value == nullptr deletes the
// key. Otherwise replaces the value of the first matching key in place, or
// appends the key after the last key of its section, or appends a new
// section at the end of the file (creating the file when missing). Every
// other line stays byte for byte as it was. Answers false when the file
// cannot be written (a missing folder, an unreadable file) or a name or
// value cannot be stored on one line.
KORA_API bool koWritePrivateProfileString(const wchar_t* section, const wchar_t* key, const wchar_t* value,
                                          const wchar_t* fileName);

// Replaces the whole content of a section with the entries of `content`
// ("key=value\0key=value\0\0"); nullptr or an empty list removes the
// section whole.
KORA_API bool koWritePrivateProfileSection(const wchar_t* section, const wchar_t* content, const wchar_t* fileName);

// What reading an initialisation file met, by the code a caller decides on.
enum class KoProfileCode : unsigned char {
    kCannotRead,         // error: the file exists but could not be read
    kNotAFile,           // error: a folder, device or pipe
    kTooLarge,           // error: 4 GiB or more
    kMeaninglessLine,    // warning: neither a section, a key nor a comment; kept, never read
    kKeyOutsideSection,  // warning: a key above the first section; kept, never read
    kDamagedText,        // warning: a UTF-16 file that ends in half a character
};

// The problems met when the file was last read from disk (read again now
// if it changed), each with its line where it has one. An error means
// the file is neither read nor ever replaced by the functions above.
KORA_API Kora::Diagnostics<KoProfileCode> koProfileDiagnostics(const wchar_t* fileName);

// A batch of calls on one file. While the (outermost) batch lives, writes
// to the file change only the parsed copy, and the file is replaced once
// when the batch ends. The file's lock is taken at the first write and held
// until then, so the batch is one atomic update for other processes too.
// Reads inside the batch see its writes, and they check the file only at
// the batch's first call: later reads answer from that state without
// looking at the disk, so a batch of reads sees one state of the file and
// costs one check however many keys it reads. A batch that only reads takes
// no lock; its first write checks the file again under the lock, so writes
// apply to the file as it then is.
class KORA_API KoProfileBatch {
public:
    explicit KoProfileBatch(const wchar_t* fileName);
    ~KoProfileBatch();
    KoProfileBatch(const KoProfileBatch&) = delete;
    KoProfileBatch& operator=(const KoProfileBatch&) = delete;

    // Ends the batch now (as the destructor would) and answers whether its
    // writes reached the file: false when the file could not be replaced,
    // with errno telling why; the writes are then dropped. An inner batch
    // only answers true, since the outermost one does the writing.
    bool end();

private:
    struct KoProfileFile* m_file;  // the cached file the batch belongs to
};
