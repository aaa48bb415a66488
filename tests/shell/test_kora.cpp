// The kora executable, run as a user runs it.
#include <gtest/gtest.h>

#include <sys/wait.h>

#include <array>
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <string>

namespace {

struct KoraRun {
    int status;
    std::string output;
};

// Runs kora in a scratch folder of the test's own per-user tree.
KoraRun kora(const std::string& arguments, const std::string& input = "", const std::string& environment = "")
{
    const std::filesystem::path folder = std::filesystem::path(std::getenv("KORA_USER_ROOT")) / "cwd";
    std::filesystem::create_directories(folder);
    const std::string command = "cd " + folder.string() + " && printf '" + input + "' | " + environment + " " KORA_BIN_DIR "/kora " + arguments + " 2>&1";
    KoraRun run{-1, {}};
    FILE* pipe = popen(command.c_str(), "r");
    if (!pipe) return run;
    std::array<char, 4096> buf{};
    size_t n = 0;
    while ((n = fread(buf.data(), 1, buf.size(), pipe)) > 0) run.output.append(buf.data(), n);
    const int raw = pclose(pipe);
    run.status = WIFEXITED(raw) ? WEXITSTATUS(raw) : -1;
    return run;
}

bool contains(const std::string& text, const std::string& part) { return text.find(part) != std::string::npos; }

}  // namespace

TEST(KoraExecutable, RunsTheExampleScriptWithTheModuleLoaded)
{
    const KoraRun run = kora("--script " KORA_SOURCE_DIR "/examples/hello.scr");
    EXPECT_EQ(run.status, 0) << run.output;
    EXPECT_TRUE(contains(run.output, "6 entities.")) << run.output;
    EXPECT_TRUE(std::filesystem::exists(std::filesystem::path(std::getenv("KORA_USER_ROOT")) / "cwd" / "example.dxf"));
    EXPECT_TRUE(contains(run.output, "KRX_DGN:")) << run.output;
    EXPECT_TRUE(contains(run.output, "  -DGNATTACH")) << run.output;
    EXPECT_TRUE(contains(run.output, "FILEDIA = 0")) << run.output;
}

TEST(KoraExecutable, AScriptThatCannotBeReadFailsTheRun)
{
    const KoraRun run = kora("--script no/such/file.scr");
    EXPECT_NE(run.status, 0);
    EXPECT_TRUE(contains(run.output, "cannot read script file")) << run.output;
    EXPECT_NE(kora("--bogus").status, 0);
}

TEST(KoraExecutable, ReadsPipedCommandsAndModulesByPath)
{
    const KoraRun run = kora("--no-autoload", "HELP\\nAPPLOAD " KORA_BIN_DIR "/DgnCommands.krx\\nHELP\\nQUIT\\nHELP\\n");
    EXPECT_EQ(run.status, 0) << run.output;
    // Before APPLOAD the module's commands are unknown; QUIT ends the run.
    const size_t loaded = run.output.find("loaded.");
    ASSERT_NE(loaded, std::string::npos) << run.output;
    EXPECT_EQ(run.output.find("KRX_DGN:"), run.output.find("KRX_DGN:", loaded));
    EXPECT_EQ(run.output.rfind("Command: HELP"), run.output.find("Command: HELP", loaded));
}

TEST(KoraExecutable, FirstStartPlacesTheSeedFilesAndKeepsTheUsersOwn)
{
    namespace fs = std::filesystem;
    const fs::path root = fs::path(std::getenv("KORA_USER_ROOT")) / "first-start";
    fs::remove_all(root);
    const fs::path templates = root / "data" / "kora" / "Template";
    fs::create_directories(templates);
    {
        std::ofstream mine(templates / "V7-Metric-Seed2D.dgn");
        mine << "the user's own";
    }
    const KoraRun run = kora("--no-autoload", "QUIT\\n", "KORA_USER_ROOT=" + root.string());
    EXPECT_EQ(run.status, 0) << run.output;
    int seeds = 0;
    for (const auto& entry : fs::directory_iterator(templates)) seeds += entry.path().extension() == ".dgn";
    EXPECT_EQ(seeds, 10);
    std::ifstream mine(templates / "V7-Metric-Seed2D.dgn");
    std::string text;
    std::getline(mine, text);
    EXPECT_EQ(text, "the user's own");
}

TEST(KoraExecutable, WithoutADisplayTheDialogCommandsPointToTheirDashForms)
{
    const KoraRun run = kora("", "DGNATTACH\\nDGNIMPORT\\nDGNEXPORT\\n-DGNIMPORT\\n~\\n-DGNATTACH\\n~\\nQUIT\\n",
                             "env -u DISPLAY -u WAYLAND_DISPLAY -u QT_QPA_PLATFORM");
    EXPECT_EQ(run.status, 0) << run.output;
    for (const char* command : {"DGNATTACH", "DGNIMPORT", "DGNEXPORT"}) {
        EXPECT_TRUE(contains(run.output, std::string(command) + " needs a display. Use -" + command + " to work at the command line."))
            << run.output;
    }
    // "~" at both file prompts ends the command as a closed dialog would.
    const std::string tilde = "The file dialog needs a display; type the file's path instead.";
    const size_t first = run.output.find(tilde);
    ASSERT_NE(first, std::string::npos) << run.output;
    EXPECT_NE(run.output.find(tilde, first + 1), std::string::npos) << run.output;
}
