// The list of tokens that were only ever seen in spam, as patterns for clients to match headers against.
#pragma once

#include <cstdint>
#include <string>
#include <string_view>

#include "common/file_stream.h"

namespace tvr {

// Writes base\selective.txt of the working directory by way of ~selective.txt beside it; a failure is not
// reported and leaves the old list. Lives for one run of base generation. One thread.
class selective_list {
public:
    // Does nothing, and makes the others do nothing, if "export selective download" is off.
    void start();
    // `text` with its kind in front; `count` of its occurrences in spam. Takes header tokens that occur often
    // enough and can stand in a pattern.
    void add_token(std::string_view text, std::uint32_t count);
    void finish(); // replaces the list, also by an empty one

private:
    void write_line();

    bool m_enabled = false;
    file_stream m_output;
    std::string m_pending; // alternatives of the present line
};

} // namespace tvr
