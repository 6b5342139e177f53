// The log lines of the test's own process.
#pragma once

#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "common/logger.h"
#include "platform/registry.h"

namespace tvr {

// One object at a time, with a test_root in place. It builds the logger of the process, whose flags stay: a
// program must not build it in another way before.
class log_lines {
public:
    using listener = void (*)(const std::string& line); // called on the thread that logs

    log_lines() {
        platform::registry_key key;
        if (key.create(platform::registry_root::local_machine, "Software"))
            key.set("EnableKWILLog", platform::registry_type::dword, std::string_view("\x12\0\0\0", 4));
        current = this;
        logger::instance().set_writer_hook([](const char* name, std::string_view line) {
            current->m_lines.push_back((name ? name + std::string(": ") : "").append(line));
            if (current->m_listener)
                current->m_listener(current->m_lines.back());
        });
    }
    ~log_lines() {
        logger::instance().set_writer_hook([](const char*, std::string_view) {});
    }
    log_lines(const log_lines&) = delete;
    log_lines& operator=(const log_lines&) = delete;

    void listen(listener heard) { m_listener = heard; }
    // The lines since the last call, each with its log's name ("transact.log: ") unless that is the default.
    std::vector<std::string> take() { return std::exchange(m_lines, {}); }

private:
    static inline log_lines* current = nullptr;
    listener m_listener = nullptr;
    std::vector<std::string> m_lines;
};

} // namespace tvr
