// The process-wide log: each line is formatted, written and closed on the spot.
#pragma once

#include <cstdarg>
#include <cstdint>
#include <map>
#include <string>
#include <string_view>

#include "platform/sync.h"

namespace tvr {

// Log names. The default log is named after the module.
inline constexpr const char* default_log = nullptr;
inline constexpr const char* transact_log = "transact.log";
inline constexpr const char* profiler_log = "profiler.log";
inline constexpr const char* unit_test_log = "unit_test.log";

class logger {
public:
    // Bits of the flags (the registry value EnableKWILLog).
    static constexpr std::uint32_t short_stamp = 1; // time stamp without the date
    static constexpr std::uint32_t to_file = 2;
    static constexpr std::uint32_t to_debugger = 4;
    static constexpr std::uint32_t raw = 16;       // no time stamp, no line end
    static constexpr std::uint32_t thread_id = 32; // put the thread id before the text

    using writer_hook = void (*)(const char* name, std::string_view line);

    // The one logger of the process, built on first use; it reads its two registry values then.
    static logger& instance();
    // Ends logging: enabled() returns false from now on. Called once, last of all at process exit.
    static void shut_down() noexcept;

    // True if a line would go anywhere. Every log statement is guarded by it.
    static bool enabled() noexcept;
    static bool enabled(std::uint32_t level) noexcept; // the same with the level at least `level`

    logger();
    ~logger();
    logger(const logger&) = delete;
    logger& operator=(const logger&) = delete;

    // Where the default folder and the default log's name come from, and the log folder (may be empty).
    // To be called before the first line is written: the first one fixes the folder.
    void configure(std::string_view module_path, std::string_view folder);
    void set_writer_hook(writer_hook hook);

    // Formats and writes one line to the log `name` (null or empty: the default log). Any thread.
    // A line that can't be written is lost, silently.
    [[gnu::format(printf, 3, 4)]] bool log(const char* name, const char* format, ...);
    bool vlog(const char* name, const char* format, std::va_list arguments);

    // Puts the present log aside as its one old generation ("transact.log" becomes "transact.0").
    void rotate(const char* name);

    // The folder of the logs, with no trailing backslash; fixes it if no line was written yet.
    std::string folder();

private:
    std::string resolve(const char* name); // with the mutex held
    void resolve_folder();

    std::uint32_t m_flags = 0;
    writer_hook m_writer_hook = nullptr;
    platform::critical_section m_mutex;
    std::string m_module;
    std::uint32_t m_level = 1;
    std::string m_folder;
    std::map<std::string, std::string, std::less<>> m_names;
};

// The text "%0p" gives for an error code on the reference platform: 16 upper-case hexadecimal digits.
// For formats with "0x%0p", which are written "0x%s" here.
std::string pointer_text(std::uint64_t value);

} // namespace tvr

// One guarded log statement: TVR_LOG(transact_log, "[i] E_added");
#define TVR_LOG(name, ...)                                                                                   \
    do {                                                                                                     \
        if (::tvr::logger::enabled())                                                                        \
            ::tvr::logger::instance().log(name, __VA_ARGS__);                                                \
    } while (false)
