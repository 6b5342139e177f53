#include "tools/progress.h"

#include <algorithm>
#include <cstdio>
#include <utility>

#include "platform/clock.h"
#include "platform/process.h"

namespace tvr {

namespace {

constexpr std::uint32_t pause = 100;    // milliseconds between two drawings
constexpr std::uint32_t silence = 2000; // milliseconds of work, off a terminal
constexpr unsigned width = 30;          // characters of the bar

} // namespace

progress::progress(std::string what, bool quiet)
    : m_what(std::move(what)), m_quiet(quiet), m_terminal(platform::is_terminal(stderr)),
      m_start(platform::tick_count()) {}

progress::~progress() {
    clear();
}

void progress::clear() {
    if (m_visible)
        std::fputs("\r\x1b[K", stderr);
    m_visible = false;
}

void progress::show(std::uint64_t done, std::uint64_t total, const std::string& note) {
    if (m_quiet || total == 0)
        return;
    const double part = std::min(1.0, static_cast<double>(done) / static_cast<double>(total));
    if (m_terminal) {
        const std::uint32_t now = platform::tick_count();
        if (m_visible && now - m_last < pause)
            return;
        m_last = now;
        m_visible = true;
        const auto filled = static_cast<unsigned>(part * width);
        std::fprintf(stderr, "\r\x1b[K%s [%s%s] %3.0f %%  %s", m_what.c_str(),
                     std::string(filled, '#').c_str(), std::string(width - filled, ' ').c_str(), part * 100,
                     note.c_str());
        std::fflush(stderr);
        return;
    }
    const auto quarter = static_cast<unsigned>(part * 4);
    const bool is_new = quarter > m_quarter;
    m_quarter = std::max(quarter, m_quarter);
    if (!is_new || platform::tick_count() - m_start < silence)
        return;
    std::fprintf(stderr, "%s: %u %%, %s\n", m_what.c_str(), quarter * 25, note.c_str());
}

} // namespace tvr
