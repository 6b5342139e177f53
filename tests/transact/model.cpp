#include "model.h"

#include <algorithm>
#include <bit>
#include <cstdio>
#include <cstdlib>
#include <set>

#include "support/atom_bytes.h"

namespace model {
namespace {

using tvr::counted;
using tvr::le;

std::uint32_t hash(const std::string& text) {
    std::int64_t h = 0;
    for (std::size_t i = 0; i + 1 < text.size(); ++i) {
        h = (h * 16 + static_cast<signed char>(text[i])) & 0xFFFFFFFF;
        const std::int64_t top = h & 0xF0000000;
        h = (h ^ (top >> 24)) & ~top & 0xFFFFFFFF;
    }
    return static_cast<std::uint32_t>(h);
}

bool by_hash(const token_counts::value_type& a, const token_counts::value_type& b) {
    return hash(a.first) < hash(b.first);
}

bool by_age(const atom& a, const atom& b) {
    if (a.oldest != b.oldest)
        return a.oldest < b.oldest;
    if (a.messages != b.messages)
        return a.messages > b.messages;
    return a.name < b.name;
}

bytes block(const token_counts& tokens) {
    bytes entries;
    for (const auto& [text, count] : tokens)
        entries += counted(text, count);
    return tvr::block_bytes(static_cast<std::uint32_t>(tokens.size()), entries);
}

// What an atom has been given in one transaction, in the order in which it came.
using additions = std::vector<const message*>;

void note_time(atom& a, std::uint32_t time) {
    ++a.messages;
    if (a.oldest == 0)
        a.oldest = time;
    if (a.newest < time && time != a.oldest)
        a.newest = time;
    if (a.newest == a.oldest)
        a.newest = 0;
}

std::string free_name(const half& h) {
    std::set<std::string> taken;
    for (const atom& a : h.atoms)
        taken.insert(a.name);
    for (unsigned n = 0;; ++n) {
        char digits[16];
        std::snprintf(digits, sizeof digits, "%04X", n);
        const std::string name = h.name + digits + ".bye";
        if (!taken.contains(name))
            return name;
    }
}

} // namespace

bytes cache_file(const std::vector<message>& batch) {
    bytes out = le(batch.size());
    for (const message& m : batch) {
        const std::uint32_t flags = (m.deleted ? 1U : 0U) | (m.spam ? 2U : 0U) | (m.manual ? 4U : 0U);
        out += tvr::record_bytes(flags, 1000, m.time, m.msid, block(m.tokens));
    }
    return out;
}

bytes atom::file() const {
    return le(0x19780702, 5, messages, tokens.size(), occurrences, oldest, newest) + block(tokens);
}

std::uint32_t half::total() const {
    std::uint32_t sum = 0;
    for (const atom& a : atoms)
        sum += a.messages;
    return sum;
}

std::vector<engine::change> engine::plan(const std::vector<message>& batch, bool spam) {
    std::vector<change> changes;
    for (const message& m : batch)
        if (!m.deleted && m.spam == spam)
            changes.push_back({m.time, &m});
    std::stable_sort(changes.begin(), changes.end(),
                     [](const change& a, const change& b) { return a.time < b.time; });
    std::size_t wrong = 0;
    while (wrong < changes.size() && changes[wrong].time <= 183554940)
        ++wrong;
    // Batches with no good date at all depend on the clock; they are not modelled.
    for (std::size_t i = 0; i < wrong && wrong < changes.size(); ++i)
        changes[i].time = static_cast<std::uint32_t>(changes[wrong].time - wrong + i);
    return changes;
}

void engine::file(half& target, const std::vector<change>& changes, std::uint32_t final_count,
                  std::uint32_t least, std::uint32_t& seen) const {
    std::uint32_t calculated = 0;
    if (least < m_limits.base_size) {
        calculated = least * m_limits.dict_size / m_limits.base_size;
        calculated = std::max(calculated, m_limits.min_size);
    }
    const std::uint32_t optimized = m_limits.min_size * (m_limits.base_size / m_limits.dict_size);
    const std::uint32_t usual = calculated != 0 && final_count > optimized ? final_count - optimized : 0;
    const auto limit = [&] { return calculated != 0 && seen >= usual ? calculated : m_limits.dict_size; };

    std::map<std::string, additions> given;
    const auto give = [&](atom& a, const change& c) {
        note_time(a, c.time);
        ++seen;
        given[a.name].push_back(c.source);
    };

    std::sort(target.atoms.begin(), target.atoms.end(), by_age);
    std::vector<change> rest;
    for (const change& c : changes) {
        bool taken = false;
        for (atom& a : target.atoms) {
            const bool covers = (a.oldest == 0 && a.newest == 0) || c.time == a.oldest || c.time <= a.newest;
            if (covers && a.messages < limit()) {
                give(a, c);
                taken = true;
                break;
            }
        }
        if (!taken)
            rest.push_back(c);
    }
    for (const change& c : rest) {
        std::size_t after = 0;
        while (after < target.atoms.size() && target.atoms[after].oldest <= c.time)
            ++after;
        if (after > 0 && target.atoms[after - 1].messages < limit()) {
            give(target.atoms[after - 1], c);
        } else if (after < target.atoms.size() && target.atoms[after].messages < limit()) {
            give(target.atoms[after], c);
        } else {
            target.atoms.push_back({free_name(target), 0, 0, 0, 0, {}});
            give(target.atoms.back(), c);
            std::sort(target.atoms.begin(), target.atoms.end(), by_age);
        }
    }

    std::sort(target.atoms.begin(), target.atoms.end(), by_age);
    while (target.total() > m_limits.base_size &&
           target.total() - target.atoms.front().messages >= m_limits.base_size)
        target.atoms.erase(target.atoms.begin());

    for (atom& a : target.atoms) {
        for (const message* m : given[a.name]) {
            target.msids.emplace(m->msid, m->time);
            for (const auto& [text, count] : m->tokens) {
                const auto known =
                    std::find_if(a.tokens.begin(), a.tokens.end(),
                                 [&text = text](const auto& entry) { return entry.first == text; });
                if (known == a.tokens.end())
                    a.tokens.emplace_back(text, count);
                else
                    known->second += count;
                a.occurrences += count;
            }
        }
        std::stable_sort(a.tokens.begin(), a.tokens.end(), by_hash);
    }
}

void engine::train(const std::vector<message>& batch) {
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

bytes engine::compiled_base() const {
    std::uint32_t target = std::min(good.total(), spam.total());
    if (target > m_limits.base_size)
        target = m_limits.base_size + m_limits.dict_size / 2;
    const auto chosen = [&](const half& h) {
        std::vector<atom> list = h.atoms;
        std::sort(list.begin(), list.end(), by_age);
        std::int64_t total = h.total();
        while (total > target && !list.empty()) {
            const std::int64_t before = total - target;
            total -= list.front().messages;
            const std::int64_t after = total - target;
            if (std::abs(before) < std::abs(after) || total == 0)
                break;
            list.erase(list.begin());
        }
        return list;
    };
    struct side {
        std::uint32_t messages = 0, tokens = 0, oldest = 0xFFFFFFFF, newest = 0;
    };
    struct counts {
        std::string text;
        std::uint32_t spam = 0, good = 0;
    };
    side sides[2];
    std::vector<counts> all; // in the order of first appearance: spam atoms first
    const auto take = [&](const std::vector<atom>& list, bool is_spam) {
        side& s = sides[is_spam];
        for (const atom& a : list) {
            s.messages += a.messages;
            s.tokens += static_cast<std::uint32_t>(a.tokens.size());
            s.oldest = std::min(s.oldest, a.oldest);
            s.newest = std::max(s.newest, a.newest);
            for (const auto& [text, count] : a.tokens) {
                auto known = std::find_if(all.begin(), all.end(),
                                          [&text = text](const counts& c) { return c.text == text; });
                if (known == all.end())
                    known = all.insert(all.end(), {text});
                (is_spam ? known->spam : known->good) += count;
            }
        }
    };
    take(chosen(spam), true);
    take(chosen(good), false);
    std::stable_sort(all.begin(), all.end(),
                     [](const counts& a, const counts& b) { return hash(a.text) < hash(b.text); });

    token_counts graded;
    for (const counts& c : all) {
        if (m_limits.weight * c.good + c.spam < 5 || sides[0].messages == 0 || sides[1].messages == 0)
            continue;
        const double b = std::min(1.0, static_cast<double>(c.spam) / sides[1].messages);
        const double g = std::min(1.0, c.good * m_limits.weight / sides[0].messages);
        const auto p = static_cast<float>(std::clamp(b / (b + g), 0.01, 0.99));
        graded.emplace_back(c.text, std::bit_cast<std::uint32_t>(p));
    }
    return le(0x4A534144, 8, sides[0].messages, sides[1].messages, sides[1].tokens, sides[0].tokens,
              sides[1].oldest, sides[1].newest, sides[0].oldest, sides[0].newest) +
           block(graded);
}

} // namespace model
