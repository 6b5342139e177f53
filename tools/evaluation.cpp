#include "tools/evaluation.h"

#include <algorithm>
#include <array>
#include <cmath>
#include <cstdarg>
#include <cstdio>

namespace tvr {

namespace {

// Grows a text by a format.
class page {
public:
    [[gnu::format(printf, 2, 3)]] void add(const char* format, ...) {
        std::array<char, 1024> line;
        std::va_list arguments;
        va_start(arguments, format);
        std::vsnprintf(line.data(), line.size(), format, arguments);
        va_end(arguments);
        text += line.data();
    }
    std::string text;
};

constexpr double width = 580, height = 260, margin = 62; // of a plot, in pixels

double x_of(double part) {
    return margin + part * (width - 2 * margin);
}
double y_of(double part) {
    return height - margin - part * (height - 2 * margin);
}

void begin_plot(page& out, const char* title, const char* x_name, const char* y_name) {
    out.add("<h2>%s</h2>\n<svg viewBox=\"0 0 %.0f %.0f\" width=\"%.0f\" role=\"img\" aria-label=\"%s\">\n",
            title, width, height, width, title);
    out.add("<path d=\"M%.1f %.1fV%.1fH%.1f\" fill=\"none\" stroke=\"#888\"/>\n", x_of(0), y_of(1), y_of(0),
            x_of(1));
    out.add("<text x=\"%.1f\" y=\"%.1f\" text-anchor=\"middle\">%s</text>\n", x_of(0.5), height - 10, x_name);
    out.add("<text transform=\"translate(14 %.1f) rotate(-90)\" text-anchor=\"middle\">%s</text>\n",
            y_of(0.5), y_name);
}

void tick_x(page& out, double part, const char* text) {
    out.add("<text x=\"%.1f\" y=\"%.1f\" text-anchor=\"middle\">%s</text>\n", x_of(part), y_of(0) + 16, text);
}
void tick_y(page& out, double part, const char* text) {
    out.add("<text x=\"%.1f\" y=\"%.1f\" text-anchor=\"end\">%s</text>\n", x_of(0) - 6, y_of(part) + 4, text);
}

// How many messages have a score, on a logarithmic scale, since most lie at the ends.
void histogram(page& out, const std::vector<scored_mail>& mails, double spam_threshold,
               double unsure_threshold) {
    constexpr std::size_t bins = 25;
    std::array<std::array<std::uint64_t, bins>, 2> counts{};
    for (const scored_mail& mail : mails)
        ++counts[mail.spam ? 1 : 0][std::min(static_cast<std::size_t>(mail.score / 100 * bins), bins - 1)];
    std::uint64_t most = 1;
    for (const auto& half : counts)
        most = std::max(most, *std::max_element(half.begin(), half.end()));
    const auto tall = [&](std::uint64_t count) {
        return std::log1p(static_cast<double>(count)) / std::log1p(static_cast<double>(most));
    };
    begin_plot(out, "Scores", "score", "messages");
    constexpr std::array<const char*, 2> colors = {"#2a7f62", "#c0392b"};
    const double bar = (width - 2 * margin) / bins / 2 - 1;
    for (std::size_t half = 0; half < 2; ++half)
        for (std::size_t bin = 0; bin < bins; ++bin)
            if (counts[half][bin] != 0)
                out.add("<rect x=\"%.1f\" y=\"%.1f\" width=\"%.1f\" height=\"%.1f\" fill=\"%s\"/>\n",
                        x_of(static_cast<double>(bin) / bins) + static_cast<double>(half) * (bar + 1),
                        y_of(tall(counts[half][bin])), bar, y_of(0) - y_of(tall(counts[half][bin])),
                        colors[half]);
    for (const double threshold : {spam_threshold, unsure_threshold})
        out.add("<path d=\"M%.1f %.1fV%.1f\" stroke=\"#333\" stroke-dasharray=\"4 3\"/>\n",
                x_of(threshold / 100), y_of(0), y_of(1));
    tick_x(out, 0, "0");
    tick_x(out, 0.5, "50");
    tick_x(out, 1, "100");
    for (std::uint64_t mark = 1; mark <= most; mark *= 10)
        tick_y(out, tall(mark), std::to_string(mark).c_str());
    out.add("</svg>\n<p>Green: ham. Red: spam. Dashed: the thresholds for unsure and spam.</p>\n");
}

std::vector<scored_mail> falling(std::vector<scored_mail> mails) {
    std::sort(mails.begin(), mails.end(),
              [](const scored_mail& a, const scored_mail& b) { return a.score > b.score; });
    return mails;
}

// False positives to the logarithm, from one in ten thousand on.
void roc(page& out, const std::vector<scored_mail>& mails, const confusion& matrix) {
    begin_plot(out, "ROC", "false positives", "spam found");
    const double spam = std::max<double>(1, static_cast<double>(matrix.spam()));
    const double ham = std::max<double>(1, static_cast<double>(matrix.ham()));
    static constexpr double least = 1e-4;
    const auto place = [](double rate) {
        return std::max(0.0, 1 - std::log10(std::max(rate, least)) / std::log10(least));
    };
    const auto sorted = falling(mails);
    double found = 0;
    double wrong = 0;
    std::string path;
    for (std::size_t i = 0; i < sorted.size(); ++i) {
        (sorted[i].spam ? found : wrong) += 1;
        if (i + 1 < sorted.size() &&
            (sorted[i + 1].score == sorted[i].score || sorted[i + 1].spam == sorted[i].spam))
            continue;
        page step;
        step.add("%c%.1f %.1f", path.empty() ? 'M' : 'L', x_of(place(wrong / ham)), y_of(found / spam));
        path += step.text;
    }
    out.text += "<path d=\"" + path + "\" fill=\"none\" stroke=\"#1f4e9e\" stroke-width=\"2\"/>\n";
    tick_x(out, 0, "0.01 %");
    tick_x(out, 0.25, "0.1 %");
    tick_x(out, 0.5, "1 %");
    tick_x(out, 0.75, "10 %");
    tick_x(out, 1, "100 %");
    tick_y(out, 0, "0");
    tick_y(out, 0.5, "50 %");
    tick_y(out, 1, "100 %");
    out.add("</svg>\n");
}

void learning(page& out, const std::vector<learning_point>& curve) {
    if (curve.size() < 2)
        return;
    begin_plot(out, "Learning curve", "messages trained", "accuracy");
    const auto most = static_cast<double>(curve.back().trained);
    constexpr double lowest = 0.5;
    std::string path;
    for (const learning_point& point : curve) {
        page step;
        step.add("%c%.1f %.1f", path.empty() ? 'M' : 'L', x_of(static_cast<double>(point.trained) / most),
                 y_of(std::max(0.0, point.accuracy - lowest) / (1 - lowest)));
        path += step.text;
    }
    out.text += "<path d=\"" + path + "\" fill=\"none\" stroke=\"#1f4e9e\" stroke-width=\"2\"/>\n";
    tick_x(out, 0, "0");
    tick_x(out, 1, std::to_string(curve.back().trained).c_str());
    tick_y(out, 0, "50 %");
    tick_y(out, 0.5, "75 %");
    tick_y(out, 1, "100 %");
    out.add("</svg>\n");
}

std::string escaped(const std::string& text) {
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

} // namespace

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

confusion confuse(const std::vector<scored_mail>& mails, double spam_threshold, double unsure_threshold) {
    confusion matrix;
    for (const scored_mail& mail : mails) {
        if (mail.score >= spam_threshold)
            ++(mail.spam ? matrix.spam_as_spam : matrix.ham_as_spam);
        else if (mail.score >= unsure_threshold)
            ++(mail.spam ? matrix.spam_as_unsure : matrix.ham_as_unsure);
        else
            ++(mail.spam ? matrix.spam_as_ham : matrix.ham_as_ham);
    }
    return matrix;
}

double roc_area(const std::vector<scored_mail>& mails) {
    const auto sorted = falling(mails);
    double spam = 0;
    double ham = 0;
    double area = 0; // pairs in which the spam scores higher, ties as halves
    for (std::size_t i = 0; i < sorted.size();) {
        double spam_here = 0;
        double ham_here = 0;
        const double score = sorted[i].score;
        for (; i < sorted.size() && sorted[i].score == score; ++i)
            (sorted[i].spam ? spam_here : ham_here) += 1;
        area += ham_here * (spam + spam_here / 2);
        spam += spam_here;
        ham += ham_here;
    }
    return spam > 0 && ham > 0 ? area / spam / ham : 0.5;
}

std::string report_page(const std::vector<scored_mail>& mails, const confusion& matrix,
                        const std::vector<learning_point>& curve, const std::string& title,
                        double spam_threshold, double unsure_threshold) {
    page out;
    out.text =
        "<!DOCTYPE html>\n<html lang=\"en\"><head><meta charset=\"utf-8\"><title>" + escaped(title) +
        "</title>\n<style>body{font:15px sans-serif;max-width:40em;margin:2em auto;padding:0 1em}"
        "table{border-collapse:collapse}td,th{border:1px solid #aaa;padding:.3em .8em;text-align:right}"
        "svg text{font:11px sans-serif;fill:#333}</style></head><body>\n<h1>" +
        escaped(title) + "</h1>\n";
    const auto number = [](std::uint64_t value) { return static_cast<unsigned long long>(value); };
    out.add("<table><tr><th></th><th>called spam</th><th>unsure</th><th>called ham</th></tr>\n");
    out.add("<tr><th>spam</th><td>%llu</td><td>%llu</td><td>%llu</td></tr>\n", number(matrix.spam_as_spam),
            number(matrix.spam_as_unsure), number(matrix.spam_as_ham));
    out.add("<tr><th>ham</th><td>%llu</td><td>%llu</td><td>%llu</td></tr></table>\n",
            number(matrix.ham_as_spam), number(matrix.ham_as_unsure), number(matrix.ham_as_ham));
    const auto rate = [&](const char* name, std::uint64_t hits, std::uint64_t all) {
        const interval range = confidence(hits, all);
        out.add("<p>%s: <b>%.2f %%</b> (95 %%: %.2f to %.2f %%)</p>\n", name,
                all == 0 ? 0 : 100 * static_cast<double>(hits) / static_cast<double>(all), 100 * range.low,
                100 * range.high);
    };
    rate("Accuracy", matrix.right(), matrix.spam() + matrix.ham());
    rate("False positives", matrix.ham_as_spam, matrix.ham());
    rate("Missed spam", matrix.missed(), matrix.spam());
    out.add("<p>Area under the ROC curve: <b>%.5f</b></p>\n", roc_area(mails));
    histogram(out, mails, spam_threshold, unsure_threshold);
    roc(out, mails, matrix);
    learning(out, curve);
    out.text += "</body></html>\n";
    return out.text;
}

} // namespace tvr
