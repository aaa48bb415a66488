#include <gtest/gtest.h>

#include <fcntl.h>
#include <signal.h>
#include <stdlib.h>
#include <unistd.h>

#include <string>

#include "kora/progress.h"

namespace {

using namespace std::chrono_literals;

// A terminal of our own: the meter draws on its far side, the test reads
// what was drawn from the near side.
struct PseudoTerminal {
    int master = -1;
    int slave = -1;
    PseudoTerminal()
    {
        master = posix_openpt(O_RDWR | O_NOCTTY);
        if (master < 0 || grantpt(master) != 0 || unlockpt(master) != 0) return;
        slave = open(ptsname(master), O_RDWR | O_NOCTTY);
        fcntl(master, F_SETFL, O_NONBLOCK);
    }
    ~PseudoTerminal()
    {
        if (slave >= 0) close(slave);
        if (master >= 0) close(master);
    }
    std::string drawn()
    {
        std::string text;
        char buffer[4096];
        for (ssize_t n; (n = read(master, buffer, sizeof buffer)) > 0;) text.append(buffer, static_cast<size_t>(n));
        return text;
    }
};

struct FakeClock {
    std::chrono::steady_clock::time_point now{};
    KoProgressMeter::Clock function()
    {
        return [this] { return now; };
    }
};

}  // namespace

TEST(ProgressMeter, RedrawsAtMostOncePerInterval)
{
    PseudoTerminal terminal;
    ASSERT_GE(terminal.slave, 0);
    FakeClock clock;
    clock.now += 1h;
    KoProgressMeter meter({terminal.slave, clock.function(), 200ms});
    ASSERT_TRUE(meter.begin(L"Export"));
    EXPECT_EQ(meter.redraws(), 1);
    for (int step = 1; step <= 10; ++step) {
        clock.now += 50ms;
        EXPECT_TRUE(meter.set(step / 10.0));
    }
    // 500 ms of steps every 50 ms: redrawn at 200 and 400 ms.
    EXPECT_EQ(meter.redraws(), 3);
    const std::string drawn = terminal.drawn();
    EXPECT_NE(drawn.find("Export [" + std::string(24, '#') + std::string(6, ' ') + "] 80%"), std::string::npos) << drawn;
    meter.end();
    EXPECT_EQ(terminal.drawn().back(), '\r');  // the bar is wiped
}

TEST(ProgressMeter, SilentWhenTheOutputIsNotATerminal)
{
    int pipeEnds[2];
    ASSERT_EQ(pipe(pipeEnds), 0);
    fcntl(pipeEnds[0], F_SETFL, O_NONBLOCK);
    FakeClock clock;
    KoProgressMeter meter({pipeEnds[1], clock.function(), 0ms});
    ASSERT_TRUE(meter.begin(L"Import"));
    clock.now += 1s;
    EXPECT_TRUE(meter.set(0.5));
    meter.end();
    char byte;
    EXPECT_EQ(read(pipeEnds[0], &byte, 1), -1);
    EXPECT_EQ(meter.redraws(), 0);
    close(pipeEnds[0]);
    close(pipeEnds[1]);
}

TEST(ProgressMeter, CtrlCCancelsOnlyWhileTheMeterRuns)
{
    struct sigaction before = {};
    sigaction(SIGINT, nullptr, &before);
    KoProgressMeter meter({-1, [] { return std::chrono::steady_clock::now(); }, 0ms});
    ASSERT_TRUE(meter.begin(L"Export"));
    KoProgressMeter second({-1, [] { return std::chrono::steady_clock::now(); }, 0ms});
    EXPECT_FALSE(second.begin(L"Other"));  // one at a time
    EXPECT_TRUE(meter.set(0.1));
    raise(SIGINT);
    EXPECT_TRUE(meter.cancelled());
    EXPECT_FALSE(meter.set(0.2));
    meter.end();
    struct sigaction after = {};
    sigaction(SIGINT, nullptr, &after);
    EXPECT_EQ(after.sa_handler, before.sa_handler);

    // The next meter starts afresh.
    ASSERT_TRUE(second.begin(L"Again"));
    EXPECT_FALSE(second.cancelled());
    EXPECT_TRUE(second.set(0.5));
}
