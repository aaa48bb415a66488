// bench_dgn FILE: reads every element of a V7 design with the streaming
// reader and prints the count, the vertices seen and the time it took.
// bench_dgn.py runs it beside GDAL on the same file.
#include <chrono>
#include <cstdio>

#include "kora/dgn/v7/reader.h"

using namespace Kora::Dgn::V7;

int main(int argc, char** argv)
{
    if (argc != 2) {
        std::fprintf(stderr, "usage: bench_dgn FILE\n");
        return 2;
    }
    const auto start = std::chrono::steady_clock::now();
    auto bytes = readFileBytes(argv[1]);
    if (!bytes) {
        std::fprintf(stderr, "bench_dgn: %s\n", bytes.error().message.c_str());
        return 1;
    }
    auto reader = Reader::open(std::move(*bytes));
    if (!reader) {
        std::fprintf(stderr, "bench_dgn: %s\n", reader.error().describe().c_str());
        return 1;
    }
    Element element;
    std::size_t elements = 0, vertices = 0;
    double sum = 0; // keeps the conversion to master units from being optimised away
    while (reader->next(element)) {
        ++elements;
        if (const Vertices* v = element.as<Vertices>()) {
            vertices += v->points.size();
            for (const IntPoint& p : v->points) sum += reader->info().units.toMaster(p).x;
        }
    }
    if (reader->error()) {
        std::fprintf(stderr, "bench_dgn: %s\n", reader->error()->describe().c_str());
        return 1;
    }
    const double seconds = std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
    std::printf("elements %zu vertices %zu checksum %.3f seconds %.4f\n", elements, vertices, sum, seconds);
    return 0;
}
