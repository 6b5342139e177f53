// How well a filter told spam from ham: figures and plots of a list of scores.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

namespace tvr {

struct scored_mail {
    double score = 0; // 0 to 100
    bool spam = false;
};

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
    // Spam that isn't called spam is missed; unsure ham is not wrong.
    [[nodiscard]] std::uint64_t missed() const { return spam_as_unsure + spam_as_ham; }
    [[nodiscard]] std::uint64_t right() const { return spam_as_spam + ham_as_ham + ham_as_unsure; }
};
[[nodiscard]] confusion confuse(const std::vector<scored_mail>& mails, double spam_threshold,
                                double unsure_threshold);

// The area under the ROC curve: the chance that a spam message scores higher than a good one.
[[nodiscard]] double roc_area(const std::vector<scored_mail>& mails);

struct learning_point {
    std::uint64_t trained = 0; // messages
    double accuracy = 0;       // 0 to 1
};

// A page of HTML with nothing outside itself and no script.
[[nodiscard]] std::string report_page(const std::vector<scored_mail>& mails, const confusion& matrix,
                                      const std::vector<learning_point>& curve, const std::string& title,
                                      double spam_threshold, double unsure_threshold);

} // namespace tvr
