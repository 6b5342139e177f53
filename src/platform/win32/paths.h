// Path texts as the system takes them, and what TESSIVAR_ROOT moves.
#pragma once

#include <optional>
#include <string>
#include <string_view>

namespace tvr::platform::win32 {

// A path with its terminating zero. Empty for a text that can be no path: an empty one, or one with a zero
// byte; the system's calls then fail with 3.
std::string native_path(std::string_view path);
// The absolute form. Empty on failure.
std::string full_path(const std::string& native);

// TESSIVAR_ROOT as an absolute path without a trailing backslash, or nothing if it isn't set. Empty if
// it can be no path.
std::optional<std::string> moved_root();
// The folder of that name in the moved root, made on demand, without a trailing backslash. Nothing without a
// root; empty if it can't be made.
std::optional<std::string> moved_folder(std::string_view name);
// What tells names and keys of one root from those of all others: empty without a root, otherwise a point and
// sixteen hexadecimal digits.
std::string root_mark();

// One of the system's folders by its number, without a trailing backslash. Empty on failure.
std::string known_folder(int number);
// Makes a folder and its missing parents. True if it is there afterwards.
bool make_folders(const std::string& native);

} // namespace tvr::platform::win32
