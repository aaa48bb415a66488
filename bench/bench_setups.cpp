// Mapping setup store speed: saving and loading a store of 20 setups with
// N layer pairs each, for N and N/2, so the ratio shows whether the cost
// grows linearly (about 2) or worse. Beside it, a store's keys written one
// call at a time outside a batch, where every call replaces the file (two
// setups of 1,000 pairs: all twenty take minutes, as the cost grows with
// the square of the file), and the cost of the stat() each read makes,
// which is the platform's share of a load.

#include <sys/stat.h>

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <string>

#include "kora/kostring.h"
#include "kora/profile.h"
#include "mapping/DgnSetupFile.h"

namespace fs = std::filesystem;

namespace {

constexpr int kSetups = 20;

double millisecondsSince(std::chrono::steady_clock::time_point start)
{
    return std::chrono::duration<double, std::milli>(std::chrono::steady_clock::now() - start).count();
}

DgnMappingSetupStore makeStore(int pairs, int setups = kSetups)
{
    DgnMappingSetupStore store;
    for (int s = 0; s < setups; ++s) {
        DgnMappingSetup setup;
        setup.name = KoString::format(L"Setup %02d", s);
        setup.isImport = s % 2;
        setup.description = L"benchmark setup";
        for (int i = 0; i < pairs; ++i)
            setup.layerMap.emplace(KoString::format(L"Level %06d", i), KoString::format(L"Layer-%d-%d", s, i));
        store.insert(setup);
    }
    return store;
}

struct Timings {
    double saveMs = 0;
    double loadMs = 0;
};

// Removes the store file and lets the platform drop its parsed copy of
// the last one now, so that freeing a big document is not timed as part
// of the next save.
void startAfresh()
{
    fs::remove(dgn::dgnSetupFilePath().toUtf8());
    wchar_t buffer[16];
    koGetPrivateProfileString(L"MappingSetup1", L"Name", L"", buffer, 16, dgn::dgnSetupFilePath());
}

// The best of a few runs, so that one slow fsync does not decide a ratio.
Timings measure(int pairs, int runs, int setups = kSetups)
{
    Timings best{1e300, 1e300};
    for (int run = 0; run < runs; ++run) {
        DgnMappingSetupStore store = makeStore(pairs, setups);
        startAfresh();
        auto start = std::chrono::steady_clock::now();
        dgn::saveMappingSetups(store);
        best.saveMs = std::min(best.saveMs, millisecondsSince(start));

        DgnMappingSetupStore loaded;
        start = std::chrono::steady_clock::now();
        dgn::loadMappingSetups(loaded);
        best.loadMs = std::min(best.loadMs, millisecondsSince(start));
        if (loaded.size() != static_cast<size_t>(setups + 1) || loaded.find(L"Setup 00")->layerMap.size() != static_cast<size_t>(pairs))
            std::fprintf(stderr, "store read back incomplete at N=%d\n", pairs);
    }
    return best;
}

// The keys a save writes, one call each and no batch: every call locks,
// rewrites and fsyncs the whole file.
double saveKeyByKey(int pairs, int setups)
{
    const KoString& path = dgn::dgnSetupFilePath();
    startAfresh();
    const DgnMappingSetupStore store = makeStore(pairs, setups);
    const auto write = [&](const KoString& section, const KoString& key, const KoString& value) {
        koWritePrivateProfileString(section, key, value, path);
    };
    const auto start = std::chrono::steady_clock::now();
    int number = 0;
    for (const auto& [key, setup] : store) {
        const KoString section = KoString::format(L"MappingSetup%d", ++number);
        write(section, L"Name", setup.name);
        write(section, L"isImport", KoString::format(L"%d", setup.isImport));
        write(section, L"Description", setup.description);
        write(section, L"LayerCount", KoString::format(L"%d", static_cast<int>(setup.layerMap.size())));
        for (const wchar_t* count : {L"LTCount", L"LWCount", L"ColorCount"}) write(section, count, L"0");
        int i = 0;
        for (const auto& [source, target] : setup.layerMap) {
            write(section, KoString::format(setup.isImport ? L"DGNLevel%d" : L"DWGLayer%d", i), source);
            write(section, KoString::format(setup.isImport ? L"DWGLayer%d" : L"DGNLevel%d", i), target);
            ++i;
        }
    }
    return millisecondsSince(start);
}

// What the stat() of every read costs: a load of N pairs makes about
// 2 * 20 * N reads, each of which checks the file's stamp first.
double statCost(long reads)
{
    const std::string file = dgn::dgnSetupFilePath().toUtf8();
    struct stat st;
    const auto start = std::chrono::steady_clock::now();
    for (long i = 0; i < reads; ++i) stat(file.c_str(), &st);
    return millisecondsSince(start);
}

}  // namespace

int main()
{
    char folderTemplate[] = "/tmp/kora-bench-setups-XXXXXX";
    const char* made = mkdtemp(folderTemplate);
    if (!made) {
        std::perror("mkdtemp");
        return 1;
    }
    // The per-user tree, and with it the store file, lives in the temporary folder.
    setenv("KORA_USER_ROOT", made, 1);

    std::printf("store of %d setups, N layer pairs each (best of 3)\n", kSetups);
    std::printf("%8s %12s %12s %12s %12s %14s\n", "N", "save ms", "load ms", "save ratio", "load ratio", "file MB");
    for (const int pairs : {1000, 10000, 50000}) {
        const Timings half = measure(pairs / 2, 3);
        const Timings full = measure(pairs, 3);
        const double megabytes = static_cast<double>(fs::file_size(dgn::dgnSetupFilePath().toUtf8())) / (1 << 20);
        std::printf("%8d %12.1f %12.1f\n", pairs / 2, half.saveMs, half.loadMs);
        std::printf("%8d %12.1f %12.1f %12.2f %12.2f %14.1f\n", pairs, full.saveMs, full.loadMs,
                    full.saveMs / half.saveMs, full.loadMs / half.loadMs, megabytes);
    }

    const long reads = 2L * kSetups * 50000;
    std::printf("\nstat() of the store file, %ld times (one per read of a 50,000-pair load): %.1f ms\n", reads,
                statCost(reads));

    const Timings batched = measure(1000, 3, 2);
    std::printf("\n2 setups, N = 1000, save as one batch:          %10.1f ms\n", batched.saveMs);
    std::printf("2 setups, N = 1000, save one key per file write: %10.1f ms\n", saveKeyByKey(1000, 2));

    fs::remove_all(made);
    return 0;
}
