#include "kora/dgn/hostservices.h"

#include <unistd.h>

#include <filesystem>

#include "kora/sysvars.h"
#include "kora/userpaths.h"

namespace fs = std::filesystem;

namespace {

const bool g_registered = [] {
    // Any short value is stored: readers take 0 as "new drawing", 1 as
    // "current drawing" and every other value as its second way.
    koraRegisterSysVar({L"DGNIMPORTMODE", KORTSHORT,
                        L"Where DGNIMPORT puts a file: 0 a new drawing, 1 the current drawing, other values the "
                        L"current drawing in the second way"},
                       L"1", 0, -1);
    koraRegisterSysVar({L"_KX_DGNEXPORTTYPE", KORTSHORT, L"Default DGN version of -DGNEXPORT: 0 V8, 1 V7"}, L"1", 0, 1);
    return true;
}();

}  // namespace

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

KoString koraInstalledSeedFolder()
{
    std::error_code ec;
    const fs::path exe = fs::read_symlink("/proc/self/exe", ec);
    return KoString::fromUtf8((exe.parent_path().parent_path() / "share" / "kora" / "seeds").string());
}
