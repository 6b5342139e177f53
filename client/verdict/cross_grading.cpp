#include "client/verdict/cross_grading.h"

#include <utility>

namespace tvr {

namespace {

// The sums of the parts but one, of counts for ham and spam.
template <class count_T>
message_counts of_others(const std::array<std::array<count_T, cross_grading::folds>, 2>& counts,
                         std::size_t fold) noexcept {
    message_counts sum;
    for (std::size_t other = 0; other < cross_grading::folds; ++other) {
        sum.ham += other == fold ? 0U : counts[0][other];
        sum.spam += other == fold ? 0U : counts[1][other];
    }
    return sum;
}

} // namespace

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

message_counts cross_grading::messages(std::size_t fold) const noexcept {
    return of_others(m_messages, fold);
}

double cross_grading::grade(token_key token, std::size_t fold) const noexcept {
    const counts& entry = m_table[place_of(token)];
    if (!entry.used)
        return 0;
    return grade_of(of_others(entry.messages, fold), messages(fold));
}

} // namespace tvr
