// How well a filter told spam from ham: the figures of a list of verdicts.
#pragma once

#include <cstdint>
#include <optional>
#include <vector>

#include "client/score.h"

namespace tvr {

struct judged_mail {
    double score = 0; // 0 to 100
    bool spam = false;
    verdict decision = verdict::unsure;
};

// Spam that isn't called spam is missed; unsure ham is not wrong.
[[nodiscard]] inline bool is_wrong(const judged_mail& mail) {
    return mail.spam != (mail.decision == verdict::spam);
}

struct interval {
    double low = 0, high = 0;
};
// Of a rate of `hits` in `all`, with 95 % confidence (Wilson's).
[[nodiscard]] interval confidence(std::uint64_t hits, std::uint64_t all);

struct confusion {
    std::uint64_t spam_as_spam = 0, spam_as_unsure = 0, spam_as_ham = 0;
    std::uint64_t ham_as_spam = 0, ham_as_unsure = 0, ham_as_ham = 0;

    [[nodiscard]] std::uint64_t spam() const { return spam_as_spam + spam_as_unsure + spam_as_ham; }
    [[nodiscard]] std::uint64_t ham() const { return ham_as_spam + ham_as_unsure + ham_as_ham; }
    [[nodiscard]] std::uint64_t missed() const { return spam_as_unsure + spam_as_ham; }
    [[nodiscard]] std::uint64_t right() const { return spam_as_spam + ham_as_ham + ham_as_unsure; }
};
[[nodiscard]] confusion confuse(const std::vector<judged_mail>& mails);

// The area under the ROC curve: the chance that a spam message scores higher than a good one.
[[nodiscard]] double roc_area(const std::vector<judged_mail>& mails);

// The part of the spam (0 to 1) that is missed by the threshold at which no more than this part of the good
// mail is a false positive. Nothing if there is no spam, or too little good mail for that part to be one
// message.
[[nodiscard]] std::optional<double> missed_at(const std::vector<judged_mail>& mails, double false_positives);

struct block_errors {
    std::uint64_t mails = 0, false_positives = 0, missed = 0;
};
// Of each `block` messages in turn; the last block may be smaller.
[[nodiscard]] std::vector<block_errors> errors_by_block(const std::vector<judged_mail>& mails,
                                                        std::size_t block);

// The mail of about one score.
struct reliability_bin {
    double from = 0, to = 0; // scores
    std::uint64_t mails = 0;
    double said = 0; // the mean score, as a probability (0 to 1)
    double seen = 0; // the part that is spam
};
// The bins that have any mail; narrower towards the ends, where most of it lies.
[[nodiscard]] std::vector<reliability_bin> reliability(const std::vector<judged_mail>& mails);

} // namespace tvr
