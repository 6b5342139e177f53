// What nearly every test needs.
#pragma once

#include <filesystem>
#include <gtest/gtest.h>
#include <map>
#include <optional>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "tests/support/file_bytes.h"
#include "tests/support/test_root.h"

namespace tvr {

inline testing::AssertionResult holds(std::string_view text, std::string_view part) {
    const bool found = text.find(part) != std::string_view::npos;
    return testing::AssertionResult(found) << '"' << part << (found ? "\" is in\n" : "\" isn't in\n") << text;
}

// Equal names and contents; tells only the names.
inline testing::AssertionResult same_files(const files& found, const files& expected) {
    const std::vector<std::string> lines = differences(found, expected);
    return testing::AssertionResult(lines.empty()) << testing::PrintToString(lines);
}

} // namespace tvr
