// Initialisation-file speed: writing N keys into one file inside one batch,
// reading them back one key at a time (outside a batch, where every read
// checks the file, and inside one, where only the first does), and reading
// them after the file changed on disk, which parses it again. Each should
// grow linearly with N. Prints the times for N and 2N and their ratios
// (about 2 when linear, 4 when quadratic). Key names are made before the
// clock starts, so the figures are the functions' own.

#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <string>
#include <vector>

#include "kora/kostring.h"
#include "kora/profile.h"

namespace fs = std::filesystem;

namespace {

struct Timings {
    double writeMs = 0;
    double readMs = 0;
    double batchReadMs = 0;
    double parseReadMs = 0;
};

double millisecondsSince(std::chrono::steady_clock::time_point start)
{
    return std::chrono::duration<double, std::milli>(std::chrono::steady_clock::now() - start).count();
}

// Reads every key once; complains when one is missing.
void readAll(const std::vector<KoString>& keys, const KoString& file)
{
    wchar_t buffer[2046];
    size_t found = 0;
    for (const KoString& key : keys)
        found += koGetPrivateProfileString(L"MappingSetup1", key, L"", buffer, 2046, file) > 0;
    if (found != keys.size()) std::fprintf(stderr, "only %zu of %zu keys read back\n", found, keys.size());
}

Timings run(const fs::path& folder, int count)
{
    const fs::path path = folder / ("bench" + std::to_string(count) + ".ini");
    fs::remove(path);
    const KoString file = KoString::fromUtf8(path.string());
    std::vector<KoString> keys, values;
    for (int i = 0; i < count; ++i) {
        keys.push_back(KoString::format(L"DGNLevel%d", i));
        values.push_back(KoString::format(L"Level name %d", i));
    }
    Timings t;

    auto start = std::chrono::steady_clock::now();
    {
        KoProfileBatch batch(file);
        for (int i = 0; i < count; ++i) koWritePrivateProfileString(L"MappingSetup1", keys[i], values[i], file);
    }
    t.writeMs = millisecondsSince(start);

    start = std::chrono::steady_clock::now();
    readAll(keys, file);
    t.readMs = millisecondsSince(start);

    start = std::chrono::steady_clock::now();
    {
        KoProfileBatch batch(file);
        readAll(keys, file);
    }
    t.batchReadMs = millisecondsSince(start);

    // A copy put in place of the file is a new file to the cache.
    const fs::path copy = folder / "copy.ini";
    fs::copy_file(path, copy);
    fs::rename(copy, path);
    start = std::chrono::steady_clock::now();
    {
        KoProfileBatch batch(file);
        readAll(keys, file);
    }
    t.parseReadMs = millisecondsSince(start);
    return t;
}

// The best of a few runs, so that one slow fsync does not decide the ratio.
Timings best(const fs::path& folder, int count)
{
    Timings result = run(folder, count);
    for (int i = 0; i < 4; ++i) {
        const Timings t = run(folder, count);
        result.writeMs = std::min(result.writeMs, t.writeMs);
        result.readMs = std::min(result.readMs, t.readMs);
        result.batchReadMs = std::min(result.batchReadMs, t.batchReadMs);
        result.parseReadMs = std::min(result.parseReadMs, t.parseReadMs);
    }
    return result;
}

void print(const char* what, int count, double ms, double smallMs)
{
    std::printf("%-34s %7d keys: %9.2f ms", what, count, ms);
    if (smallMs > 0) std::printf("   ratio %.2f", ms / smallMs);
    std::printf("\n");
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
    for (const int count : {20000, 200000}) {
        const Timings small = best(folder, count);
        const Timings large = best(folder, 2 * count);
        print("write in one batch", count, small.writeMs, 0);
        print("write in one batch", 2 * count, large.writeMs, small.writeMs);
        print("read one by one", count, small.readMs, 0);
        print("read one by one", 2 * count, large.readMs, small.readMs);
        print("read one by one in a batch", count, small.batchReadMs, 0);
        print("read one by one in a batch", 2 * count, large.batchReadMs, small.batchReadMs);
        print("read in a batch after a change", count, small.parseReadMs, 0);
        print("read in a batch after a change", 2 * count, large.parseReadMs, small.parseReadMs);
    }
    fs::remove_all(folder);
    return 0;
}
