// Mapping setup store speed: saving and loading a store of 20 setups with
// N layer pairs each, for N and N/2, so the ratio shows whether the cost
// grows linearly (about 2) or worse. Beside it, a store's keys written one
// call at a time outside a batch, where every call replaces the file (two
// setups of 1,000 pairs: all twenty take minutes, as the cost grows with
// the square of the file).

#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <string>
#include <utility>

#include "kora/kostring.h"
#include "kora/profile.h"
#include "mapping/DgnSetupFile.h"

namespace fs = std::filesystem;

namespace {

constexpr int kSetups = 20;
// The machine is shared and its timings scatter; the best of a few runs is
// the one least disturbed.
constexpr int kRuns = 5;

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
        store.insert(std::move(setup));
    }
    return store;
}

struct Timings {
    double saveMs = 0;
    double loadMs = 0;
};

// Every save starts without a store file.
void removeStoreFile() { fs::remove(Kora::DgnCommands::dgnSetupFilePath().toUtf8()); }

Timings saveAndLoad(int pairs, int setups)
{
    DgnMappingSetupStore store = makeStore(pairs, setups);
    removeStoreFile();
    Timings timings;
    auto start = std::chrono::steady_clock::now();
    Kora::DgnCommands::saveMappingSetups(store);
    timings.saveMs = millisecondsSince(start);

    DgnMappingSetupStore loaded;
    start = std::chrono::steady_clock::now();
    Kora::DgnCommands::loadMappingSetups(loaded);
    timings.loadMs = millisecondsSince(start);
    if (loaded.size() != static_cast<size_t>(setups + 1)
        || loaded.find(L"Setup 00")->layerMap.size() != static_cast<size_t>(pairs))
        std::fprintf(stderr, "store read back incomplete at N=%d\n", pairs);
    return timings;
}

// One save and load in a child process, so that every run starts from the
// memory of a new process, as a user's first save does. In one process a
// run would reuse what earlier runs freed and skip some of the page faults
// a first save pays, by an amount that varies from run to run.
Timings saveAndLoadInChild(int pairs, int setups)
{
    int channel[2];
    if (pipe(channel) != 0) {
        std::perror("pipe");
        std::exit(1);
    }
    const pid_t child = fork();
    if (child < 0) {
        std::perror("fork");
        std::exit(1);
    }
    if (child == 0) {
        close(channel[0]);
        const Timings timings = saveAndLoad(pairs, setups);
        const bool sent = write(channel[1], &timings, sizeof timings) == static_cast<ssize_t>(sizeof timings);
        _exit(sent ? 0 : 1);
    }
    close(channel[1]);
    Timings timings{};
    const bool received = read(channel[0], &timings, sizeof timings) == static_cast<ssize_t>(sizeof timings);
    close(channel[0]);
    int status = 0;
    waitpid(child, &status, 0);
    if (!received || !WIFEXITED(status) || WEXITSTATUS(status) != 0) {
        std::fprintf(stderr, "run at N=%d failed\n", pairs);
        std::exit(1);
    }
    return timings;
}

Timings measure(int pairs, int runs, int setups = kSetups)
{
    Timings best{1e300, 1e300};
    for (int run = 0; run < runs; ++run) {
        const Timings timings = saveAndLoadInChild(pairs, setups);
        best.saveMs = std::min(best.saveMs, timings.saveMs);
        best.loadMs = std::min(best.loadMs, timings.loadMs);
    }
    return best;
}

// The keys a save writes, one call each and no batch: every call locks,
// rewrites and fsyncs the whole file.
double saveKeyByKey(int pairs, int setups)
{
    const KoString& path = Kora::DgnCommands::dgnSetupFilePath();
    removeStoreFile();
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

    std::printf("store of %d setups, N layer pairs each (best of %d runs, each in a new process)\n", kSetups, kRuns);
    std::printf("%8s %12s %12s %12s %12s %14s\n", "N", "save ms", "load ms", "save ratio", "load ratio", "file MB");
    for (const int pairs : {1000, 10000, 50000}) {
        const Timings half = measure(pairs / 2, kRuns);
        const Timings full = measure(pairs, kRuns);
        const double megabytes = static_cast<double>(fs::file_size(Kora::DgnCommands::dgnSetupFilePath().toUtf8())) / (1 << 20);
        std::printf("%8d %12.1f %12.1f\n", pairs / 2, half.saveMs, half.loadMs);
        std::printf("%8d %12.1f %12.1f %12.2f %12.2f %14.1f\n", pairs, full.saveMs, full.loadMs,
                    full.saveMs / half.saveMs, full.loadMs / half.loadMs, megabytes);
    }

    const Timings batched = measure(1000, kRuns, 2);
    std::printf("\n2 setups, N = 1000, save as one batch:          %10.1f ms\n", batched.saveMs);
    std::printf("2 setups, N = 1000, save one key per file write: %10.1f ms\n", saveKeyByKey(1000, 2));

    fs::remove_all(made);
    return 0;
}
