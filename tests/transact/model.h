// A slow and plain model of the whole pipeline: records in, bytes of the dictionaries and of the compiled
// base out. It shares no code with the engine.
#pragma once

#include <algorithm>
#include <bit>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <map>
#include <string>
#include <tuple>
#include <utility>
#include <vector>

#include "support/atom_bytes.h"

namespace model {

using tvr::le;
using bytes = std::string;
using token_counts = std::vector<std::pair<std::string, std::uint32_t>>;

inline std::uint32_t hash(const std::string& text) {
    std::int64_t h = 0;
    for (std::size_t i = 0; i + 1 < text.size(); ++i) {
        h = (h * 16 + static_cast<signed char>(text[i])) & 0xFFFFFFFF;
        const std::int64_t top = h & 0xF0000000;
        h = (h ^ (top >> 24)) & ~top & 0xFFFFFFFF;
    }
    return static_cast<std::uint32_t>(h);
}

// What a list has for a text; a new one comes to its end.
template <class List>
auto& value_of(List& list, const std::string& text) {
    const auto known = std::ranges::find(list, text, &List::value_type::first);
    return (known == list.end() ? list.insert(known, {text, {}}) : known)->second;
}

template <class List>
void sort_by_hash(List& list) {
    std::ranges::stable_sort(list, {}, [](const auto& entry) { return hash(entry.first); });
}

inline bytes block(const token_counts& tokens) {
    bytes entries;
    for (const auto& [text, count] : tokens)
        entries += tvr::counted(text, count);
    return tvr::block_bytes(static_cast<std::uint32_t>(tokens.size()), entries);
}

struct message {
    std::string msid;
    bool spam = false, deleted = false, manual = false;
    std::uint32_t time = 0;
    token_counts tokens; // distinct, counts above 0
};

// A cache file with these records.
inline bytes cache_file(const std::vector<message>& batch) {
    bytes out = le(batch.size());
    for (const message& m : batch) {
        const std::uint32_t flags = (m.deleted ? 1U : 0U) | (m.spam ? 2U : 0U) | (m.manual ? 4U : 0U);
        out += tvr::record_bytes(flags, 1000, m.time, m.msid, block(m.tokens));
    }
    return out;
}

struct limits {
    std::uint32_t base_size = 2000; // messages a half
    std::uint32_t dict_size = 200;
    std::uint32_t min_size = 20;
    double weight = 1.8;
};

struct change {
    std::uint32_t time;
    const message* source;
};

struct atom {
    std::string name;
    std::uint32_t messages = 0, occurrences = 0, oldest = 0, newest = 0;
    token_counts tokens = {};               // in the order of the file
    std::vector<const message*> given = {}; // in this transaction, as they came

    bytes file() const {
        return le(0x19780702, 5, messages, tokens.size(), occurrences, oldest, newest) + block(tokens);
    }
    void take(const change& c) {
        given.push_back(c.source);
        ++messages;
        if (oldest == 0)
            oldest = c.time;
        if (newest < c.time && c.time != oldest)
            newest = c.time;
        if (newest == oldest)
            newest = 0;
    }
};

struct half {
    std::string name;
    std::vector<atom> atoms = {}; // oldest first
    std::map<std::string, std::uint32_t> msids = {};

    std::uint32_t total() const {
        std::uint32_t sum = 0;
        for (const atom& a : atoms)
            sum += a.messages;
        return sum;
    }
    void sort_by_age() {
        std::ranges::sort(
            atoms, {}, [](const atom& a) { return std::tuple(a.oldest, -std::int64_t{a.messages}, a.name); });
    }
    atom& new_atom() {
        for (unsigned n = 0;; ++n) {
            char digits[16];
            std::snprintf(digits, sizeof digits, "%04X", n);
            const std::string file = name + digits + ".bye";
            if (std::ranges::find(atoms, file, &atom::name) == atoms.end())
                return atoms.emplace_back(atom{file});
        }
    }
};

class engine {
public:
    explicit engine(limits the_limits) : m_limits(the_limits) {}

    void train(const std::vector<message>& batch) {
        const auto good_changes = plan(batch, false);
        const auto spam_changes = plan(batch, true);
        const auto good_final = static_cast<std::uint32_t>(good.total() + good_changes.size());
        const auto spam_final = static_cast<std::uint32_t>(spam.total() + spam_changes.size());
        const std::uint32_t least = std::min(good_final, spam_final);
        std::uint32_t seen = 0;
        if (!good_changes.empty())
            file(good, good_changes, good_final, least, seen);
        if (!spam_changes.empty())
            file(spam, spam_changes, spam_final, least, seen);
    }

    bytes compiled_base() const {
        std::uint32_t target = std::min(good.total(), spam.total());
        if (target > m_limits.base_size)
            target = m_limits.base_size + m_limits.dict_size / 2;
        struct side {
            std::uint32_t messages = 0, tokens = 0, oldest = 0xFFFFFFFF, newest = 0;
        } sides[2];
        struct counts {
            std::uint32_t of[2] = {};
        };
        std::vector<std::pair<std::string, counts>> all; // in the order of first appearance
        for (const bool is_spam : {true, false}) {
            half chosen = is_spam ? spam : good;
            chosen.sort_by_age();
            prune(chosen, target);
            side& s = sides[is_spam];
            for (const atom& a : chosen.atoms) {
                s.messages += a.messages;
                s.tokens += static_cast<std::uint32_t>(a.tokens.size());
                s.oldest = std::min(s.oldest, a.oldest);
                s.newest = std::max(s.newest, a.newest);
                for (const auto& [text, count] : a.tokens)
                    value_of(all, text).of[is_spam] += count;
            }
        }
        sort_by_hash(all);
        const auto& [ham_side, spam_side] = sides;
        token_counts graded;
        for (const auto& [text, count] : all) {
            const auto [in_good, in_spam] = count.of;
            if (m_limits.weight * in_good + in_spam < 5 || ham_side.messages == 0 || spam_side.messages == 0)
                continue;
            const double b = std::min(1.0, static_cast<double>(in_spam) / spam_side.messages);
            const double g = std::min(1.0, in_good * m_limits.weight / ham_side.messages);
            const auto p = static_cast<float>(std::clamp(b / (b + g), 0.01, 0.99));
            graded.emplace_back(text, std::bit_cast<std::uint32_t>(p));
        }
        return le(0x4A534144, 8, ham_side.messages, spam_side.messages, spam_side.tokens, ham_side.tokens,
                  spam_side.oldest, spam_side.newest, ham_side.oldest, ham_side.newest) +
               block(graded);
    }

    half spam{"spamdict"};
    half good{"nspamdict"};

private:
    static std::vector<change> plan(const std::vector<message>& batch, bool spam) {
        std::vector<change> changes;
        for (const message& m : batch)
            if (!m.deleted && m.spam == spam)
                changes.push_back({m.time, &m});
        std::ranges::stable_sort(changes, {}, &change::time);
        std::size_t wrong = 0;
        while (wrong < changes.size() && changes[wrong].time <= 183554940)
            ++wrong;
        // Batches with no good date at all depend on the clock; they are not modelled.
        for (std::size_t i = 0; i < wrong && wrong < changes.size(); ++i)
            changes[i].time = static_cast<std::uint32_t>(changes[wrong].time - wrong + i);
        return changes;
    }

    void file(half& target, const std::vector<change>& changes, std::uint32_t final_count,
              std::uint32_t least, std::uint32_t& seen) const {
        std::uint32_t calculated = 0;
        if (least < m_limits.base_size)
            calculated = std::max(least * m_limits.dict_size / m_limits.base_size, m_limits.min_size);
        const std::uint32_t optimized = m_limits.min_size * (m_limits.base_size / m_limits.dict_size);
        const std::uint32_t usual = calculated != 0 && final_count > optimized ? final_count - optimized : 0;
        // Whether the atom had room for it.
        const auto give = [&](atom& a, const change& c) {
            if (a.messages >= (calculated != 0 && seen >= usual ? calculated : m_limits.dict_size))
                return false;
            a.take(c);
            ++seen;
            return true;
        };

        target.sort_by_age();
        std::vector<change> rest;
        for (const change& c : changes)
            if (std::ranges::none_of(target.atoms, [&](atom& a) {
                    const bool unused = a.oldest == 0 && a.newest == 0;
                    return (unused || c.time == a.oldest || c.time <= a.newest) && give(a, c);
                }))
                rest.push_back(c);
        for (const change& c : rest) {
            auto after = target.atoms.begin();
            while (after != target.atoms.end() && after->oldest <= c.time)
                ++after;
            if ((after != target.atoms.begin() && give(after[-1], c)) ||
                (after != target.atoms.end() && give(*after, c)))
                continue;
            give(target.new_atom(), c);
            target.sort_by_age();
        }

        target.sort_by_age();
        while (target.total() > m_limits.base_size &&
               target.total() - target.atoms.front().messages >= m_limits.base_size)
            target.atoms.erase(target.atoms.begin());

        for (atom& a : target.atoms) {
            for (const message* m : std::exchange(a.given, {})) {
                target.msids.emplace(m->msid, m->time);
                for (const auto& [text, count] : m->tokens) {
                    value_of(a.tokens, text) += count;
                    a.occurrences += count;
                }
            }
            sort_by_hash(a.tokens);
        }
    }

    // Takes the oldest atoms away as long as that comes nearer to the target.
    static void prune(half& chosen, std::int64_t target) {
        for (std::int64_t total = chosen.total(); total > target && !chosen.atoms.empty();) {
            const std::int64_t before = total - target;
            total -= chosen.atoms.front().messages;
            if (std::abs(before) < std::abs(total - target) || total == 0)
                break;
            chosen.atoms.erase(chosen.atoms.begin());
        }
    }

    limits m_limits;
};

} // namespace model
