// Where the data of the user is, and the reason if there is no such folder.
#pragma once

#include <cstdint>
#include <string>

namespace tvr {

struct user_folder {
    std::string path;  // the working directory, with a trailing backslash; empty on failure
    std::string error; // the folder and the reason
};

// For those who only look: makes and writes nothing. The folder need not be there.
user_folder find_user_folder();
// The folder as the engine finds it, or makes it.
user_folder make_user_folder();

// A number of platform::last_error() as people read it.
std::string reason_text(std::uint32_t code);
// "/a/b: the disk is full", of a path with backslashes.
std::string path_error(const std::string& path, std::uint32_t code);

} // namespace tvr
