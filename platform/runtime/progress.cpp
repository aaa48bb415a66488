#include "kora/progress.h"

#include <signal.h>
#include <unistd.h>

#include <algorithm>
#include <string>

namespace {

volatile sig_atomic_t g_interrupted = 0;
bool g_meterRunning = false;
struct sigaction g_previousInterrupt;

void onInterrupt(int) { g_interrupted = 1; }

constexpr int kBarWidth = 30;

}  // namespace

KoProgressMeter::KoProgressMeter() : KoProgressMeter(Options()) {}

KoProgressMeter::KoProgressMeter(Options options) : m_options(std::move(options)) {}

KoProgressMeter::~KoProgressMeter() { end(); }

bool KoProgressMeter::begin(const KoString& title)
{
    if (g_meterRunning) return false;
    g_meterRunning = true;
    m_running = true;
    m_title = title;
    m_redraws = 0;
    m_terminal = isatty(m_options.fd) != 0;
    g_interrupted = 0;
    struct sigaction action = {};
    action.sa_handler = onInterrupt;
    sigemptyset(&action.sa_mask);
    sigaction(SIGINT, &action, &g_previousInterrupt);
    draw(0);
    return true;
}

bool KoProgressMeter::set(double fraction)
{
    if (!m_running) return true;
    if (g_interrupted) return false;
    if (m_options.clock() - m_lastDraw >= m_options.interval) draw(std::clamp(fraction, 0.0, 1.0));
    return true;
}

void KoProgressMeter::end()
{
    if (!m_running) return;
    m_running = false;
    g_meterRunning = false;
    sigaction(SIGINT, &g_previousInterrupt, nullptr);
    if (m_terminal) {
        const std::string blank = "\r" + std::string(m_title.toUtf8().size() + kBarWidth + 10, ' ') + "\r";
        [[maybe_unused]] const ssize_t written = write(m_options.fd, blank.data(), blank.size());
    }
}

bool KoProgressMeter::cancelled() const { return g_interrupted != 0 && m_running; }

void KoProgressMeter::draw(double fraction)
{
    m_lastDraw = m_options.clock();
    if (!m_terminal) return;
    ++m_redraws;
    const int filled = static_cast<int>(fraction * kBarWidth);
    const std::string line = "\r" + m_title.toUtf8() + " [" + std::string(filled, '#') +
                             std::string(kBarWidth - filled, ' ') + "] " + std::to_string(static_cast<int>(fraction * 100)) +
                             "%";
    [[maybe_unused]] const ssize_t written = write(m_options.fd, line.data(), line.size());
}
