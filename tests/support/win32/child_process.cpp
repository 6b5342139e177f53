#include "tests/support/child_process.h"

#include <memory>
#include <stdexcept>
#include <utility>

#include "platform/process.h"
#include "platform/win32/handle.h"

namespace tvr {

namespace {

// The environment of a child: this process's own without the settings of the tests, and two variables more.
std::string environment_block(std::string_view role, std::string_view argument) {
    std::string block;
    const auto add = [&](std::string_view entry) { block.append(entry).append(1, '\0'); };
    add(std::string(child_process::role_variable).append("=").append(role));
    add(std::string(child_process::argument_variable).append("=").append(argument));
    const std::unique_ptr<char, BOOL(WINAPI*)(LPCH)> own(GetEnvironmentStringsA(), FreeEnvironmentStringsA);
    for (const char* entry = own.get(); *entry != '\0'; entry += std::string_view(entry).size() + 1)
        if (!std::string_view(entry).starts_with("GTEST_") &&
            !std::string_view(entry).starts_with("TVR_CHILD_"))
            add(entry);
    block += '\0';
    return block;
}

} // namespace

child_process::child_process(std::string_view role, std::string_view argument) {
    SECURITY_ATTRIBUTES inherited{sizeof inherited, nullptr, TRUE};
    const platform::win32::handle nowhere(CreateFileA(
        "NUL", GENERIC_WRITE, FILE_SHARE_READ | FILE_SHARE_WRITE, &inherited, OPEN_EXISTING, 0, nullptr));
    STARTUPINFOA start{};
    start.cb = sizeof start;
    start.dwFlags = STARTF_USESTDHANDLES;
    start.hStdOutput = nowhere.get();
    start.hStdError = GetStdHandle(STD_ERROR_HANDLE);
    PROCESS_INFORMATION made{};
    std::string environment = environment_block(role, argument);
    if (!CreateProcessA(platform::module_path().c_str(), nullptr, nullptr, nullptr, TRUE, 0,
                        environment.data(), nullptr, &start, &made))
        throw std::runtime_error("no child process");
    CloseHandle(made.hThread);
    m_id = static_cast<int>(made.dwProcessId);
    m_handle = reinterpret_cast<std::intptr_t>(made.hProcess);
}

int child_process::kill() {
    if (m_id != 0)
        TerminateProcess(reinterpret_cast<HANDLE>(m_handle), static_cast<UINT>(killed));
    return join();
}

int child_process::join() {
    if (m_id != 0) {
        const platform::win32::handle process(reinterpret_cast<HANDLE>(std::exchange(m_handle, 0)));
        DWORD code = 0;
        WaitForSingleObject(process.get(), INFINITE);
        GetExitCodeProcess(process.get(), &code);
        m_id = 0;
        m_result = static_cast<int>(code);
    }
    return m_result;
}

int child_process::code_of(int exit_code) {
    return exit_code;
}

} // namespace tvr
