// bench_export IN.dxf OUT.dgn SEED.dgn: reads a drawing and exports it to a
// V7 design on the given seed, printing the entity and element counts and
// the time of each step (the drawing's teardown included) and the peak
// memory once the drawing is read (the drawing's own size). bench_export.py
// runs it beside GDAL's ogr2ogr on the same drawing.
#include <chrono>
#include <cstdio>
#include <memory>
#include <sys/resource.h>

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

} // namespace

int main(int argc, char** argv)
{
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
