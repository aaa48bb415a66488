// What the configuration store needs of initialisation files beyond the
// classic functions: values as written (quotes kept, so a quoted "42" stays
// text), section names without a buffer limit, and the test of what can be
// stored.
#pragma once

#include <optional>
#include <string>
#include <vector>

namespace Kora {

// The value of a key trimmed of surrounding blanks but not of quotes;
// nullopt when the key is missing.
std::optional<std::wstring> profileRawValue(const wchar_t* section, const wchar_t* key, const wchar_t* fileName);

// All section names of a file, in file order.
std::vector<std::wstring> profileSectionNames(const wchar_t* fileName);

// Whether a key and value can be written so that they read back as written:
// one line each, and a key without "=" that does not look like a comment
// or a section header.
bool profileCanStore(const wchar_t* key, const wchar_t* value);

}  // namespace Kora
