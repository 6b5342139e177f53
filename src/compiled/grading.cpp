#include "compiled/grading.h"

#include <algorithm>
#include <array>
#include <cstring>

namespace tvr {

namespace {

constexpr double highest = 0.99;
constexpr double lowest = 0.01;
constexpr std::size_t few = 64; // records that are looked through one by one

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
    return probability(record.good, record.spam, run.header.nonspam_messages, run.header.spam_messages,
                       run.k);
}

float probability(std::int32_t good, std::int32_t spam, std::uint32_t nonspam_messages,
                  std::uint32_t spam_messages, double k) noexcept {
    const double b = std::min(1.0, static_cast<double>(spam) / spam_messages);
    const double g = std::min(1.0, good * k / nonspam_messages);
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
    std::array<std::uint8_t, 1 + 255 + sizeof p> bytes;
    const std::size_t length = record.text.size();
    bytes[0] = static_cast<std::uint8_t>(length);
    std::memcpy(bytes.data() + 1, record.text.data(), length);
    std::memcpy(bytes.data() + 1 + length, &p, sizeof p);
    output->write(bytes.data(), length + 5);
    ++run.records;
    run.bytes += static_cast<std::uint32_t>(length) + 5;
}

std::size_t token_accumulator::place_of(std::string_view text) {
    if (m_used <= few) {
        const auto used_end = m_records.begin() + static_cast<std::ptrdiff_t>(m_used);
        const auto found =
            std::find_if(m_records.begin(), used_end, [&](const token_record& r) { return r.text == text; });
        return static_cast<std::size_t>(found - m_records.begin());
    }
    for (std::size_t i = m_places.size(); i < m_used; ++i)
        m_places.emplace(m_records[i].text, i);
    const auto found = m_places.find(std::string(text));
    return found == m_places.end() ? m_used : found->second;
}

void token_accumulator::accumulate_token(std::string_view text, std::uint32_t count, bool is_spam) {
    const std::size_t place = place_of(text);
    if (place == m_used) {
        if (m_used == m_records.size())
            m_records.resize(m_used + 100 + m_used / 2);
        ++m_used;
        m_records[place].text = text;
        m_records[place].good = m_records[place].spam = 0;
    }
    token_record& entry = m_records[place];
    std::int32_t& sum = is_spam ? entry.spam : entry.good;
    sum = add(sum, count);
    entry.significant = false;
    m_tested = std::min(m_tested, place);
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
    if (!m_places.empty())
        m_places.clear();
}

} // namespace tvr
