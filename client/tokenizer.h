// Turns one raw message into the tokens by which it is learned and graded.
#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>
#include <string>
#include <string_view>

#include "client/look_alikes.h"
#include "client/token_table.h"
#include "client/tvr_ipc_export.h"

namespace tvr {

// What a message is called and when it was written.
struct mail_facts {
    std::string msid; // the message ID of a cache record
    // Minutes since 1601: of the Date header, or the newest Received, or the mbox line; 0 if none is sane.
    std::uint32_t time = 0;
    // When it came in, as its newest Received line tells; 0 if none does, or that is before 1990 or in the
    // future.
    std::uint32_t arrival = 0;
};

struct tokenizer_limits {
    std::size_t word = 19;                   // bytes of a text that is kept as it is; longer ones are hashed
    std::size_t header_word = 96;            // the same for header words
    std::size_t mail = std::size_t{4} << 20; // bytes of a message that are looked at
    std::size_t part_text = std::size_t{512} << 10; // bytes of one part's text
    std::size_t all_text = std::size_t{1} << 20;    // bytes of all parts' text
    unsigned depth = 24;                            // of nested parts
    unsigned parts = 200;
    unsigned headers = 200;
    std::uint32_t tokens = 6000; // different ones
};

// The kinds of its tokens, before the text:
//   "B "  words of the body and the subject
//   "H "  words of a header, with its name: "H subject:free"
//   "F "  addresses and hosts: "F from:a@b.example", "F link:b.example", "F rcvd:c.example"
//   "M "  marks of the structure: "M type:text/html", "M no date", "M reply-to not from"
//   "U "  words of links after the host
// Each counts by its kind, not by how often it stands in the message.
// One object belongs to one thread, and is made to be used for many messages.
class TVR_IPC_EXPORT tokenizer {
public:
    // The words of subject and body are spelled as `spelling` has it; null leaves them as they are.
    explicit tokenizer(const tokenizer_limits& limits = {},
                       std::shared_ptr<const look_alikes> spelling = look_alikes::of_user());
    ~tokenizer();
    tokenizer(const tokenizer&) = delete;
    tokenizer& operator=(const tokenizer&) = delete;

    // Takes any bytes, and never fails: what is no mail gives few tokens. An mbox line ("From ...") in
    // front is passed over.
    void tokenize(std::string_view raw);

    // Of the last message.
    [[nodiscard]] const token_table& tokens() const noexcept;
    [[nodiscard]] const mail_facts& facts() const noexcept;

private:
    class implementation;
    std::unique_ptr<implementation> m_it;
};

// True if the bytes begin like a mail: header lines, perhaps after an mbox line, with one among them that
// every mail program knows. Empty, binary and other text doesn't.
[[nodiscard]] TVR_IPC_EXPORT bool looks_like_mail(std::string_view raw) noexcept;

} // namespace tvr
