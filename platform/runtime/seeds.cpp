#include <unistd.h>

#include <filesystem>

#include "kora/host.h"
#include "kora/userpaths.h"

namespace fs = std::filesystem;

int koraInstallMissingSeeds(const KoString& sourceFolder)
{
    wchar_t buffer[1024] = {};
    if (!GetUserLocalApplicationDataTemplatePath(buffer, 1024)) return 0;
    const fs::path target(KoString(buffer).toUtf8());
    std::error_code ec;
    int copied = 0;
    for (const auto& entry : fs::directory_iterator(sourceFolder.toUtf8(), ec)) {
        if (entry.path().extension() != ".dgn" || fs::exists(target / entry.path().filename(), ec)) continue;
        // Copied under a temporary name and renamed, so a seed is either
        // whole or absent.
        const fs::path temporary = target / (entry.path().filename().string() + ".part" + std::to_string(getpid()));
        if (fs::copy_file(entry.path(), temporary, fs::copy_options::overwrite_existing, ec))
            fs::rename(temporary, target / entry.path().filename(), ec);
        if (ec) fs::remove(temporary, ec);
        else ++copied;
    }
    return copied;
}
