// Opens a DXF file with the drawing database and saves it again, printing
// the time of each step and the process's peak memory after each.
//   bench_dxf IN.dxf OUT.dxf
#include <chrono>
#include <cstdio>
#include <sys/resource.h>

#include "kora/dxf/dxf.h"

namespace {

long peakKb()
{
    struct rusage usage {};
    getrusage(RUSAGE_SELF, &usage);
    return usage.ru_maxrss;
}

double seconds(std::chrono::steady_clock::time_point since)
{
    return std::chrono::duration<double>(std::chrono::steady_clock::now() - since).count();
}

}  // namespace

int main(int argc, char** argv)
{
    if (argc != 3) {
        std::fprintf(stderr, "usage: bench_dxf IN.dxf OUT.dxf\n");
        return 2;
    }
    const long before = peakKb();
    KoDbDatabase db(false);
    KoString message;
    auto start = std::chrono::steady_clock::now();
    if (kodbReadDxfFile(db, KoString::fromUtf8(argv[1]), &message) != Kora::eOk) {
        std::fprintf(stderr, "%s\n", message.toUtf8().c_str());
        return 1;
    }
    const double readTime = seconds(start);
    const long afterRead = peakKb();
    long entities = 0;
    {
        KoDbObjectPointer<KoDbBlockTableRecord> model(db.modelSpaceId());
        for (auto it = model->newIterator(); !it->done(); it->step()) ++entities;
    }
    start = std::chrono::steady_clock::now();
    if (kodbWriteDxfFile(db, KoString::fromUtf8(argv[2]), &message) != Kora::eOk) {
        std::fprintf(stderr, "%s\n", message.toUtf8().c_str());
        return 1;
    }
    const double writeTime = seconds(start);
    std::printf("entities %ld\nopen_s %.3f\nsave_s %.3f\nstart_kb %ld\npeak_after_open_kb %ld\npeak_after_save_kb %ld\n",
                entities, readTime, writeTime, before, afterRead, peakKb());
    return 0;
}
