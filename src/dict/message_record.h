// One record of the message cache: a message to be learned.
#pragma once

#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>

#include "common/fileheader.h"
#include "dict/hashmap.h"

namespace tvr {

class file_stream;

namespace message_flag {
constexpr std::uint32_t deleted = 1; // the record is to be ignored
constexpr std::uint32_t spam = 2;
constexpr std::uint32_t manual = 4; // the user has classified this message himself
constexpr std::uint32_t marked = 8; // kept by re-marking
} // namespace message_flag

// The head of a record: everything before the token table.
struct message_head {
    static constexpr std::uint32_t signature = 0x25062004;
    static constexpr std::uint32_t value_count = 6;
    static constexpr std::size_t longest_msid = 255; // bytes

    message_head();
    message_head(const message_head&) = delete;
    message_head& operator=(const message_head&) = delete;

    // Reads head and message ID at the stream's position and seeks past the whole record. False at the
    // end of the file or at a foreign signature.
    bool read(file_stream& file);
    // Reads head and message ID, and stops before the token table. `hint` as in fileheader.
    bool read_head(file_stream& file, std::uint32_t hint = 0);
    // After read_head(): seeks past the record. False if its length leads nowhere.
    bool skip_tokens(file_stream& file) const;
    // After read_head(): the offset after the record, if its length holds the head and the two counts of a
    // token table, and ends within the file (of `file_size` bytes). For those who write after or into it.
    [[nodiscard]] std::optional<std::uint64_t> whole_end(const file_stream& file,
                                                         std::uint64_t file_size) const;

    std::uint64_t position = 0; // of the record in its file; set by the readers
    std::uint32_t length = 0;   // bytes of the whole record
    std::uint32_t flags = 0;
    std::uint32_t size = 0;     // bytes of the message
    std::uint32_t time = 0;     // minutes since 1601
    std::uint32_t messages = 0; // the client's counters
    std::uint32_t tokens = 0;
    std::string msid; // 0 to 255 bytes
    fileheader header;
};

// A whole record with its tokens.
struct message_record : message_head {
    // Reads head, message ID and tokens.
    bool read_whole(file_stream& file);
    // Writes the record at the stream's position, and corrects `length` in it.
    bool write(file_stream& file);

    dword_map token_table;
};

// Marks the record at `position` of an open cache file as deleted, in place.
bool mark_deleted(file_stream& file, std::uint64_t position);
// Gives the record a new verdict in place. deliberate: a record once marked spam stays so with `spam`
// false. `toggle` asks for the change of message_flag::marked.
bool remark(file_stream& file, std::uint64_t position, bool spam, bool toggle);

constexpr std::size_t longest_msid_name = 243; // characters of `a` in a message ID
// The message ID made of the client's strings: "<", the first 243 characters of a, ">_" and eight
// hexadecimal digits over it, e, b and d.
std::string make_msid(std::string_view a, std::string_view b, std::string_view d, std::string_view e);

} // namespace tvr
