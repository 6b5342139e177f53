#include "client/verdict/seen_tokens.h"

#include <algorithm>
#include <bit>

#include "client/verdict/evidence.h"

namespace tvr {

namespace {

using entry = seen_tokens::entry;
using bucket = seen_tokens::bucket;

std::uint16_t tag_of(token_key key) noexcept { // the bits that don't choose the bucket
    return static_cast<std::uint16_t>(key >> (32 - seen_tokens::bucket_bits - 16));
}

std::uint8_t& count_of(entry& of, bool spam) noexcept {
    return spam ? of.spam : of.ham;
}

bool holds(const entry& place, token_key key) noexcept {
    return (place.tag == tag_of(key)) & ((place.spam | place.ham) != 0);
}

int weight_of(const entry& of) noexcept { // the more often it was seen, the more
    return of.spam + of.ham;
}

// Looks at all of them, since the processor can't guess which one it is.
template <class bucket_T>
auto* find(bucket_T& entries, token_key key) noexcept {
    unsigned found = 0; // a bit for each entry
    for (unsigned i = 0; i < seen_tokens::bucket_size; ++i)
        found |= static_cast<unsigned>(holds(entries[i], key)) << i;
    return found != 0 ? &entries[static_cast<unsigned>(std::countr_zero(found))] : nullptr;
}

// Where the token is counted from now on. Null if all places are taken by tokens that were seen more than
// once: one of them is forgotten a little.
entry* place_for(bucket& entries, token_key key) noexcept {
    if (entry* const found = find(entries, key))
        return found;
    entry& least = *std::ranges::min_element(entries, {}, weight_of);
    if (weight_of(least) > 1) {
        --count_of(least, least.spam > least.ham);
        return nullptr;
    }
    least = {.tag = tag_of(key)};
    return &least;
}

// A packed count above 64 stands for several: one message of so many moves it.
bool moves(std::uint8_t packed, token_key key, std::uint32_t message) noexcept {
    const std::uint32_t step = unpack_count(static_cast<std::uint8_t>(packed + 1)) - unpack_count(packed);
    return ((key ^ message * 0x9E3779B1U) * 0x85EBCA6BU >> 8) % step == 0;
}

} // namespace

void seen_tokens::age(bool spam) {
    for (bucket& entries : m_buckets.make_all())
        for (entry& each : entries)
            count_of(each, spam) = pack_count(unpack_count(count_of(each, spam)) / 2);
    m_messages[spam ? 1 : 0] /= 2;
}

void seen_tokens::add(std::span<const token_key> tokens, bool spam) {
    const std::span<bucket> all = m_buckets.make_all();
    const std::uint32_t message = ++m_messages[spam ? 1 : 0];
    for (const token_key key : tokens) {
        entry* const place = place_for(all[bucket_of(key)], key);
        if (place && count_of(*place, spam) != 0xFF && moves(count_of(*place, spam), key, message))
            ++count_of(*place, spam);
    }
    if (message >= most_messages)
        age(spam);
}

void seen_tokens::correct(std::span<const token_key> tokens, bool spam) {
    const std::span<bucket> all = m_buckets.make_all();
    std::uint32_t& messages = m_messages[spam ? 0 : 1];
    for (const token_key key : tokens) {
        entry* const found = find(all[bucket_of(key)], key);
        std::uint8_t* const count = found ? &count_of(*found, !spam) : nullptr;
        if (count && *count != 0 && moves(static_cast<std::uint8_t>(*count - 1), key, messages))
            --*count;
    }
    messages -= messages != 0 ? 1 : 0;
    add(tokens, spam);
}

double seen_tokens::grade(token_key key) const noexcept {
    const entry* const found = find(m_buckets.at(bucket_of(key)), key);
    return found ? grade_of({.spam = unpack_count(found->spam), .ham = unpack_count(found->ham)}, messages())
                 : 0;
}

} // namespace tvr
