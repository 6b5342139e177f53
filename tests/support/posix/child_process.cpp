#include "tests/support/child_process.h"

#include <cerrno>
#include <fcntl.h>
#include <signal.h>
#include <spawn.h>
#include <stdexcept>
#include <sys/wait.h>
#include <unistd.h>
#include <vector>

namespace tvr {

namespace {

std::string variable(const char* name, std::string_view value) {
    return std::string(name).append("=").append(value);
}

// Runs a line of a shell.
const child_role shell("shell", [](std::string_view line) {
    return execl("/bin/sh", "sh", "-c", std::string(line).c_str(), nullptr);
});

} // namespace

child_process::child_process(std::string_view role, std::string_view argument) {
    std::string program = "/proc/self/exe";
    std::string role_text = variable(role_variable, role);
    std::string argument_text = variable(argument_variable, argument);
    char* arguments[] = {program.data(), nullptr};
    std::vector<char*> environment = {role_text.data(), argument_text.data()};
    for (char** entry = environ; *entry != nullptr; ++entry)
        if (!std::string_view(*entry).starts_with("GTEST_"))
            environment.push_back(*entry);
    environment.push_back(nullptr);

    posix_spawn_file_actions_t actions;
    posix_spawn_file_actions_init(&actions);
    posix_spawn_file_actions_addopen(&actions, STDOUT_FILENO, "/dev/null", O_WRONLY, 0);
    const int failure = posix_spawn(&m_id, program.c_str(), &actions, nullptr, arguments, environment.data());
    posix_spawn_file_actions_destroy(&actions);
    if (failure != 0)
        throw std::runtime_error("no child process");
}

int child_process::kill() {
    if (m_id != 0)
        ::kill(m_id, SIGKILL);
    return join();
}

int child_process::join() {
    if (m_id != 0) {
        int status = 0;
        while (waitpid(m_id, &status, 0) < 0 && errno == EINTR)
            continue;
        m_id = 0;
        m_result = WIFEXITED(status) ? WEXITSTATUS(status) : killed;
    }
    return m_result;
}

int child_process::code_of(int exit_code) {
    return exit_code & 0xFF;
}

} // namespace tvr
