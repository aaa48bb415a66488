// The atomic file writer: its one rule for links, permissions and
// failures, which every file the platform writes follows.
#include <gtest/gtest.h>
#include <sys/resource.h>
#include <sys/stat.h>

#include <csignal>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <sstream>

#include "kora/atomicfile.h"

namespace fs = std::filesystem;

namespace {

fs::path scratch(const char* name)
{
    const fs::path folder = fs::path(std::getenv("KORA_USER_ROOT")) / "atomicfile" / name;
    fs::remove_all(folder);
    fs::create_directories(folder);
    return folder;
}

std::string contents(const fs::path& path)
{
    std::ifstream in(path, std::ios::binary);
    std::stringstream text;
    text << in.rdbuf();
    return text.str();
}

int filesIn(const fs::path& folder)
{
    return static_cast<int>(std::distance(fs::directory_iterator(folder), fs::directory_iterator()));
}

}  // namespace

TEST(AtomicFileWriter, ReplacesTheFileWholeAndLeavesNoTemporary)
{
    const fs::path folder = scratch("replace");
    ASSERT_TRUE(Kora::writeFileAtomically(folder / "a.txt", "first version"));
    ASSERT_TRUE(Kora::writeFileAtomically(folder / "a.txt", "second"));
    EXPECT_EQ(contents(folder / "a.txt"), "second");
    EXPECT_EQ(filesIn(folder), 1);

    // A writer dropped before its commit changes nothing.
    {
        auto writer = Kora::AtomicFileWriter::create(folder / "a.txt");
        ASSERT_TRUE(writer);
        ASSERT_TRUE(writer->write("never committed"));
    }
    EXPECT_EQ(contents(folder / "a.txt"), "second");
    EXPECT_EQ(filesIn(folder), 1);
}

TEST(AtomicFileWriter, WritesThroughSymbolicLinksAndKeepsThem)
{
    const fs::path folder = scratch("links");
    fs::create_directories(folder / "real");
    std::ofstream(folder / "real" / "target.ini") << "old";
    fs::create_symlink("real/target.ini", folder / "link.ini");
    // A link to a file that does not exist yet is written through too.
    fs::create_symlink("real/later.ini", folder / "dangling.ini");

    ASSERT_TRUE(Kora::writeFileAtomically(folder / "link.ini", "new"));
    ASSERT_TRUE(Kora::writeFileAtomically(folder / "dangling.ini", "made"));
    EXPECT_TRUE(fs::is_symlink(folder / "link.ini"));
    EXPECT_TRUE(fs::is_symlink(folder / "dangling.ini"));
    EXPECT_EQ(contents(folder / "real" / "target.ini"), "new");
    EXPECT_EQ(contents(folder / "real" / "later.ini"), "made");
}

TEST(AtomicFileWriter, KeepsThePermissionsOfTheFileItReplaces)
{
    const fs::path folder = scratch("modes");
    std::ofstream(folder / "private.txt") << "x";
    fs::permissions(folder / "private.txt", fs::perms::owner_read | fs::perms::owner_write);
    ASSERT_TRUE(Kora::writeFileAtomically(folder / "private.txt", "y"));
    EXPECT_EQ(fs::status(folder / "private.txt").permissions() & fs::perms::all,
              fs::perms::owner_read | fs::perms::owner_write);

    // A new file gets what the umask leaves of rw-rw-rw-.
    const mode_t mask = ::umask(022);
    ASSERT_TRUE(Kora::writeFileAtomically(folder / "new.txt", "z"));
    ::umask(mask);
    EXPECT_EQ(fs::status(folder / "new.txt").permissions() & fs::perms::all,
              fs::perms::owner_read | fs::perms::owner_write | fs::perms::group_read | fs::perms::others_read);
}

TEST(AtomicFileWriter, FailuresLeaveTheOldFileAndSayWhy)
{
    const fs::path folder = scratch("failures");
    std::ofstream(folder / "keep.txt") << "precious";

    const auto missingFolder = Kora::writeFileAtomically(folder / "missing" / "x.txt", "data");
    ASSERT_FALSE(missingFolder);
    EXPECT_EQ(missingFolder.error().status, Kora::eFileAccessErr);
    EXPECT_NE(missingFolder.error().message.find("x.txt"), std::string::npos);

    // A disk that takes no more bytes: the file size limit refuses writes
    // past it as a full disk refuses them.
    std::signal(SIGXFSZ, SIG_IGN);
    rlimit saved{};
    ASSERT_EQ(::getrlimit(RLIMIT_FSIZE, &saved), 0);
    rlimit small = saved;
    small.rlim_cur = 4096;
    ASSERT_EQ(::setrlimit(RLIMIT_FSIZE, &small), 0);
    const auto full = Kora::writeFileAtomically(folder / "keep.txt", std::string(100000, 'x'));
    ::setrlimit(RLIMIT_FSIZE, &saved);
    std::signal(SIGXFSZ, SIG_DFL);
    ASSERT_FALSE(full);
    EXPECT_EQ(full.error().status, Kora::eFileWriteError);
    EXPECT_EQ(contents(folder / "keep.txt"), "precious");
    EXPECT_EQ(filesIn(folder), 1);
}
