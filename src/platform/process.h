// This process, other processes, and what the user sees of them.
#pragma once

#include <cstdint>
#include <cstdio>
#include <optional>
#include <string>
#include <string_view>

namespace tvr::platform {

std::uint32_t current_process_id() noexcept;
// Stands for the executable of this process; never 0.
using module_handle = std::uintptr_t;
module_handle process_module() noexcept;
// The path of the executable, or of the shared library that this code is linked into.
std::string module_path();
// Starts a program, detached from this one. False sets last_error().
bool start_process(std::string_view path, std::string_view arguments = {});
// Ends a process at once. False sets last_error(): 5 if it isn't ours, 87 if there is none.
bool terminate_process(std::uint32_t process_id, std::int32_t exit_code);

// Another process, opened with the right to end it. Closed by the destructor.
class process_handle {
public:
    process_handle() noexcept = default;
    ~process_handle() { close(); }
    process_handle(const process_handle&) = delete;
    process_handle& operator=(const process_handle&) = delete;

    // 5 if the process isn't ours, 87 if there is none.
    bool open(std::uint32_t process_id);
    void close() noexcept;
    // Ends it at once. False sets last_error().
    bool terminate(std::int32_t exit_code);
    void leave_open() noexcept { m_handle = -1; } // until this process ends

private:
    std::intptr_t m_handle = -1; // the backend's own
};

// True while a process of this number exists.
bool process_exists(std::uint32_t process_id);
// The most memory that a process has had in use since its start (bytes); nothing if that can't be told.
std::optional<std::uint64_t> peak_memory(std::uint32_t process_id);
// When a process began: 100 ns units since 1601-01-01 UTC; nothing if that can't be told.
std::optional<std::uint64_t> process_start(std::uint32_t process_id);
// Ends this process at once: no destructors, no exit routines.
[[noreturn]] void exit_process(std::int32_t exit_code) noexcept;

// Takes what the system lets this process have of open files and the like, and returns whether `count` more
// of them can be open at a time. Always true on the reference platform, which sets no such limit.
bool reserve_handles(unsigned count);

// From now on this process makes none of the folders below by itself: for those who only look.
void only_look() noexcept;
// The folder of run-time objects, private to the user, with a trailing backslash.
std::string runtime_folder();
// The folder of application data of all users, without a trailing backslash; empty on failure.
std::string common_appdata_folder();
// Replaces each %name% by the environment's value, "appdata" (in any case) by the user's folder of
// application data; an unknown name stays as it is. Empty if that folder is asked for and isn't available.
std::string expand_environment(std::string_view text);
// The value of an environment variable, or nothing.
std::optional<std::string> environment_variable(std::string_view name);
// Changes it for this process and those that it starts. To be called while there is one thread.
bool set_environment_variable(std::string_view name, std::string_view value);

// True if the stream is a terminal.
bool is_terminal(std::FILE* stream) noexcept;

// A line for the debugger channel (standard error where there is no debugger).
void debug_output(std::string_view text) noexcept;
// Shows a text to the user and waits for him. Where there is no desktop, or for a moved root, the text goes
// to the standard error and, without a root, to the system's journal; false then.
bool message_box(std::string_view text, std::string_view title) noexcept;

struct version_info {
    std::string product_name;
    std::string product_version;
};
// The version resource of the executable, or nothing if it has none.
std::optional<version_info> module_version();
// A text of the executable's string table; empty if there is none of that number.
std::string resource_string(std::uint32_t number);

} // namespace tvr::platform
