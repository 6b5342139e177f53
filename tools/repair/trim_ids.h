// The message IDs of what has left the dictionaries.
#pragma once

#include <cstdint>
#include <functional>
#include <string>
#include <vector>

namespace tvr {

struct id_trim {
    std::string half;         // "spamdict" or "nspamdict"
    std::string reason;       // why it can't be trimmed; what follows is 0 then
    bool failed = false;      // because of an error
    std::uint32_t oldest = 0; // minutes since 1601: the beginning of the oldest atom
    std::uint64_t ids = 0;
    std::uint64_t dropped = 0;
    std::uint64_t undated = 0; // kept: the time of the message is wrong, and tells nothing
    std::uint64_t bytes = 0;   // of list and index
    std::uint64_t bytes_after = 0;
};

// Makes list and index of both halves again without the IDs of messages that are older than the oldest atom
// of their half; `dry` only counts, and leaves `bytes_after` 0. The engine must not run, and no stage be
// marked. `told` is called now and then with the IDs that are done, of both halves.
[[nodiscard]] std::vector<id_trim> trim_ids(const std::string& working_directory, bool dry,
                                            const std::function<void(std::uint64_t done)>& told);

} // namespace tvr
