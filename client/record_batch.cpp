#include "client/record_batch.h"

#include <algorithm>

#include "client/tokenizer.h"
#include "common/bytes.h"
#include "common/minutes.h"
#include "dict/message_record.h"

namespace tvr {

namespace {

constexpr std::size_t head_size = 32;               // bytes of a record before its message ID
constexpr std::size_t limit = std::size_t{1} << 30; // bytes of a batch

} // namespace

training_message describe(const mail_facts& facts, std::uint64_t size, bool spam, bool manual) {
    return {.msid = facts.msid,
            .spam = spam,
            .manual = manual,
            .size = static_cast<std::uint32_t>(std::min<std::uint64_t>(size, 0xFFFFFFFF)),
            .time = facts.time != 0 ? facts.time : now_minutes()};
}

bool record_batch::add(const training_message& message, const token_table& tokens) {
    const auto entries = tokens.entries();
    const std::size_t length = head_size + 1 + message.msid.size() + 8 + entries.size();
    if (message.msid.size() > message_head::longest_msid || length > limit || m_bytes.size() > limit - length)
        return false;
    const std::size_t start = m_bytes.size();
    m_bytes.resize(start + length);
    std::uint8_t* at = m_bytes.data() + start;
    const auto put = [&at](std::uint32_t value) {
        store_u32(at, value);
        at += 4;
    };
    put(message_head::signature);
    put(message_head::value_count);
    put(static_cast<std::uint32_t>(length));
    put((message.spam ? message_flag::spam : 0U) | (message.manual ? message_flag::manual : 0U));
    put(message.size);
    put(message.time);
    put(1); // message
    put(tokens.size());
    *at++ = static_cast<std::uint8_t>(message.msid.size());
    at = std::copy(message.msid.begin(), message.msid.end(), at);
    put(tokens.size());
    put(static_cast<std::uint32_t>(entries.size()));
    std::copy(entries.begin(), entries.end(), at);
    ++m_count;
    return true;
}

const char* record_defect(std::span<const std::uint8_t> record) noexcept {
    constexpr std::uint32_t known_flags = message_flag::spam | message_flag::manual;
    constexpr std::size_t table_head = 8;
    if (record.size() < head_size + 1 + table_head)
        return "it is too short";
    const std::uint8_t* const at = record.data();
    if (load_u32(at) != message_head::signature || load_u32(at + 4) != message_head::value_count)
        return "it doesn't begin like a record";
    if (load_u32(at + 8) != record.size())
        return "its length is another";
    if (load_u32(at + 12) & ~known_flags)
        return "it has unknown marks";
    const std::size_t table = head_size + 1 + at[head_size];
    if (record.size() < table + table_head || load_u32(at + table + 4) != record.size() - table - table_head)
        return "its tokens don't fill it";
    std::size_t place = table + table_head;
    for (std::uint32_t left = load_u32(at + table); left != 0; --left) {
        const std::size_t length = place < record.size() ? at[place] : 0;
        if (length == 0 || record.size() - place < length + 5)
            return "its number of tokens is wrong";
        place += length + 5;
    }
    return place == record.size() ? nullptr : "its number of tokens is wrong";
}

bool record_batch::add(std::span<const std::uint8_t> record) {
    if (record_defect(record) || record.size() > limit || m_bytes.size() > limit - record.size())
        return false;
    m_bytes.insert(m_bytes.end(), record.begin(), record.end());
    ++m_count;
    return true;
}

void record_batch::clear() noexcept {
    m_bytes.clear();
    m_count = 0;
}

} // namespace tvr
