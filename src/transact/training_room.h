// Whether the disk has room for a training. Nothing looks back at a step that failed for want of it, so that
// messages and older atoms would be lost: such a training doesn't begin.
#pragma once

#include <cstdint>
#include <string>

namespace tvr {

// What a training of all messages that wait takes at most, and what there is, on the disk where less is left.
struct training_room {
    std::string folder;             // on that disk
    std::uint64_t needed_bytes = 0; // 0 where no message waits, or the system doesn't tell what is free
    std::uint64_t free_bytes = 0;
    std::uint64_t needed_files = 0;
    std::uint64_t free_files = 0;

    [[nodiscard]] bool is_enough() const noexcept {
        return needed_bytes <= free_bytes && needed_files <= free_files;
    }
    // For a person: what is free, and what may be needed.
    [[nodiscard]] std::string text() const;
};

// `base` is the folder of the dictionaries, with a trailing backslash. Opens none of its files, but to peek.
training_room room_for_training(const std::string& base);

} // namespace tvr
