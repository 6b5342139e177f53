#include "tools/eval/evaluation_report.h"

#include <algorithm>
#include <array>
#include <cstdio>
#include <string_view>

#include "tools/eval/evaluation_plots.h"
#include "tools/text.h"

namespace tvr {

namespace {

constexpr std::size_t most_shown = 20; // wrong messages in the text
constexpr std::size_t per_line = 10;   // blocks
constexpr const char* how_unsure_counts =
    "What is only unsure counts as not spam: spam is then missed, good mail isn't wrong.";

template <class... Values>
std::string formatted(const char* format, Values... values) {
    std::array<char, 512> room;
    std::snprintf(room.data(), room.size(), format, values...);
    return room.data();
}

struct figure {
    const char* name;
    std::string value;
    std::string note;
};

std::vector<figure> figures_of(const evaluation_result& result) {
    const confusion matrix = confuse(result.mails);
    std::vector<figure> figures;
    const auto rate = [&](const char* name, std::uint64_t hits, std::uint64_t all) {
        const interval range = confidence(hits, all);
        figures.push_back(
            {name,
             formatted("%.2f %%", all == 0 ? 0 : 100 * static_cast<double>(hits) / static_cast<double>(all)),
             formatted("95 %%: %.2f to %.2f %%", 100 * range.low, 100 * range.high)});
    };
    rate("Right", matrix.right(), matrix.spam() + matrix.ham());
    rate("False positives", matrix.ham_as_spam, matrix.ham());
    rate("Missed spam", matrix.missed(), matrix.spam());
    figures.push_back({"1-ROCA", formatted("%.4f %%", 100 * (1 - roc_area(result.mails))),
                       "how often a good mail has a higher score than a spam"});
    const auto missed = missed_at(result.mails, 0.001);
    figures.push_back({"Missed at 0.1 %", missed ? formatted("%.2f %%", 100 * *missed) : "-",
                       missed ? "of the spam, with the threshold at 0.1 % false positives"
                              : "that needs 1,000 good mails"});
    return figures;
}

std::vector<std::array<std::string, 4>> matrix_rows(const evaluation_result& result) {
    const confusion found = confuse(result.mails);
    return {{"", "called spam", "unsure", "called ham"},
            {"spam", grouped(found.spam_as_spam), grouped(found.spam_as_unsure), grouped(found.spam_as_ham)},
            {"ham", grouped(found.ham_as_spam), grouped(found.ham_as_unsure), grouped(found.ham_as_ham)}};
}

// The places of the messages with a wrong verdict: first the good ones, each kind with the worst ones first.
std::vector<std::size_t> wrong_mails(const evaluation_result& result) {
    std::vector<std::size_t> wrong;
    for (std::size_t i = 0; i < result.mails.size(); ++i)
        if (is_wrong(result.mails[i]))
            wrong.push_back(i);
    std::ranges::stable_sort(wrong, [&](std::size_t a, std::size_t b) {
        const judged_mail& one = result.mails[a];
        const judged_mail& other = result.mails[b];
        if (one.spam != other.spam)
            return other.spam;
        return one.spam ? one.score < other.score : one.score > other.score;
    });
    return wrong;
}

std::string wrong_line(const evaluation_result& result, std::size_t place) {
    const judged_mail& mail = result.mails[place];
    return formatted("%-15s %6.2f  ", mail.spam ? "missed spam" : "false positive", mail.score) +
           result.names[place];
}

std::string block_lines(const evaluation_result& result) {
    if (result.block == 0)
        return {};
    std::string text = "\nErrors a block, false positives + missed spam, from the second block on:\n";
    const auto blocks = errors_by_block(result.mails, result.block);
    for (std::size_t i = 0; i < blocks.size(); ++i) {
        if (i % per_line == 0)
            text += formatted("%s%6zu:", i == 0 ? "" : "\n", i + 2);
        text += formatted(
            " %7s",
            (std::to_string(blocks[i].false_positives) + "+" + std::to_string(blocks[i].missed)).c_str());
    }
    return text + "\n";
}

std::string escaped(std::string_view text) {
    std::string out;
    for (const char c : text) {
        if (c == '<')
            out += "&lt;";
        else if (c == '&')
            out += "&amp;";
        else
            out += c;
    }
    return out;
}

std::string reliability_table(const evaluation_result& result) {
    std::string text = "<table><tr><th>score</th><th>messages</th><th>said</th><th>seen</th></tr>\n";
    for (const reliability_bin& bin : reliability(result.mails))
        text += formatted("<tr><td>%g to %g</td><td>%s</td><td>%.1f %%</td><td>%.1f %%</td></tr>\n", bin.from,
                          bin.to, grouped(bin.mails).c_str(), 100 * bin.said, 100 * bin.seen);
    return text + "</table>\n";
}

} // namespace

std::string report_text(const evaluation_result& result) {
    std::string text = result.title + "\n";
    for (const auto& [name, value] : result.circumstances)
        text += formatted("%-11s ", name.c_str()) + value + "\n";
    text += "\n";
    for (const auto& row : matrix_rows(result))
        text +=
            formatted("%8s %12s %12s %12s\n", row[0].c_str(), row[1].c_str(), row[2].c_str(), row[3].c_str());
    text += "\n";
    for (const figure& line : figures_of(result))
        text += formatted("%-16s %9s  (%s)\n", line.name, line.value.c_str(), line.note.c_str());
    text += std::string(how_unsure_counts) + "\n" + block_lines(result);
    const auto wrong = wrong_mails(result);
    if (!wrong.empty())
        text += "\nWrong, the worst first:\n";
    for (std::size_t i = 0; i < std::min(wrong.size(), most_shown); ++i)
        text += wrong_line(result, wrong[i]) + "\n";
    if (wrong.size() > most_shown)
        text += "and " + grouped(wrong.size() - most_shown) + " more, which --report and --scores tell\n";
    return text;
}

std::string report_page(const evaluation_result& result) {
    std::string text =
        "<!DOCTYPE html>\n<html lang=\"en\"><head><meta charset=\"utf-8\"><title>" + escaped(result.title) +
        "</title>\n<style>body{font:15px sans-serif;max-width:40em;margin:2em auto;padding:0 1em}"
        "table{border-collapse:collapse}td,th{border:1px solid #aaa;padding:.3em .8em;text-align:right}"
        "svg text{font:11px "
        "sans-serif;fill:#333}dt{font-weight:bold}pre{overflow-x:auto}</style></head><body>\n"
        "<h1>" +
        escaped(result.title) + "</h1>\n<dl>\n";
    for (const auto& [name, value] : result.circumstances)
        text += "<dt>" + escaped(name) + "</dt><dd>" + escaped(value) + "</dd>\n";
    text += "</dl>\n<table>\n";
    for (const auto& row : matrix_rows(result)) {
        text += "<tr>";
        for (const std::string& cell : row)
            text += "<td>" + cell + "</td>";
        text += "</tr>\n";
    }
    text += "</table>\n";
    for (const figure& line : figures_of(result))
        text += formatted("<p>%s: <b>%s</b> (%s)</p>\n", line.name, line.value.c_str(), line.note.c_str());
    text += std::string("<p>") + how_unsure_counts + "</p>\n";
    text += block_plot(result) + score_plot(result) + roc_plot(result) + reliability_plot(result) +
            reliability_table(result) + learning_plot(result);
    text += "<h2>Wrong verdicts</h2>\n<pre>\n";
    for (const std::size_t place : wrong_mails(result))
        text += escaped(wrong_line(result, place)) + "\n";
    return text + "</pre>\n</body></html>\n";
}

} // namespace tvr
