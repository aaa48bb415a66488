// Raw access to the setup store file for the mapping tests: every test
// starts from a file it wrote byte for byte (or from none) and checks the
// bytes the module left.
#pragma once

#include <filesystem>
#include <fstream>
#include <sstream>
#include <string>

#include "kora/profile.h"
#include "mapping/DgnSetupFile.h"

inline std::filesystem::path storeFilePath() { return Kora::DgnCommands::dgnSetupFilePath().toUtf8(); }

inline void writeStoreFile(const std::string& bytes)
{
    std::ofstream(storeFilePath(), std::ios::binary | std::ios::trunc) << bytes;
}

inline std::string readStoreFile()
{
    std::ifstream in(storeFilePath(), std::ios::binary);
    std::ostringstream bytes;
    bytes << in.rdbuf();
    return bytes.str();
}

inline void removeStoreFile() { std::filesystem::remove(storeFilePath()); }

// A value as the platform reads it, bypassing the module.
inline KoString storedValue(const wchar_t* section, const wchar_t* key)
{
    wchar_t buffer[4096] = {};
    koGetPrivateProfileString(section, key, L"<missing>", buffer, 4096, Kora::DgnCommands::dgnSetupFilePath());
    return buffer;
}
