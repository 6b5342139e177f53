#include "client/verdict/evidence.h"

#include <algorithm>
#include <utility>

#include "client/token_table.h"
#include "compiled/grading.h"

namespace tvr {

namespace {

// The first that fits counts.
constexpr std::array<std::pair<std::string_view, token_kind>, kind_count> kind_starts = {
    {{"B ", token_kind::body}, // most are of the body
     {"H subject:", token_kind::subject},
     {"F rcvd:", token_kind::received},
     {"H ", token_kind::header},
     {"F ", token_kind::address},
     {"M ", token_kind::structure},
     {"U ", token_kind::path}}};

constexpr std::array<double, unknown_class - 1> class_ends = {0.0101, 0.1, 0.3, 0.7, 0.9, 0.9899};

constexpr std::uint32_t most = 0x1FFFF;

std::uint16_t limited(std::uint32_t messages) noexcept {
    return static_cast<std::uint16_t>(std::min<std::uint32_t>(messages, 0xFFFF));
}

} // namespace

std::optional<token_kind> kind_of(std::string_view token) noexcept {
    for (const auto& [start, kind] : kind_starts)
        if (token.starts_with(start))
            return kind;
    return std::nullopt;
}

const char* name_of(token_kind kind) noexcept {
    constexpr std::array<const char*, kind_count> names = {"subject",   "received",  "body", "headers",
                                                           "addresses", "structure", "links"};
    return names[static_cast<std::size_t>(kind)];
}

std::size_t class_of(double grade) noexcept {
    if (!(grade > 0 && grade < 1))
        return unknown_class;
    const auto* const end = std::lower_bound(class_ends.begin(), class_ends.end(), grade);
    return static_cast<std::size_t>(end - class_ends.begin());
}

double grade_of(message_counts in, message_counts of) noexcept {
    const auto good = static_cast<std::int32_t>(in.ham * token_weight);
    const auto spam = static_cast<std::int32_t>(in.spam * token_weight);
    if (of.ham == 0 || of.spam == 0 || usual_k * good + spam < usual_t)
        return 0;
    return static_cast<double>(probability(good, spam, of.ham, of.spam, usual_k));
}

std::uint8_t pack_count(std::uint32_t count) noexcept {
    return static_cast<std::uint8_t>(pack_parts<16>(std::min(count, most)));
}

graded_tokens pack_counts(const grade_counts& counts, message_counts messages) noexcept {
    graded_tokens made{.spam_messages = limited(messages.spam), .ham_messages = limited(messages.ham)};
    for (std::size_t kind = 0; kind < kind_count; ++kind)
        for (std::size_t grade = 0; grade < class_count; ++grade)
            made.counts[kind][grade] = pack_count(counts[kind][grade]);
    return made;
}

} // namespace tvr
