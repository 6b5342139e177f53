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
