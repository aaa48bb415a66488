// The DGN side of the host: loading the DGN library registers its system
// variables with the runtime.
#include <gtest/gtest.h>

#include <filesystem>
#include <fstream>
#include <iterator>
#include <string>

#include "kora/dgn/hostservices.h"
#include "kora/editor.h"
#include "kora/kostring.h"
#include "kora/sysvars.h"
#include "kora/userpaths.h"

namespace fs = std::filesystem;

namespace {

std::string contents(const fs::path& path)
{
    std::ifstream in(path, std::ios::binary);
    return {std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>()};
}

}  // namespace

TEST(DgnHostServices, SystemVariablesAreRegisteredWithTheirDefaults)
{
    koraResetSysVars();
    koresbuf rb;
    ASSERT_EQ(koedGetVar(L"_KX_DGNEXPORTTYPE", &rb), KORTNORM);
    EXPECT_EQ(rb.restype, KORTSHORT);
    EXPECT_EQ(rb.resval.rint, 1);  // V7: the format this host writes
    ASSERT_EQ(koedGetVar(L"DGNIMPORTMODE", &rb), KORTNORM);
    EXPECT_EQ(rb.resval.rint, 1);
    // Any short value is kept; the readers give the others their meaning.
    EXPECT_EQ(koraSetSysVarText(L"DGNIMPORTMODE", L"7"), KORTNORM);
    EXPECT_EQ(koraSetSysVarText(L"_KX_DGNEXPORTTYPE", L"2"), KORTERROR);
    koraResetSysVars();
}

TEST(DgnHostServices, MissingSeedsAreCopiedWholeAndTheUsersOwnAreKept)
{
    wchar_t buffer[1024] = {};
    ASSERT_TRUE(GetUserLocalApplicationDataTemplatePath(buffer, 1024));
    const fs::path templates(KoString(buffer).toUtf8());
    fs::remove_all(templates);
    fs::create_directories(templates);
    std::ofstream(templates / "V7-Metric-Seed2D.dgn", std::ios::binary) << "the user's own seed";

    const fs::path seeds(KORA_SEED_DIR);
    std::size_t available = 0;
    for (const auto& entry : fs::directory_iterator(seeds)) available += entry.path().extension() == ".dgn";
    ASSERT_GT(available, 1u);

    EXPECT_EQ(koraInstallMissingSeeds(KoString::fromUtf8(seeds.string())), static_cast<int>(available) - 1);
    EXPECT_EQ(contents(templates / "V7-Metric-Seed2D.dgn"), "the user's own seed");
    std::size_t present = 0;
    for (const auto& entry : fs::directory_iterator(templates)) {
        ++present;  // no temporary file is left behind
        if (entry.path().filename() != "V7-Metric-Seed2D.dgn") {
            EXPECT_EQ(contents(entry.path()), contents(seeds / entry.path().filename())) << entry.path();
        }
    }
    EXPECT_EQ(present, available);
    // Everything is there now: nothing more is copied.
    EXPECT_EQ(koraInstallMissingSeeds(KoString::fromUtf8(seeds.string())), 0);
    fs::remove_all(templates);
}
