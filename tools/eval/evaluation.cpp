#include "tools/eval/evaluation.h"

#include <algorithm>
#include <array>
#include <cmath>
#include <functional>

namespace tvr {

interval confidence(std::uint64_t hits, std::uint64_t all) {
    if (all == 0)
        return {0, 1};
    constexpr double z = 1.959964;
    const auto n = static_cast<double>(all);
    const double rate = static_cast<double>(hits) / n;
    const double middle = (rate + z * z / (2 * n)) / (1 + z * z / n);
    const double reach = z * std::sqrt(rate * (1 - rate) / n + z * z / (4 * n * n)) / (1 + z * z / n);
    return {std::max(0.0, middle - reach), std::min(1.0, middle + reach)};
}

confusion confuse(const std::vector<judged_mail>& mails) {
    confusion matrix;
    for (const judged_mail& mail : mails) {
        if (mail.decision == verdict::spam)
            ++(mail.spam ? matrix.spam_as_spam : matrix.ham_as_spam);
        else if (mail.decision == verdict::unsure)
            ++(mail.spam ? matrix.spam_as_unsure : matrix.ham_as_unsure);
        else
            ++(mail.spam ? matrix.spam_as_ham : matrix.ham_as_ham);
    }
    return matrix;
}

double roc_area(const std::vector<judged_mail>& mails) {
    std::vector<judged_mail> falling = mails;
    std::ranges::sort(falling, std::greater{}, &judged_mail::score);
    double spam = 0;
    double ham = 0;
    double area = 0; // pairs in which the spam scores higher, ties as halves
    for (std::size_t i = 0; i < falling.size();) {
        double spam_here = 0;
        double ham_here = 0;
        const double score = falling[i].score;
        for (; i < falling.size() && falling[i].score == score; ++i)
            (falling[i].spam ? spam_here : ham_here) += 1;
        area += ham_here * (spam + spam_here / 2);
        spam += spam_here;
        ham += ham_here;
    }
    return spam > 0 && ham > 0 ? area / spam / ham : 0.5;
}

std::optional<double> missed_at(const std::vector<judged_mail>& mails, double false_positives) {
    std::vector<double> ham;
    for (const judged_mail& mail : mails)
        if (!mail.spam)
            ham.push_back(mail.score);
    const std::size_t spam = mails.size() - ham.size();
    const auto allowed = static_cast<std::size_t>(static_cast<double>(ham.size()) * false_positives + 1e-9);
    if (spam == 0 || allowed == 0 || allowed >= ham.size())
        return std::nullopt;
    // The threshold lies right above the first good message that is one too many.
    const auto first = ham.begin() + static_cast<std::ptrdiff_t>(allowed);
    std::nth_element(ham.begin(), first, ham.end(), std::greater{});
    const auto missed = std::ranges::count_if(
        mails, [&](const judged_mail& mail) { return mail.spam && mail.score <= *first; });
    return static_cast<double>(missed) / static_cast<double>(spam);
}

std::vector<block_errors> errors_by_block(const std::vector<judged_mail>& mails, std::size_t block) {
    std::vector<block_errors> blocks((mails.size() + block - 1) / block);
    for (std::size_t i = 0; i < mails.size(); ++i) {
        block_errors& here = blocks[i / block];
        ++here.mails;
        if (is_wrong(mails[i]))
            ++(mails[i].spam ? here.missed : here.false_positives);
    }
    return blocks;
}

std::vector<reliability_bin> reliability(const std::vector<judged_mail>& mails) {
    constexpr std::array<double, 11> edges = {0, 1, 5, 10, 25, 50, 75, 90, 95, 99, 100};
    std::vector<reliability_bin> bins;
    for (std::size_t i = 0; i + 1 < edges.size(); ++i)
        bins.push_back({.from = edges[i], .to = edges[i + 1]});
    for (const judged_mail& mail : mails) {
        const auto edge = std::upper_bound(edges.begin() + 1, edges.end() - 1, mail.score);
        reliability_bin& bin = bins[static_cast<std::size_t>(edge - edges.begin() - 1)];
        ++bin.mails;
        bin.said += mail.score / 100;
        bin.seen += mail.spam ? 1 : 0;
    }
    std::erase_if(bins, [](const reliability_bin& bin) { return bin.mails == 0; });
    for (reliability_bin& bin : bins) {
        bin.said /= static_cast<double>(bin.mails);
        bin.seen /= static_cast<double>(bin.mails);
    }
    return bins;
}

} // namespace tvr
