#include "client/verdict/seen_tokens.h"

#include <bit>

#include "client/verdict/evidence.h"

namespace tvr {

namespace {

using bucket = seen_tokens::bucket;

constexpr unsigned none = seen_tokens::bucket_size; // no place
constexpr unsigned most_packed = 63;
constexpr std::uint32_t parts = 4; // of a packed count of 16 or more

unsigned tag_of(token_key key) noexcept { // twelve bits that don't choose the bucket
    return key >> (32 - seen_tokens::bucket_bits - 12) & 0xFFF;
}

constexpr unsigned shift_of(bool spam) noexcept {
    return spam ? 4 : 10;
}

unsigned packed_count(const bucket& in, unsigned place, bool spam) noexcept {
    return in.counts[place] >> shift_of(spam) & most_packed;
}

void set_count(bucket& in, unsigned place, bool spam, unsigned packed) noexcept {
    const unsigned others = in.counts[place] & ~(most_packed << shift_of(spam));
    in.counts[place] = static_cast<std::uint16_t>(others | packed << shift_of(spam));
}

unsigned weight_of(const bucket& in, unsigned place) noexcept { // the more often it was seen, the more
    return packed_count(in, place, true) + packed_count(in, place, false);
}

// Looks at all of them, since the processor can't guess which one it is.
unsigned find(const bucket& in, token_key key) noexcept {
    const unsigned tag = tag_of(key);
    unsigned found = 1U << none; // a bit for each place
    for (unsigned i = 0; i < seen_tokens::bucket_size; ++i) {
        const unsigned is_other = (in.tags[i] ^ (tag & 0xFF)) | ((in.counts[i] & 0xFU) ^ tag >> 8);
        const unsigned is_free = in.counts[i] >> 4 == 0 ? 1 : 0;
        found |= static_cast<unsigned>((is_other | is_free) == 0) << i;
    }
    return static_cast<unsigned>(std::countr_zero(found));
}

// Where the token is counted from now on. None if all places are taken by tokens that were seen more than
// once: one of them is forgotten a little.
unsigned place_for(bucket& in, token_key key) noexcept {
    if (const unsigned found = find(in, key); found != none)
        return found;
    unsigned least = 0;
    for (unsigned i = 1; i < seen_tokens::bucket_size; ++i)
        if (weight_of(in, i) < weight_of(in, least))
            least = i;
    if (weight_of(in, least) > 1) {
        const bool spam = packed_count(in, least, true) > packed_count(in, least, false);
        set_count(in, least, spam, packed_count(in, least, spam) - 1);
        return none;
    }
    in.tags[least] = static_cast<std::uint8_t>(tag_of(key));
    in.counts[least] = static_cast<std::uint16_t>(tag_of(key) >> 8);
    return least;
}

// A packed count of 16 or more stands for several: one message of so many moves it.
bool moves(unsigned packed, token_key key, std::uint32_t message) noexcept {
    const std::uint32_t step = unpack_parts<parts>(packed + 1) - unpack_parts<parts>(packed);
    return ((key ^ message * 0x9E3779B1U) * 0x85EBCA6BU >> 8) % step == 0;
}

} // namespace

void seen_tokens::age(bool spam) {
    for (bucket& each : m_buckets.make_all())
        for (unsigned i = 0; i < bucket_size; ++i)
            set_count(each, i, spam,
                      pack_parts<parts>((unpack_parts<parts>(packed_count(each, i, spam)) + 1) / 2));
    m_messages[spam ? 1 : 0] /= 2;
}

void seen_tokens::add(std::span<const token_key> tokens, bool spam) {
    const std::span<bucket> all = m_buckets.make_all();
    const std::uint32_t message = ++m_messages[spam ? 1 : 0];
    for (const token_key key : tokens) {
        bucket& in = all[bucket_of(key)];
        const unsigned place = place_for(in, key);
        if (place == none)
            continue;
        const unsigned count = packed_count(in, place, spam);
        if (count != most_packed && moves(count, key, message))
            set_count(in, place, spam, count + 1);
    }
    if (message >= most_messages)
        age(spam);
}

void seen_tokens::correct(std::span<const token_key> tokens, bool spam) {
    const std::span<bucket> all = m_buckets.make_all();
    std::uint32_t& messages = m_messages[spam ? 0 : 1];
    for (const token_key key : tokens) {
        bucket& in = all[bucket_of(key)];
        const unsigned place = find(in, key);
        const unsigned count = place != none ? packed_count(in, place, !spam) : 0;
        if (count != 0 && moves(count - 1, key, messages))
            set_count(in, place, !spam, count - 1);
    }
    messages -= messages != 0 ? 1 : 0;
    add(tokens, spam);
}

double seen_tokens::grade(token_key key) const noexcept {
    const bucket& in = m_buckets.at(bucket_of(key));
    const unsigned place = find(in, key);
    return place != none ? grade_of({.spam = unpack_parts<parts>(packed_count(in, place, true)),
                                     .ham = unpack_parts<parts>(packed_count(in, place, false))},
                                    messages())
                         : 0;
}

std::size_t seen_tokens::tokens() const noexcept {
    std::size_t taken = 0;
    for (const bucket& each : m_buckets.all())
        for (unsigned i = 0; i < bucket_size; ++i)
            taken += weight_of(each, i) != 0 ? 1 : 0;
    return taken;
}

} // namespace tvr
