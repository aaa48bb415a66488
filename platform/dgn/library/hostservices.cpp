#include "kora/dgn/hostservices.h"

#include <filesystem>
#include <fstream>
#include <iterator>
#include <string>

#include "kora/atomicfile.h"
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
        const fs::path seed = target / entry.path().filename();
        // A seed the user has (theirs or one copied before) is never replaced.
        if (entry.path().extension() != ".dgn" || fs::exists(fs::symlink_status(seed, ec))) continue;
        std::ifstream in(entry.path(), std::ios::binary);
        const std::string bytes{std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>()};
        if (!in.eof() && in.fail()) continue;
        // Written whole or not at all; checked again just before the rename
        // in case the user saved a seed of that name meanwhile.
        auto writer = Kora::AtomicFileWriter::create(seed);
        if (!writer || !writer->write(bytes) || fs::exists(fs::symlink_status(seed, ec))) continue;
        if (writer->commit()) ++copied;
    }
    return copied;
}

KoString koraInstalledSeedFolder()
{
    std::error_code ec;
    const fs::path exe = fs::read_symlink("/proc/self/exe", ec);
    return KoString::fromUtf8((exe.parent_path().parent_path() / "share" / "kora" / "seeds").string());
}
