// Initialisation-file speed: writing N keys into one file inside one batch
// and reading them back one key at a time should both grow linearly with N.
// Prints the times for N and 2N and their ratios (about 2 when linear, 4
// when quadratic).

#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <string>

#include "kora/kostring.h"
#include "kora/profile.h"

namespace fs = std::filesystem;

namespace {

struct Timings {
    double writeMs = 0;
    double readMs = 0;
};

double millisecondsSince(std::chrono::steady_clock::time_point start)
{
    return std::chrono::duration<double, std::milli>(std::chrono::steady_clock::now() - start).count();
}

Timings run(const fs::path& folder, int keys)
{
    const fs::path path = folder / ("bench" + std::to_string(keys) + ".ini");
    fs::remove(path);
    const KoString file = KoString::fromUtf8(path.string());
    Timings t;

    auto start = std::chrono::steady_clock::now();
    {
        KoProfileBatch batch(file);
        for (int i = 0; i < keys; ++i) {
            koWritePrivateProfileString(L"MappingSetup1", KoString::format(L"DGNLevel%d", i),
                                        KoString::format(L"Level name %d", i), file);
        }
    }
    t.writeMs = millisecondsSince(start);

    start = std::chrono::steady_clock::now();
    wchar_t buffer[2046];
    unsigned found = 0;
    for (int i = 0; i < keys; ++i) {
        found += koGetPrivateProfileString(L"MappingSetup1", KoString::format(L"DGNLevel%d", i), L"", buffer, 2046, file) > 0;
    }
    t.readMs = millisecondsSince(start);
    if (found != static_cast<unsigned>(keys)) std::fprintf(stderr, "only %u of %d keys read back\n", found, keys);
    return t;
}

// The best of a few runs, so that one slow fsync does not decide the ratio.
Timings best(const fs::path& folder, int keys)
{
    Timings result = run(folder, keys);
    for (int i = 0; i < 4; ++i) {
        const Timings t = run(folder, keys);
        result.writeMs = std::min(result.writeMs, t.writeMs);
        result.readMs = std::min(result.readMs, t.readMs);
    }
    return result;
}

}  // namespace

int main()
{
    char folderTemplate[] = "/tmp/kora-bench-profile-XXXXXX";
    const char* made = mkdtemp(folderTemplate);
    if (!made) {
        std::perror("mkdtemp");
        return 1;
    }
    const fs::path folder(made);
    const Timings small = best(folder, 20000);
    const Timings large = best(folder, 40000);
    fs::remove_all(folder);

    std::printf("write 20000 keys in one batch: %8.2f ms\n", small.writeMs);
    std::printf("write 40000 keys in one batch: %8.2f ms   ratio %.2f\n", large.writeMs, large.writeMs / small.writeMs);
    std::printf("read  20000 keys one by one:   %8.2f ms\n", small.readMs);
    std::printf("read  40000 keys one by one:   %8.2f ms   ratio %.2f\n", large.readMs, large.readMs / small.readMs);
    return 0;
}
