#include "platform/process.h"

#include <array>
#include <cstdlib>
#include <io.h>
#include <string>
#include <utility>
#include <vector>

#include "platform/error.h"
#include "platform/file.h"
#include "platform/win32/errors.h"
#include "platform/win32/handle.h"
#include "platform/win32/paths.h"

#include <psapi.h>
#include <shlobj.h>

namespace tvr::platform {

using win32::handle;

namespace {

constexpr std::intptr_t none = -1;

std::string file_of(HMODULE module) {
    std::array<char, MAX_PATH + 1> room{};
    return {room.data(), GetModuleFileNameA(module, room.data(), MAX_PATH)};
}

// The module that this code is linked into.
HMODULE own_module() {
    HMODULE module = nullptr;
    GetModuleHandleExA(GET_MODULE_HANDLE_EX_FLAG_FROM_ADDRESS | GET_MODULE_HANDLE_EX_FLAG_UNCHANGED_REFCOUNT,
                       reinterpret_cast<LPCSTR>(&own_module), &module);
    return module;
}

bool is_set(const std::string& name) {
    return GetEnvironmentVariableA(name.c_str(), nullptr, 0) != 0 || GetLastError() != ERROR_ENVVAR_NOT_FOUND;
}

std::string appdata_folder() {
    const auto moved = win32::moved_folder("appdata");
    return moved ? *moved : win32::known_folder(CSIDL_APPDATA);
}

bool same_letters(std::string_view a, const char* b) {
    return lstrcmpiA(std::string(a).c_str(), b) == 0;
}

// A string of the version block, or nothing.
std::optional<std::string> version_text(const std::vector<char>& block, const std::string& name) {
    void* text = nullptr;
    UINT length = 0;
    if (!VerQueryValueA(block.data(), ("\\StringFileInfo\\000004B0\\" + name).c_str(), &text, &length) ||
        length == 0)
        return std::nullopt;
    return static_cast<const char*>(text);
}

} // namespace

bool reserve_handles(unsigned) {
    return true;
}

std::uint32_t current_process_id() noexcept {
    return GetCurrentProcessId();
}

module_handle process_module() noexcept {
    return reinterpret_cast<module_handle>(GetModuleHandleA(nullptr));
}

std::string module_path() {
    return file_of(own_module());
}

bool start_process(std::string_view path, std::string_view arguments) {
    const std::string program = win32::native_path(path);
    std::string line;
    if (!arguments.empty())
        line.append("\"").append(program).append("\" ").append(arguments);
    STARTUPINFOA prc{};
    prc.cb = sizeof prc;
    prc.dwFlags = STARTF_USESTDHANDLES; // none: it outlives whoever reads the pipes and files of this one
    PROCESS_INFORMATION pinfo{};
    if (!CreateProcessA(program.c_str(), line.empty() ? nullptr : line.data(), nullptr, nullptr, FALSE,
                        NORMAL_PRIORITY_CLASS, nullptr, nullptr, &prc, &pinfo))
        return win32::fail_last();
    const handle thread(pinfo.hThread);
    const handle process(pinfo.hProcess);
    return true;
}

bool terminate_process(std::uint32_t process_id, std::int32_t exit_code) {
    process_handle process;
    return process.open(process_id) && process.terminate(exit_code);
}

bool process_handle::open(std::uint32_t process_id) {
    close();
    const HANDLE opened = OpenProcess(PROCESS_TERMINATE, FALSE, process_id);
    if (opened == nullptr)
        return win32::fail_last();
    m_handle = reinterpret_cast<std::intptr_t>(opened);
    // One that has ended stays to be opened while somebody holds it.
    if (process_exists(process_id))
        return true;
    close();
    return win32::fail(error::invalid_parameter);
}

void process_handle::close() noexcept {
    if (m_handle != none)
        CloseHandle(reinterpret_cast<HANDLE>(std::exchange(m_handle, none)));
}

bool process_handle::terminate(std::int32_t exit_code) {
    if (m_handle == none)
        return win32::fail(error::invalid_handle);
    return win32::succeeded(
        TerminateProcess(reinterpret_cast<HANDLE>(m_handle), static_cast<UINT>(exit_code)));
}

bool process_exists(std::uint32_t process_id) {
    const handle process(OpenProcess(SYNCHRONIZE, FALSE, process_id));
    return process.is_open() ? WaitForSingleObject(process.get(), 0) == WAIT_TIMEOUT
                             : GetLastError() == ERROR_ACCESS_DENIED;
}

std::optional<std::uint64_t> peak_memory(std::uint32_t process_id) {
    const handle process(OpenProcess(PROCESS_QUERY_LIMITED_INFORMATION, FALSE, process_id));
    PROCESS_MEMORY_COUNTERS counters{};
    if (!process.is_open() || !K32GetProcessMemoryInfo(process.get(), &counters, sizeof counters))
        return std::nullopt;
    return counters.PeakWorkingSetSize;
}

std::optional<std::uint64_t> process_start(std::uint32_t process_id) {
    const handle process(OpenProcess(PROCESS_QUERY_LIMITED_INFORMATION, FALSE, process_id));
    FILETIME begun{}, ended{}, kernel{}, user{};
    if (!process_exists(process_id) || !process.is_open() ||
        !GetProcessTimes(process.get(), &begun, &ended, &kernel, &user))
        return std::nullopt;
    return static_cast<std::uint64_t>(begun.dwHighDateTime) << 32 | begun.dwLowDateTime;
}

void exit_process(std::int32_t exit_code) noexcept {
    ExitProcess(static_cast<UINT>(exit_code));
}

void only_look() noexcept {} // the system has made them

std::string runtime_folder() {
    auto folder = win32::moved_folder("run");
    if (!folder) {
        const std::string local = win32::known_folder(CSIDL_LOCAL_APPDATA);
        folder = local.empty() ? local : local + "\\Tessivar\\run";
        if (!folder->empty() && !win32::make_folders(*folder))
            folder->clear();
    }
    return folder->empty() ? *folder : *folder + "\\";
}

std::string common_appdata_folder() {
    const auto moved = win32::moved_folder("common");
    return moved ? *moved : win32::known_folder(CSIDL_COMMON_APPDATA);
}

std::optional<std::string> environment_variable(std::string_view name) {
    const std::string own(name);
    std::string value;
    // Another thread may make it longer between two calls.
    for (DWORD size = 128; value.size() < size;) {
        value.resize(size);
        SetLastError(ERROR_SUCCESS);
        size = GetEnvironmentVariableA(own.c_str(), value.data(), static_cast<DWORD>(value.size()));
        if (size == 0 && GetLastError() != ERROR_SUCCESS)
            return std::nullopt;
        if (size < value.size()) {
            value.resize(size);
            return value;
        }
    }
    return std::nullopt;
}

bool set_environment_variable(std::string_view name, std::string_view value) {
    const std::string own(name);
    const std::string text(value);
    // The run-time library keeps a copy of its own, and takes an empty value for none.
    _putenv_s(own.c_str(), text.c_str());
    return win32::succeeded(SetEnvironmentVariableA(own.c_str(), text.c_str()));
}

std::string expand_environment(std::string_view text) {
    // "appdata" is replaced here, since a moved root has a folder of its own for it; the system does the
    // rest.
    std::string prepared;
    while (!text.empty()) {
        const std::size_t start = text.find('%');
        const std::size_t end = start == std::string_view::npos ? start : text.find('%', start + 1);
        if (end == std::string_view::npos)
            break;
        const std::string name(text.substr(start + 1, end - start - 1));
        prepared += text.substr(0, start);
        if (same_letters(name, "appdata")) {
            const std::string folder = appdata_folder();
            if (folder.empty())
                return {};
            prepared += folder;
            text.remove_prefix(end + 1);
            continue;
        }
        // The second sign of an unknown name may begin another one.
        const std::size_t taken = !name.empty() && is_set(name) ? end + 1 : end;
        prepared += text.substr(start, taken - start);
        text.remove_prefix(taken);
    }
    prepared += text;
    std::string out;
    for (DWORD size = static_cast<DWORD>(prepared.size()) + MAX_PATH; out.size() < size;) {
        out.resize(size);
        size = ExpandEnvironmentStringsA(prepared.c_str(), out.data(), size);
        if (size == 0)
            return prepared;
    }
    out.resize(out.find('\0'));
    return out;
}

bool is_terminal(std::FILE* stream) noexcept {
    return _isatty(_fileno(stream)) != 0;
}

void debug_output(std::string_view text) noexcept {
    OutputDebugStringA(std::string(text).c_str());
}

bool message_box(std::string_view text, std::string_view title) noexcept {
    // deliberate: nobody watches a moved root, and so nobody would close the box
    if (win32::moved_root()) {
        std::fprintf(stderr, "%.*s: %.*s\n", static_cast<int>(title.size()), title.data(),
                     static_cast<int>(text.size()), text.data());
        return false;
    }
    return MessageBoxA(nullptr, std::string(text).c_str(), std::string(title).c_str(), MB_OK) != 0;
}

std::optional<version_info> module_version() {
    const std::string file = file_of(nullptr);
    DWORD ignored = 0;
    const DWORD size = GetFileVersionInfoSizeA(file.c_str(), &ignored);
    std::vector<char> block(size);
    if (size == 0 || !GetFileVersionInfoA(file.c_str(), 0, size, block.data())) {
        win32::fail_last();
        return std::nullopt;
    }
    return version_info{version_text(block, "ProductName").value_or(std::string()),
                        version_text(block, "ProductVersion").value_or(std::string())};
}

std::string resource_string(std::uint32_t number) {
    constexpr std::size_t step = 256;
    std::string text;
    int length = 0;
    do {
        text.resize(text.size() + step);
        length = LoadStringA(own_module(), number, text.data(), static_cast<int>(text.size()));
    } while (static_cast<std::size_t>(length) + 2 >= text.size());
    text.resize(static_cast<std::size_t>(length));
    return text;
}

} // namespace tvr::platform
