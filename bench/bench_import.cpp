// Imports a V7 design into a new drawing and saves it as DXF, printing the
// time each step takes; bench_import.py runs it beside ogr2ogr. With
// --repeat N it imports a design (the V8 sample) N times, each into a new
// drawing, and prints the elements imported per second.
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <string_view>

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

using Clock = std::chrono::steady_clock;

double seconds(Clock::time_point from) { return std::chrono::duration<double>(Clock::now() - from).count(); }

// The import alone, repeated: the drawings are made and dropped outside
// the time measured.
int repeatImport(const char* design, long count)
{
    DgnImportState state;
    state.file = KoString::fromUtf8(design);
    std::size_t elements = 0;
    double spent = 0;
    for (long i = 0; i < count; ++i) {
        KoDbDatabase db;
        DgnTranslationReport report;
        const auto start = Clock::now();
        if (DgnFile::doDgnImport(state, &db, nullptr, &report) != KORTNORM) return 1;
        spent += seconds(start);
        elements += report.itemsRead;
    }
    std::printf("%ld imports, %zu elements in %.3f s: %.0f elements/s\n", count, elements, spent,
                static_cast<double>(elements) / spent);
    return 0;
}

} // namespace

int main(int argc, char** argv)
{
    if (argc == 4 && std::string_view(argv[1]) == "--repeat") return repeatImport(argv[3], std::atol(argv[2]));
    if (argc != 3) {
        std::fprintf(stderr, "usage: bench_import DESIGN.dgn OUT.dxf | bench_import --repeat N DESIGN.dgn\n");
        return 2;
    }
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
