// bench_export IN.dxf OUT.dgn SEED.dgn: reads a drawing and exports it to a
// V7 design on the given seed, printing the entity and element counts and
// the time of each step (the drawing's teardown included) and the peak
// memory once the drawing is read (the drawing's own size). bench_export.py
// runs it beside GDAL's ogr2ogr on the same drawing.
//
// bench_export --crossing: the time a cache line takes to go from the first
// core to the second and back. The DXF read hands records between two
// threads, so its figure depends on how far apart the host put the cores.
#include <pthread.h>
#include <sched.h>

#include <atomic>
#include <chrono>
#include <cstdio>
#include <memory>
#include <string_view>
#include <sys/resource.h>
#include <thread>

#include "kora/db/database.h"
#include "kora/dgn/translate.h"
#include "kora/dxf/dxf.h"

namespace {

long peakKb()
{
    struct rusage usage {};
    getrusage(RUSAGE_SELF, &usage);
    return usage.ru_maxrss;
}

void pinTo(int cpu)
{
    cpu_set_t set;
    CPU_ZERO(&set);
    CPU_SET(cpu, &set);
    pthread_setaffinity_np(pthread_self(), sizeof set, &set);
}

// Nanoseconds for one round trip of a value between CPUs 0 and 1.
double crossing()
{
    constexpr long kTrips = 200000;
    std::atomic<long> turn {0};
    std::thread other([&] {
        pinTo(1);
        for (long i = 0; i < kTrips; ++i) {
            while (turn.load(std::memory_order_acquire) != 2 * i + 1) {
            }
            turn.store(2 * i + 2, std::memory_order_release);
        }
    });
    pinTo(0);
    const auto start = std::chrono::steady_clock::now();
    for (long i = 0; i < kTrips; ++i) {
        turn.store(2 * i + 1, std::memory_order_release);
        while (turn.load(std::memory_order_acquire) != 2 * i + 2) {
        }
    }
    const auto end = std::chrono::steady_clock::now();
    other.join();
    return std::chrono::duration<double, std::nano>(end - start).count() / kTrips;
}

} // namespace

int main(int argc, char** argv)
{
    if (argc == 2 && std::string_view(argv[1]) == "--crossing") {
        std::printf("%.0f\n", crossing());
        return 0;
    }
    if (argc != 4) {
        std::fprintf(stderr, "usage: bench_export IN.dxf OUT.dgn SEED.dgn\n");
        return 2;
    }
    using Clock = std::chrono::steady_clock;
    const auto start = Clock::now();
    auto db = std::make_unique<KoDbDatabase>(false);
    KoString message;
    if (kodbReadDxfFile(*db, KoString::fromUtf8(argv[1]), &message) != Kora::eOk) {
        std::fprintf(stderr, "bench_export: %s\n", message.toUtf8().c_str());
        return 1;
    }
    const auto read = Clock::now();
    const long drawingKb = peakKb();
    DgnExport exporter;
    exporter.seedFile = KoString::fromUtf8(argv[3]);
    exporter.existingXRefOperation = kDgnExistingOverwrite;
    if (exporter.ExportDgnFile(KoString::fromUtf8(argv[2]), db.get(), true, nullptr) != KORTNORM) return 1;
    const auto written = Clock::now();
    // The drawing goes as it does when a session closes it.
    db.reset();
    const auto gone = Clock::now();
    auto seconds = [](Clock::duration d) { return std::chrono::duration<double>(d).count(); };
    std::printf("entities %zu elements %zu read %.3f s export %.3f s teardown %.3f s drawing %ld kB\n",
                exporter.report().itemsRead, exporter.report().itemsWritten, seconds(read - start),
                seconds(written - read), seconds(gone - written), drawingKb);
    return 0;
}
