// The readers of the system under bytes that nobody has vouched for.
#pragma once

#include <cstddef>
#include <cstdint>
#include <map>
#include <span>
#include <string>
#include <string_view>
#include <vector>

#include "settings/settings.h"

namespace tvr::fuzz {

using raw_bytes = std::span<const std::uint8_t>;

struct input_size { // bytes
    std::size_t longest;
    std::size_t frame = 0; // that the target puts around an input before it is read
};

// A constant of the program, which makes itself known.
struct target {
    // On an empty disk: reads the input, and goes on to use what it has read.
    using body = void (*)(raw_bytes input);

    target(const char* its_name, input_size its_size, body its_run);
    target(const target&) = delete;
    target& operator=(const target&) = delete;

    const char* name;
    input_size size;
    body run;
};

[[nodiscard]] const std::vector<const target*>& all_targets();
[[nodiscard]] const target* find_target(std::string_view name); // null if there is none

// Runs a target once, on a disk of its own. An input that is too long is passed over.
void run(const target& which, raw_bytes input);
// Ends the process, with the text, if the condition isn't true.
void must(bool condition, const char* text);

// The settings of the process, with their defaults and the working folder.
settings& start_settings();
void train(); // runs the engine until nothing is left to do

// Inputs for each target, by its name: the files of a base that was trained on the mails of a folder.
[[nodiscard]] std::map<std::string, std::vector<std::string>> make_seeds(const std::string& mail_folder);

inline constexpr std::string_view working_folder = "\\work\\";
inline constexpr std::string_view base_folder = "\\work\\base\\";
[[nodiscard]] std::string in_base(std::string_view name); // a path below the base folder

[[nodiscard]] inline std::string_view text_of(raw_bytes input) {
    return {reinterpret_cast<const char*>(input.data()), input.size()};
}

} // namespace tvr::fuzz
