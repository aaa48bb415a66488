// bench_v8 V8_FILE V7_FILE: decodes the V8 file's models again and again
// from memory (container, inflate and element decoding each time) until at
// least 1,000,000 elements are read, and reads the V7 file (the 200,000
// line strings of bench_dgn) from memory as well; prints elements decoded
// per second of each.
#include <chrono>
#include <cstdio>

#include "kora/dgn/v7/reader.h"
#include "kora/dgn/v8/reader.h"

namespace {

constexpr std::size_t MinElements = 1'000'000;

double seconds(std::chrono::steady_clock::time_point start)
{
    return std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
}

} // namespace

int main(int argc, char** argv)
{
    if (argc != 3) {
        std::fprintf(stderr, "usage: bench_v8 V8_FILE V7_FILE\n");
        return 2;
    }
    auto v8 = Kora::Dgn::V8::readFileBytes(argv[1]);
    auto v7 = Kora::Dgn::V7::readFileBytes(argv[2]);
    if (!v8 || !v7) {
        std::fprintf(stderr, "bench_v8: %s\n", (!v8 ? v8.error().message : v7.error().message).c_str());
        return 1;
    }

    std::size_t elements = 0, reads = 0;
    double sum = 0; // keeps the decoded coordinates from being optimised away
    auto start = std::chrono::steady_clock::now();
    while (elements < MinElements) {
        auto file = Kora::Dgn::V8::File::open(*v8);
        if (!file) {
            std::fprintf(stderr, "bench_v8: %s\n", file.error().describe().c_str());
            return 1;
        }
        for (std::size_t m = 0; m < file->models().size(); ++m) {
            auto contents = file->readModel(m);
            if (!contents) {
                std::fprintf(stderr, "bench_v8: %s\n", contents.error().describe().c_str());
                return 1;
            }
            elements += contents->elements.size();
            for (const auto& e : contents->elements) sum += e.rangeLow.x;
        }
        ++reads;
    }
    const double v8Seconds = seconds(start);

    std::size_t v7Elements = 0;
    start = std::chrono::steady_clock::now();
    auto reader = Kora::Dgn::V7::Reader::open(std::move(*v7));
    if (!reader) {
        std::fprintf(stderr, "bench_v8: %s\n", reader.error().describe().c_str());
        return 1;
    }
    Kora::Dgn::V7::Element element;
    while (reader->next(element)) {
        ++v7Elements;
        if (const auto* v = element.as<Kora::Dgn::V7::Vertices>())
            for (const auto& p : v->points) sum += reader->info().units.toMaster(p).x;
    }
    const double v7Seconds = seconds(start);

    std::printf("V8 %s: %zu reads, %zu elements in %.3f s: %.0f elements/s (checksum %.1f)\n", argv[1], reads,
                elements, v8Seconds, elements / v8Seconds, sum);
    std::printf("V7 %s: %zu elements in %.3f s: %.0f elements/s\n", argv[2], v7Elements, v7Seconds,
                v7Elements / v7Seconds);
    return 0;
}
