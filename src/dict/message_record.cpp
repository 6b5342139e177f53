#include "dict/message_record.h"

#include "common/file_stream.h"
#include "common/files.h"
#include "common/text.h"
#include "common/token_hash.h"

namespace tvr {

namespace {

constexpr std::size_t table_head = 8; // bytes of the two counts of a token table

// Reads the head at `position` and writes it back with the flags that `change` gives.
template <class Change>
bool change_flags(file_stream& file, std::uint64_t position, Change change) {
    message_head record;
    if (!file.seek(static_cast<std::int64_t>(position), platform::origin::begin) ||
        !record.header.read(file, message_head::value_count))
        return false;
    const std::uint32_t flags = change(record.flags);
    if (flags == record.flags)
        return true;
    record.flags = flags;
    return file.seek(static_cast<std::int64_t>(position), platform::origin::begin) &&
           record.header.write(file) && file.flush();
}

} // namespace

message_head::message_head() : header(signature) {
    header.add(length, 0).add(flags, 0).add(size, 0).add(time, 0).add(messages, 0).add(tokens, 0);
}

bool message_head::read_head(file_stream& file, std::uint32_t hint) {
    position = file.position();
    if (!header.read(file, hint))
        return false;
    read_short_string(file, msid);
    return true;
}

bool message_head::read(file_stream& file) {
    return read_head(file) && skip_tokens(file);
}

bool message_head::skip_tokens(file_stream& file) const {
    // A length of 0 would make a reader stand still. deliberate: any other is taken as it is.
    return length != 0 &&
           file.seek(static_cast<std::int64_t>(position + length), platform::origin::begin).has_value();
}

std::optional<std::uint64_t> message_head::whole_end(const file_stream& file, std::uint64_t file_size) const {
    const std::uint64_t end = position + length;
    if (end < file.position() + table_head || end > file_size)
        return std::nullopt;
    return end;
}

bool message_record::read_whole(file_stream& file) {
    return read_head(file) && token_table.init_from_file(file);
}

bool message_record::write(file_stream& file) {
    position = file.position();
    if (msid.size() > longest_msid || !header.write(file) || !write_short_string(file, msid) ||
        !token_table.flush(file))
        return false;
    const std::uint64_t end = file.position();
    length = static_cast<std::uint32_t>(end - position);
    return file.seek(static_cast<std::int64_t>(position), platform::origin::begin) && header.write(file) &&
           file.seek(static_cast<std::int64_t>(end), platform::origin::begin);
}

bool mark_deleted(file_stream& file, std::uint64_t position) {
    return change_flags(file, position, [](std::uint32_t flags) { return flags | message_flag::deleted; });
}

bool remark(file_stream& file, std::uint64_t position, bool spam, bool toggle) {
    return change_flags(file, position, [=](std::uint32_t flags) {
        if (!spam && !(flags & message_flag::spam))
            return flags;
        if (spam)
            flags |= message_flag::spam;
        if (toggle) {
            if (flags & message_flag::marked)
                flags &= ~message_flag::marked;
            else if (!(flags & message_flag::manual))
                flags |= message_flag::marked;
        }
        return flags;
    });
}

std::string make_msid(std::string_view a, std::string_view b, std::string_view d, std::string_view e) {
    std::string text = "<" + std::string(a.substr(0, longest_msid_name)) + ">_";
    const std::string hashed = text + std::string(e) + std::string(b) + std::string(d);
    return text + to_hex(order_hash(hashed), 8);
}

} // namespace tvr
