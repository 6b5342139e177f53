#include "compiled/grading.h"

#include <algorithm>

namespace tvr {

namespace {

constexpr double highest = 0.99;
constexpr double lowest = 0.01;

std::int32_t add(std::int32_t count, std::uint32_t more) noexcept {
    return static_cast<std::int32_t>(static_cast<std::uint32_t>(count) + more);
}

} // namespace

bool is_significant(token_record& record, const grading_run& run) noexcept {
    if (!record.significant)
        record.significant = run.k * record.good + record.spam >= run.t;
    return record.significant;
}

float probability(const token_record& record, const grading_run& run) noexcept {
    const double b = std::min(1.0, static_cast<double>(record.spam) / run.header.spam_messages);
    const double g = std::min(1.0, record.good * run.k / run.header.nonspam_messages);
    const double p = b / (b + g);
    if (p >= highest)
        return static_cast<float>(highest);
    return static_cast<float>(p <= lowest ? lowest : p);
}

void grade_token(token_record& record, file_stream* output, grading_run& run, selective_list* list) {
    if (!output || !is_significant(record, run))
        return;
    if (run.header.spam_messages == 0 || run.header.nonspam_messages == 0)
        return;
    const float p = probability(record, run);
    if (list && record.good == 0)
        list->add_token(record.text, static_cast<std::uint32_t>(record.spam));
    const auto length = static_cast<std::uint8_t>(record.text.size());
    output->write(&length, 1);
    output->write(record.text.data(), record.text.size());
    output->write(&p, sizeof p);
    ++run.records;
    run.bytes += std::uint32_t{length} + 5;
}

void token_accumulator::accumulate_token(std::string_view text, std::uint32_t count, bool is_spam) {
    const auto used_end = m_records.begin() + static_cast<std::ptrdiff_t>(m_used);
    auto entry =
        std::find_if(m_records.begin(), used_end, [&](const token_record& r) { return r.text == text; });
    if (entry == used_end) {
        if (m_used == m_records.size())
            m_records.resize(m_used + 100);
        entry = m_records.begin() + static_cast<std::ptrdiff_t>(m_used++);
        entry->text = text;
        entry->good = entry->spam = 0;
    }
    std::int32_t& sum = is_spam ? entry->spam : entry->good;
    sum = add(sum, count);
    entry->significant = false;
    m_tested = std::min(m_tested, static_cast<std::size_t>(entry - m_records.begin()));
}

bool token_accumulator::has_significant(const grading_run& run) noexcept {
    for (; m_tested < m_used; ++m_tested)
        if (is_significant(m_records[m_tested], run))
            return true;
    return false;
}

void token_accumulator::flush_accum(file_stream* output, grading_run& run, selective_list* list) {
    if (!output)
        return;
    for (std::size_t i = 0; i < m_used; ++i)
        grade_token(m_records[i], output, run, list);
    m_used = m_tested = 0;
}

} // namespace tvr
