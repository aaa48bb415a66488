// Imports a V7 design into a new drawing and saves it as DXF, printing the
// time each step takes; bench_import.py runs it beside ogr2ogr.
#include <chrono>
#include <cstdio>

#include <sys/resource.h>

#include "kora/db/database.h"
#include "kora/dgn/dgnfile.h"
#include "kora/dgn/translate.h"
#include "kora/dxf/dxf.h"

namespace {

long peakKb()
{
    rusage usage{};
    getrusage(RUSAGE_SELF, &usage);
    return usage.ru_maxrss;
}

} // namespace

int main(int argc, char** argv)
{
    if (argc != 3) {
        std::fprintf(stderr, "usage: bench_import DESIGN.dgn OUT.dxf\n");
        return 2;
    }
    using Clock = std::chrono::steady_clock;
    const auto seconds = [](Clock::time_point from) { return std::chrono::duration<double>(Clock::now() - from).count(); };
    const long startKb = peakKb();
    KoDbDatabase db;
    DgnImportState state;
    state.file = KoString::fromUtf8(argv[1]);
    DgnTranslationReport report;
    auto start = Clock::now();
    if (DgnFile::doDgnImport(state, &db, nullptr, &report) != KORTNORM) return 1;
    const double imported = seconds(start);
    const long importedKb = peakKb();
    start = Clock::now();
    KoString message;
    if (kodbWriteDxfFile(db, KoString::fromUtf8(argv[2]), &message) != Kora::eOk) {
        std::fprintf(stderr, "%s\n", message.toUtf8().c_str());
        return 1;
    }
    const double saved = seconds(start);
    std::printf("%zu elements read, %zu entities; import %.3f s (peak +%ld kB), DXF save %.3f s (peak +%ld kB)\n",
                report.itemsRead, report.itemsWritten, imported, importedKb - startKb, saved, peakKb() - importedKb);
    return 0;
}
