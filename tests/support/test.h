// What nearly every test needs.
#pragma once

#include <cstdint>
#include <filesystem>
#include <gtest/gtest.h>
#include <map>
#include <optional>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "platform/error.h"
#include "platform/file.h"
#include "tests/support/file_bytes.h"
#include "tests/support/test_root.h"

namespace tvr {

// Only reached by a fault: what is waited for in vain fails the test instead of hanging it.
constexpr std::uint32_t patience = 60'000; // milliseconds

inline testing::AssertionResult holds(std::string_view text, std::string_view part) {
    const bool found = text.find(part) != std::string_view::npos;
    return testing::AssertionResult(found) << '"' << part << (found ? "\" is in\n" : "\" isn't in\n") << text;
}

// The answer of a call of the platform that must fail, and by this error.
inline testing::AssertionResult failed_with(std::uint32_t error, bool answer) {
    const std::uint32_t found = platform::last_error();
    return testing::AssertionResult(!answer && found == error)
           << (answer ? "no failure"
                      : "error " + std::to_string(found) + " in place of " + std::to_string(error));
}

// A text as the platform's text files have it.
inline std::string text_form(std::string text) {
    for (std::size_t at = 0; (at = text.find('\n', at)) != std::string::npos;
         at += platform::line_end().size())
        text.replace(at, 1, platform::line_end());
    return text;
}

// Equal names and contents; tells only the names.
inline testing::AssertionResult same_files(const files& found, const files& expected) {
    const std::vector<std::string> lines = differences(found, expected);
    return testing::AssertionResult(lines.empty()) << testing::PrintToString(lines);
}

} // namespace tvr
