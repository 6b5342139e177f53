// Grading: from the counts of a token to its spam probability.
#pragma once

#include <cstdint>
#include <string>
#include <string_view>
#include <unordered_map>
#include <vector>

#include "common/file_stream.h"
#include "compiled/base_header.h"
#include "compiled/selective_list.h"

namespace tvr {

// The counts of one token over all atoms.
struct token_record {
    std::string text; // 1 to 255 bytes
    std::int32_t good = 0;
    std::int32_t spam = 0;
    bool significant = false; // a cache of the test; false means not known or not
};

constexpr double usual_k = 1.8;      // weight of the good count: "regarding threshold"
constexpr std::uint32_t usual_t = 5; // a token is significant if k * good + spam reaches this

// What one generation works with.
struct grading_run {
    double k = usual_k;
    std::uint32_t t = usual_t;
    std::uint32_t records = 0;
    std::uint32_t bytes = 0;
    base_header header;
};

[[nodiscard]] bool is_significant(token_record& record, const grading_run& run) noexcept;
// The probability, 0.01 to 0.99. Both message totals of the header must not be 0.
[[nodiscard]] float probability(const token_record& record, const grading_run& run) noexcept;
// The same of counts, in so many messages.
[[nodiscard]] float probability(std::int32_t good, std::int32_t spam, std::uint32_t nonspam_messages,
                                std::uint32_t spam_messages, double k) noexcept;
// Writes a significant record with its probability, counts it, and offers it to the list if it was never
// seen in good mail. Does nothing without an output, or with an empty half. deliberate: whether the output
// could be opened, or takes the record, is not looked at.
void grade_token(token_record& record, file_stream* output, grading_run& run, selective_list* list);

// The tokens of one hash value. Keeps its memory from one value to the next.
class token_accumulator {
public:
    void accumulate_token(std::string_view text, std::uint32_t count, bool is_spam);
    [[nodiscard]] bool has_significant(const grading_run& run) noexcept;
    // Grades all records in the order in which they came, and forgets them. Without an output they stay.
    void flush_accum(file_stream* output, grading_run& run, selective_list* list);

private:
    std::size_t place_of(std::string_view text); // m_used if it is new

    std::vector<token_record> m_records;
    std::size_t m_used = 0;
    // Where the records stand, once there are many: whoever wants to can write mail full of words of one
    // hash.
    std::unordered_map<std::string, std::size_t> m_places;
    std::size_t m_tested = 0; // records that are known to be insignificant, while there is no output
};

} // namespace tvr
