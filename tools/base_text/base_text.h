// The token base as lines of text: docs/formats.md tells them.
#pragma once

#include <cstdint>
#include <functional>
#include <istream>
#include <string>
#include <string_view>

namespace tvr {

struct base_text_sum {
    std::uint64_t lines = 0; // without comments
    std::uint64_t atoms = 0;
    std::uint64_t tokens = 0;
    std::uint64_t messages = 0; // message IDs of both halves
    std::string remark{};       // what was left out, and why
};

// Gives out the lines of both dictionaries of a folder (with a trailing backslash) and of the verdict in the
// folder that this one lies in, each with its end; hinders nobody who works on the files. Memory: some pieces
// of a file. The reason of a failure, or an empty text: what was given out until then has no last line.
[[nodiscard]] std::string export_base(const std::string& folder,
                                      const std::function<bool(std::string_view)>& write, base_text_sum& sum);

// True if the folder holds no atoms and no message IDs.
[[nodiscard]] bool is_empty_base(const std::string& folder);

// Makes both dictionaries and the verdict out of such lines, and hands them to the engine as a finished
// training, which it puts in place at its next start: all of it, or nothing. `may_commit` is asked at the
// end, and returns a reason against it. The reason of a failure, with the number of the line, or an empty
// text.
[[nodiscard]] std::string import_base(const std::string& folder, std::istream& in,
                                      const std::function<std::string()>& may_commit, base_text_sum& sum);

} // namespace tvr
