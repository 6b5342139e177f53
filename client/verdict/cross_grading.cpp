#include "client/verdict/cross_grading.h"

#include <utility>

#include "client/token_table.h"

namespace tvr {

cross_grading::cross_grading() : m_table(std::size_t{1} << 14) {}

std::size_t cross_grading::place_of(token_key token) const noexcept {
    const std::size_t mask = m_table.size() - 1;
    std::size_t at = (token >> 3) & mask;
    while (m_table[at].used && m_table[at].token != token)
        at = (at + 1) & mask;
    return at;
}

void cross_grading::grow() {
    std::vector<counts> old(m_table.size() * 2);
    old.swap(m_table);
    for (const counts& entry : old)
        if (entry.used)
            m_table[place_of(entry.token)] = entry;
}

void cross_grading::add(std::span<const token_key> tokens, bool spam, std::size_t fold) {
    ++m_messages[spam ? 1 : 0][fold];
    for (const token_key token : tokens) {
        if (kind_of_key(token) >= kind_count)
            continue;
        counts* entry = &m_table[place_of(token)];
        if (!entry->used) {
            if (++m_used * 2 > m_table.size()) {
                grow();
                entry = &m_table[place_of(token)];
            }
            entry->used = true;
            entry->token = token;
        }
        std::uint16_t& count = entry->messages[spam ? 1 : 0][fold];
        count = static_cast<std::uint16_t>(count + (count < 0xFFFF ? 1 : 0));
    }
}

std::uint32_t cross_grading::messages(bool spam, std::size_t fold) const noexcept {
    std::uint32_t sum = 0;
    for (std::size_t other = 0; other < folds; ++other)
        sum += other == fold ? 0 : m_messages[spam ? 1 : 0][other];
    return sum;
}

void cross_grading::finish() noexcept {
    for (std::size_t fold = 0; fold < folds; ++fold) {
        m_runs[fold].header.nonspam_messages = messages(false, fold);
        m_runs[fold].header.spam_messages = messages(true, fold);
    }
}

double cross_grading::grade(token_key token, std::size_t fold) const {
    const counts& entry = m_table[place_of(token)];
    if (!entry.used)
        return 0;
    std::array<std::int32_t, 2> seen{};
    for (std::size_t half = 0; half < 2; ++half)
        for (std::size_t other = 0; other < folds; ++other)
            seen[half] += other == fold ? 0 : entry.messages[half][other];
    constexpr auto weight = static_cast<std::int32_t>(token_weight);
    token_record record{.text = {}, .good = seen[0] * weight, .spam = seen[1] * weight};
    const grading_run& run = m_runs[fold];
    if (run.header.nonspam_messages == 0 || run.header.spam_messages == 0 || !is_significant(record, run))
        return 0;
    return static_cast<double>(probability(record, run));
}

} // namespace tvr
