// Marks of how the header of a mail is made, whatever it says: they tell one mailing program from another,
// and a sender that hides from one that doesn't.
#pragma once

#include <functional>
#include <string>
#include <string_view>

namespace tvr {

// The values of the headers by which a mail is known; empty if it has none. Of several the first counts.
struct header_lines {
    std::string_view message_id, subject, date, from, to, reply_to, return_path;
    std::string_view newest_hop, oldest_hop; // the first and the last Received
    unsigned hops = 0;                       // how many there are
};

// Gives out the marks one by one. Linear in the lines.
void header_marks(const header_lines& lines, const std::function<void(std::string_view)>& mark);

// The text with each run of letters as "a", "A" (all capitals) or "B" (mixed), of digits as "9", and of bytes
// from 0x80 as "~". With `lengths` the length of a run of digits follows: "id12.Ab" is "a92.B". Cut off at
// about 60 bytes.
[[nodiscard]] std::string shape_of(std::string_view text, bool lengths);

// A Received line up to its date with its names out: hosts as "H", addresses as "I" and "E", other words as
// "w". What is left is the handwriting of the server that wrote it.
[[nodiscard]] std::string shape_of_hop(std::string_view line);

// True for four numbers with dots between.
[[nodiscard]] bool is_ip(std::string_view host) noexcept;

} // namespace tvr
