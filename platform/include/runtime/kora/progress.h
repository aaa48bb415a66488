// A progress meter for long work that runs on the command line (a DGN
// translation): a bar drawn on the terminal and redrawn at most a few times
// a second, and Ctrl-C, which while the meter runs cancels the work instead
// of ending the host. Nothing is drawn when the output is not a terminal,
// so scripts and transcripts show only what the commands print.
#pragma once

#include <chrono>
#include <functional>

#include "kora/export.h"
#include "kora/kostring.h"

class KORA_API KoProgressMeter {
public:
    using Clock = std::function<std::chrono::steady_clock::time_point()>;
    struct Options {
        int fd = 1;  // where the bar is drawn; standard output
        Clock clock = [] { return std::chrono::steady_clock::now(); };
        std::chrono::milliseconds interval{200};  // the least time between two redraws
    };

    KoProgressMeter();
    explicit KoProgressMeter(Options options);
    // Ends a meter that is still running.
    ~KoProgressMeter();
    KoProgressMeter(const KoProgressMeter&) = delete;
    KoProgressMeter& operator=(const KoProgressMeter&) = delete;

    // Starts the meter at 0 and catches Ctrl-C until end(). One meter runs
    // at a time; a second begin() while one runs is refused (answers false).
    bool begin(const KoString& title);
    // The fraction done, 0 to 1. Answers false once the user has cancelled.
    bool set(double fraction);
    // Clears the bar and gives Ctrl-C back to what handled it before.
    void end();

    bool cancelled() const;
    // Bars drawn since begin() (none when the output is not a terminal).
    int redraws() const { return m_redraws; }

private:
    void draw(double fraction);

    Options m_options;
    KoString m_title;
    bool m_running = false;
    bool m_terminal = false;
    int m_redraws = 0;
    std::chrono::steady_clock::time_point m_lastDraw;
};
