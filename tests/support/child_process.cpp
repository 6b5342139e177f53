#include "tests/support/child_process.h"

#include <cstdlib>
#include <gtest/gtest.h>
#include <map>
#include <utility>

namespace tvr {

namespace {

std::map<std::string, child_role::body, std::less<>>& roles() {
    static std::map<std::string, child_role::body, std::less<>> all;
    return all;
}

// In a child, runs its role before the first test and ends the process.
class role_runner : public testing::Environment {
public:
    void SetUp() override {
        const char* name = std::getenv(child_process::role_variable);
        if (name == nullptr || *name == '\0')
            return;
        const auto role = roles().find(std::string_view(name));
        const char* argument = std::getenv(child_process::argument_variable);
        std::_Exit(role != roles().end() ? role->second(argument != nullptr ? argument : "") : 125);
    }
};

const testing::Environment* const runner = testing::AddGlobalTestEnvironment(new role_runner);

} // namespace

child_role::child_role(std::string_view name, body run) {
    roles().emplace(name, run);
}

child_process::~child_process() {
    kill();
}

child_process::child_process(child_process&& other) noexcept
    : m_id(std::exchange(other.m_id, 0)), m_handle(std::exchange(other.m_handle, 0)),
      m_result(other.m_result) {}

child_process& child_process::operator=(child_process&& other) noexcept {
    kill();
    m_id = std::exchange(other.m_id, 0);
    m_handle = std::exchange(other.m_handle, 0);
    m_result = other.m_result;
    return *this;
}

} // namespace tvr
