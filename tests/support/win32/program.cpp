#include "tests/support/program.h"

#include <array>
#include <stdexcept>

#include "common/path.h"
#include "platform/win32/handle.h"

namespace tvr {

using platform::win32::handle;

namespace {

constexpr DWORD pause = 5; // milliseconds

} // namespace

program_result run_program(const std::string& name, const std::string& arguments) {
    SECURITY_ATTRIBUTES inherited{sizeof inherited, nullptr, TRUE};
    HANDLE ends[2] = {};
    if (!CreatePipe(&ends[0], &ends[1], &inherited, 0))
        throw std::runtime_error("no pipe");
    const handle reading(ends[0]);
    handle writing(ends[1]);
    SetHandleInformation(reading.get(), HANDLE_FLAG_INHERIT, 0);
    const handle nothing(CreateFileA("NUL", GENERIC_READ, FILE_SHARE_READ | FILE_SHARE_WRITE, &inherited,
                                     OPEN_EXISTING, 0, nullptr));
    STARTUPINFOA start{};
    start.cb = sizeof start;
    start.dwFlags = STARTF_USESTDHANDLES;
    start.hStdInput = nothing.get();
    start.hStdOutput = writing.get();
    start.hStdError = writing.get();
    PROCESS_INFORMATION made{};
    const std::string program = module_folder() + name + ".exe";
    std::string line = "\"" + program + "\" " + arguments;
    if (arguments.find_first_of("<>") != std::string::npos)
        line = "cmd /s /c \"" + line + "\"";
    if (!CreateProcessA(nullptr, line.data(), nullptr, nullptr, TRUE, 0, nullptr, nullptr, &start, &made))
        throw std::runtime_error("no " + name);
    CloseHandle(made.hThread);
    const handle process(made.hProcess);
    writing.close();

    program_result result;
    std::array<char, 4096> piece;
    // Not to the end of the pipe: an engine that the program has started may hold it.
    for (DWORD waiting = 0, ended = WAIT_TIMEOUT;;) {
        if (!PeekNamedPipe(reading.get(), nullptr, 0, nullptr, &waiting, nullptr))
            waiting = 0;
        if (waiting == 0 && ended == WAIT_OBJECT_0)
            break;
        DWORD got = 0;
        if (waiting == 0)
            ended = WaitForSingleObject(process.get(), pause);
        else if (ReadFile(reading.get(), piece.data(), piece.size(), &got, nullptr))
            result.text.append(piece.data(), got);
    }
    DWORD code = 0;
    GetExitCodeProcess(process.get(), &code);
    result.code = static_cast<int>(code);
    return result;
}

} // namespace tvr
