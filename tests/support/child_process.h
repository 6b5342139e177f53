// Further processes of the running test program.
//
// A test program gives names to the bodies that its children run:
//
//     const child_role holder("holder", [](std::string_view argument) { ...; return 0; });
//     TEST(...) { child_process child("holder", "argument"); ... child.kill(); ... }
//
// A child is started again and runs the body in place of the tests; it shares nothing with its parent but
// the environment, and so TESSIVAR_ROOT.
#pragma once

#include <cstdint>
#include <string>
#include <string_view>

namespace tvr {

class child_role {
public:
    using body = int (*)(std::string_view argument); // answers the exit code

    child_role(std::string_view name, body run);
};

class child_process {
public:
    static constexpr int killed = -1;
    // What tells a process that it is a child, for those who start one by other means.
    static constexpr const char* role_variable = "TVR_CHILD_ROLE";
    static constexpr const char* argument_variable = "TVR_CHILD_ARGUMENT";

    explicit child_process(std::string_view role, std::string_view argument = {});
    ~child_process(); // kills it if it still runs
    child_process(child_process&& other) noexcept;
    child_process& operator=(child_process&& other) noexcept;
    child_process(const child_process&) = delete;
    child_process& operator=(const child_process&) = delete;

    [[nodiscard]] std::uint32_t id() const { return static_cast<std::uint32_t>(m_id); }
    // Ends it at once, at whatever instruction it is; answers as join() does.
    int kill();
    // Waits for its end and answers its exit code, or `killed`.
    int join();
    // What join() answers for a process that ends with this code.
    static int code_of(int exit_code);

private:
    int m_id = 0;               // 0: ended
    std::intptr_t m_handle = 0; // the backend's own
    int m_result = 0;
};

} // namespace tvr
