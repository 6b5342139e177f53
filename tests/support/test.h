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

} // namespace tvr
