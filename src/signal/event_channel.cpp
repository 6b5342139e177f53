#include "signal/event_channel.h"

#include "common/bytes.h"
#include "common/logger.h"
#include "platform/error.h"
#include "platform/file.h"
#include "platform/presence.h"
#include "signal/identity.h"

namespace tvr {

namespace {

constexpr std::array<std::string_view, 4> event_names = {"tessivar_add", "tessivar_train", "tessivar_reset",
                                                         "tessivar_shutdown"};

// One open of the flag file. deliberate: it is opened for writing alone, so a read delivers nothing and
// counts as the word 0.
class flag_file {
public:
    explicit flag_file(const std::string& path) {
        if (!m_file.open(path, platform::access::write, platform::share::read_write,
                         platform::creation::open_always, platform::attribute::temporary))
            m_busy = platform::last_error() == platform::error::sharing_violation;
    }

    [[nodiscard]] bool busy() const { return m_busy; }

    std::uint32_t read() {
        std::array<std::uint8_t, 4> word{};
        std::size_t got = 0;
        return m_file.read(word.data(), word.size(), got) && got == word.size() ? load_u32(word.data()) : 0;
    }

    void write(std::uint32_t value) {
        std::array<std::uint8_t, 4> word{};
        store_u32(word.data(), value);
        m_file.write(word.data(), word.size());
        m_file.flush();
        m_file.close();
    }

private:
    platform::file m_file;
    bool m_busy = false;
};

} // namespace

event_channel::event_channel() {
    bool all = true;
    for (std::size_t i = 0; i < m_events.size(); ++i) {
        if (m_events[i].create_named(event_names[i]))
            continue;
        const std::uint32_t code = platform::last_error();
        TVR_LOG(default_log, "[-] CreateEvent failed. Error is 0x%08X", code);
        all = false;
    }
    m_private_message = platform::register_private_message(terminate_message);
    m_ok = all;
}

event_channel::~event_channel() = default;

void event_channel::set_file(std::string_view path) {
    m_file_name = path;
    if (platform::get_attributes(m_file_name))
        return;
    flag_file file(m_file_name);
    if (!file.busy())
        file.write(0);
}

void event_channel::raise(std::uint32_t number) {
    if (number < m_events.size())
        m_events[number].set();
    // deliberate: with the file in place a raise is the event alone.
    if (platform::get_attributes(m_file_name))
        return;
    flag_file file(m_file_name);
    if (!file.busy())
        file.write(file.read() | 1U << number % 32);
}

bool event_channel::is_pending(std::uint32_t number) const {
    return number < m_events.size() && m_events[number].is_signalled();
}

std::uint32_t event_channel::wait(std::uint32_t milliseconds) {
    if (!m_ok) {
        TVR_LOG(default_log, "[i] Returning ev_timeout due to error in previous ::CreateEvent");
        return ev_timeout;
    }
    const std::array<platform::event*, 4> all = {&m_events[0], &m_events[1], &m_events[2], &m_events[3]};
    const std::uint32_t answer = platform::wait_any(all, milliseconds);
    return answer < ev_timeout ? answer : std::uint32_t{ev_timeout};
}

void event_channel::replay() {
    if (platform::get_attributes(m_file_name))
        return;
    flag_file file(m_file_name);
    if (file.busy())
        return;
    const std::uint32_t old = file.read();
    file.write(0);
    for (std::uint32_t i = 0; i < m_events.size(); ++i)
        if (old & 1U << i)
            m_events[i].set();
}

} // namespace tvr
