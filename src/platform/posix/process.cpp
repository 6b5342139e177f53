#include "platform/process.h"

#include <algorithm>
#include <cerrno>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <ctime>
#include <dlfcn.h>
#include <fcntl.h>
#include <fstream>
#include <link.h>
#include <memory>
#include <spawn.h>
#include <sstream>
#include <string>
#include <sys/eventfd.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <sys/wait.h>
#include <syslog.h>
#include <unistd.h>
#include <utility>
#include <vector>

#include "platform/clock.h"
#include "platform/error.h"
#include "platform/file.h"
#include "platform/posix/descriptor.h"
#include "platform/posix/errors.h"
#include "platform/posix/file_state.h"
#include "platform/posix/paths.h"

namespace tvr::platform {

using namespace posix;

namespace {

// The executable that a name of the reference platform means: the suffix falls away if there is no such
// file.
std::string executable_of(std::string_view path) {
    std::string native = native_path(path);
    struct stat facts {};
    constexpr std::string_view suffix = ".exe";
    if (stat(native.c_str(), &facts) != 0 && native.ends_with(suffix))
        native.resize(native.size() - suffix.size());
    return native;
}

std::vector<std::string> split_words(std::string_view text) {
    std::vector<std::string> words;
    while (!text.empty()) {
        const std::size_t blank = text.find(' ');
        if (blank != 0)
            words.emplace_back(text.substr(0, blank));
        text.remove_prefix(blank == std::string_view::npos ? text.size() : blank + 1);
    }
    return words;
}

// In the child of the child: everything that follows is safe after fork.
[[noreturn]] void become(const char* program, char* const* arguments, int report) {
    setsid();
    signal(SIGPIPE, SIG_DFL); // also where the parent ignores it
    const int null = open("/dev/null", O_RDWR | O_CLOEXEC);
    for (int number = 0; number < 3; ++number)
        dup2(null, number);
    close_range(3, ~0U, CLOSE_RANGE_CLOEXEC);
    execve(program, arguments, environ);
    const int code = errno;
    if (write(report, &code, sizeof code) < 0)
        _exit(126);
    _exit(127);
}

std::string resolved(const char* path) {
    const std::unique_ptr<char, void (*)(void*)> absolute(realpath(path, nullptr), std::free);
    return absolute ? absolute.get() : "";
}

// The file that this code was loaded from. The name of a library may be relative to the folder that was the
// current one then.
std::string find_own_module() {
    Dl_info facts{};
    link_map* module = nullptr;
    if (dladdr1(reinterpret_cast<void*>(&find_own_module), &facts, reinterpret_cast<void**>(&module),
                RTLD_DL_LINKMAP) != 0 &&
        module != nullptr && *module->l_name != '\0')
        return *module->l_name == '/' ? module->l_name : resolved(module->l_name);
    return resolved("/proc/self/exe");
}

const std::string own_module = find_own_module();

// What the system tells of a process, from its state on, which is field 3.
std::istringstream facts_of(std::uint32_t process_id) {
    std::ifstream facts("/proc/" + std::to_string(process_id) + "/stat");
    std::string line;
    std::getline(facts, line);
    const std::size_t name_end = line.rfind(')'); // a name may hold brackets and blanks
    return std::istringstream(name_end == std::string::npos ? std::string() : line.substr(name_end + 1));
}

bool send_signal(std::intptr_t process, int number) {
    return syscall(SYS_pidfd_send_signal, process, number, nullptr, 0) == 0;
}

bool same_letters(std::string_view a, std::string_view b) {
    return a.size() == b.size() && strncasecmp(a.data(), b.data(), a.size()) == 0;
}

} // namespace

bool reserve_handles(unsigned count) {
    constexpr rlim_t most = 1U << 20;
    rlimit limit{};
    if (getrlimit(RLIMIT_NOFILE, &limit) == 0 && limit.rlim_cur < std::min(limit.rlim_max, most)) {
        limit.rlim_cur = std::min(limit.rlim_max, most);
        setrlimit(RLIMIT_NOFILE, &limit);
    }
    std::vector<descriptor> all;
    while (all.size() < count) {
        all.emplace_back(eventfd(0, EFD_CLOEXEC));
        if (!all.back().is_open())
            return fail_errno();
    }
    return true;
}

std::uint32_t current_process_id() noexcept {
    return static_cast<std::uint32_t>(getpid());
}

module_handle process_module() noexcept {
    static const char executable = 0; // there is one of these in a process
    return reinterpret_cast<module_handle>(&executable);
}

std::string module_path() {
    return engine_path(own_module);
}

bool start_process(std::string_view path, std::string_view arguments) {
    const std::string program = executable_of(path);
    std::vector<std::string> words = split_words(arguments);
    words.insert(words.begin(), program);
    std::vector<char*> pointers;
    pointers.reserve(words.size() + 1);
    for (std::string& word : words)
        pointers.push_back(word.data());
    pointers.push_back(nullptr);

    int ends[2];
    if (pipe2(ends, O_CLOEXEC) != 0)
        return fail_errno();
    descriptor reading(ends[0]);
    descriptor writing(ends[1]);
    const pid_t child = fork();
    if (child < 0)
        return fail_errno();
    if (child == 0) {
        constexpr int report = 3;
        dup2(writing.get(), report);
        close_range(report + 1, ~0U, 0); // or they hold files that the parent closes meanwhile
        if (fork() == 0)
            become(program.c_str(), pointers.data(), report);
        _exit(0);
    }
    writing.close();
    while (waitpid(child, nullptr, 0) < 0 && errno == EINTR) {
    }
    int code = 0;
    if (read(reading.get(), &code, sizeof code) == static_cast<ssize_t>(sizeof code)) {
        errno = code;
        return fail_path(program);
    }
    return true;
}

bool terminate_process(std::uint32_t process_id, std::int32_t exit_code) {
    process_handle process;
    return process.open(process_id) && process.terminate(exit_code);
}

bool process_handle::open(std::uint32_t process_id) {
    close();
    const auto pid = static_cast<pid_t>(process_id);
    m_handle = pid > 0 ? syscall(SYS_pidfd_open, pid, 0) : -1;
    if (m_handle < 0)
        return fail(error::invalid_parameter);
    if (send_signal(m_handle, 0))
        return true;
    const std::uint32_t code = errno == EPERM ? error::access_denied : error::invalid_parameter;
    close();
    return fail(code);
}

void process_handle::close() noexcept {
    const descriptor closed(static_cast<int>(std::exchange(m_handle, -1)));
}

bool process_handle::terminate(std::int32_t) {
    return send_signal(m_handle, SIGKILL) ||
           fail(m_handle < 0 ? error::invalid_handle : error::access_denied);
}

bool process_exists(std::uint32_t process_id) {
    const auto pid = static_cast<pid_t>(process_id);
    if (pid <= 0 || (kill(pid, 0) != 0 && errno != EPERM))
        return false;
    // One that has ended to its last thread, but whose parent hasn't looked, is no process any more.
    std::istringstream fields = facts_of(process_id);
    std::string state;
    fields >> state;
    long number = 0;
    for (int field = 4; field <= 20 && fields >> number; ++field) {
    }
    return state != "Z" || number > 1; // threads
}

bool is_terminal(std::FILE* stream) noexcept {
    return isatty(fileno(stream)) != 0;
}

std::optional<std::uint64_t> peak_memory(std::uint32_t process_id) {
    std::ifstream facts("/proc/" + std::to_string(process_id) + "/status");
    constexpr std::string_view name = "VmHWM:";
    for (std::string line; std::getline(facts, line);)
        if (line.starts_with(name))
            return std::strtoull(line.c_str() + name.size(), nullptr, 10) * 1024;
    return std::nullopt;
}

std::optional<std::uint64_t> process_start(std::uint32_t process_id) {
    std::istringstream fields = facts_of(process_id);
    std::string other;
    for (int field = 3; field < 22; ++field)
        fields >> other;
    std::uint64_t begun = 0; // ticks since the system's start
    timespec now{};
    if (!(fields >> begun) || clock_gettime(CLOCK_BOOTTIME, &now) != 0)
        return std::nullopt;
    const auto rate = static_cast<std::uint64_t>(sysconf(_SC_CLK_TCK));
    const timespec start{static_cast<time_t>(begun / rate),
                         static_cast<long>(begun % rate * 1'000'000'000 / rate)};
    const std::uint64_t present = to_file_time(now);
    return system_time() - (present - std::min(to_file_time(start), present));
}

void exit_process(std::int32_t exit_code) noexcept {
    _exit(exit_code & 255);
}

std::string runtime_folder() {
    const std::string folder = native_runtime_folder();
    return folder.empty() ? std::string() : engine_path(folder) + "\\";
}

std::string common_appdata_folder() {
    const std::string folder = native_common_folder();
    return folder.empty() ? std::string() : engine_path(folder);
}

std::optional<std::string> environment_variable(std::string_view name) {
    const char* value = std::getenv(std::string(name).c_str());
    return value ? std::optional<std::string>(value) : std::nullopt;
}

bool set_environment_variable(std::string_view name, std::string_view value) {
    return setenv(std::string(name).c_str(), std::string(value).c_str(), 1) == 0 || fail_errno();
}

std::string expand_environment(std::string_view text) {
    std::string out;
    while (!text.empty()) {
        const std::size_t start = text.find('%');
        out += text.substr(0, start);
        if (start == std::string_view::npos)
            break;
        const std::size_t end = text.find('%', start + 1);
        if (end == std::string_view::npos) {
            out += text.substr(start);
            break;
        }
        const std::string_view name = text.substr(start + 1, end - start - 1);
        if (same_letters(name, "appdata")) {
            const std::string folder = native_appdata_folder();
            if (folder.empty())
                return {};
            out += engine_path(folder);
        } else if (const auto value = environment_variable(name); value && !name.empty()) {
            out += engine_path(*value);
        } else {
            // An unknown name stays, and its second sign may begin another one.
            out += text.substr(start, end - start);
            text.remove_prefix(end);
            continue;
        }
        text.remove_prefix(end + 1);
    }
    return out;
}

void debug_output(std::string_view text) noexcept {
    std::fwrite(text.data(), 1, text.size(), stderr);
}

bool message_box(std::string_view text, std::string_view title) noexcept {
    const auto title_size = static_cast<int>(title.size());
    const auto text_size = static_cast<int>(text.size());
    std::fprintf(stderr, "%.*s: %.*s\n", title_size, title.data(), text_size, text.data());
    if (std::getenv("TESSIVAR_ROOT") == nullptr)
        syslog(LOG_USER | LOG_ERR, "%.*s: %.*s", title_size, title.data(), text_size, text.data());
    return false;
}

std::optional<version_info> module_version() {
    return std::nullopt;
}

std::string resource_string(std::uint32_t) {
    return {};
}

} // namespace tvr::platform
