// The readers of the system under bytes that nobody has vouched for.
#pragma once

#include <cstddef>
#include <cstdint>
#include <map>
#include <span>
#include <string>
#include <string_view>
#include <vector>

namespace tvr::fuzz {

using raw_bytes = std::span<const std::uint8_t>;

struct target {
    const char* name;
    void (*run)(raw_bytes input); // on an empty disk; reads the input, and goes on to use what it has read
    std::size_t longest;          // bytes of an input
};

[[nodiscard]] std::span<const target> dictionary_targets();
[[nodiscard]] std::span<const target> index_targets();
[[nodiscard]] std::span<const target> settings_targets();
[[nodiscard]] std::span<const target> other_targets();
[[nodiscard]] std::vector<target> all_targets();

// Runs a target once, on a disk of its own. An input that is too long is passed over.
void run(const target& which, raw_bytes input);
// Ends the process, with the text, if the condition isn't true.
void must(bool condition, const char* text);

// Inputs for each target, by its name: the files of a base that was trained on the mails of a folder.
[[nodiscard]] std::map<std::string, std::vector<std::string>> make_seeds(const std::string& mail_folder);

inline constexpr std::string_view working_folder = "\\work\\";
inline constexpr std::string_view base_folder = "\\work\\base\\";
[[nodiscard]] std::string in_base(std::string_view name); // a path below the base folder

[[nodiscard]] inline std::string_view text_of(raw_bytes input) {
    return {reinterpret_cast<const char*>(input.data()), input.size()};
}

} // namespace tvr::fuzz
