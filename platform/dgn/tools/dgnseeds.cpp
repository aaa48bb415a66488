// dgnseeds OUTDIR: writes the built-in V7 seed files.
//
// Unit labels are lower case because that is how the units vocabulary of
// the import and export dialogs knows them ("ft", "in", "m", "mm"); the
// civil sub unit "th" (tenths of a foot) is deliberately not in it.
// Resolutions (UOR per sub unit) and what tells 01 from 02 are described
// in docs/dgn-seeds.md.
#include <cstdio>
#include <filesystem>
#include <string>
#include <system_error>

#include "kora/atomicfile.h"
#include "kora/dgn/v7/writer.h"

using namespace Kora::Dgn::V7;

namespace {

struct Seed {
    const char* name;
    Units units;
};

const Seed Seeds[] = {
    {"V7-Imperial-Arch-01", {"ft", "in", 12, 8000, {}}},
    {"V7-Imperial-Arch-02", {"ft", "in", 12, 1000, {}}},
    {"V7-Imperial-Civil-01", {"ft", "th", 10, 100, {}}},
    {"V7-Imperial-Civil-02", {"ft", "th", 10, 1000, {}}},
    {"V7-Metric", {"m", "mm", 1000, 100, {}}},
};

} // namespace

int main(int argc, char** argv)
{
    if (argc != 2) {
        std::fprintf(stderr, "usage: dgnseeds OUTDIR\n");
        return 2;
    }
    const std::filesystem::path folder = argv[1];
    std::error_code ec;
    std::filesystem::create_directories(folder, ec);
    if (ec) {
        std::fprintf(stderr, "dgnseeds: cannot create %s: %s\n", folder.c_str(), ec.message().c_str());
        return 1;
    }
    for (const Seed& seed : Seeds) {
        for (const bool is3d : {false, true}) {
            const std::filesystem::path path = folder / (std::string(seed.name) + (is3d ? "-Seed3D.dgn" : "-Seed2D.dgn"));
            Writer writer = Writer::create(is3d, seed.units);
            const std::vector<std::byte> bytes = writer.finish();
            if (auto written = Kora::writeFileAtomically(path, bytes); !written) {
                std::fprintf(stderr, "dgnseeds: %s\n", written.error().message.c_str());
                return 1;
            }
        }
    }
    return 0;
}
