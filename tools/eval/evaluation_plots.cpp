#include "tools/eval/evaluation_plots.h"

#include <algorithm>
#include <array>
#include <cmath>
#include <cstdarg>
#include <cstdio>
#include <functional>

namespace tvr {

namespace {

constexpr double width = 580, height = 260, margin = 62; // of a plot, in pixels
constexpr const char* ham_color = "#2a7f62";
constexpr const char* spam_color = "#c0392b";
constexpr const char* line_color = "#1f4e9e";

// Places within a plot, from 0 to 1, become pixels.
double x_of(double part) {
    return margin + part * (width - 2 * margin);
}
double y_of(double part) {
    return height - margin - part * (height - 2 * margin);
}

class plot {
public:
    plot(const char* title, const char* x_name, const char* y_name) {
        add("<h2>%s</h2>\n<svg viewBox=\"0 0 %.0f %.0f\" width=\"%.0f\" role=\"img\" aria-label=\"%s\">\n",
            title, width, height, width, title);
        add("<path d=\"M%.1f %.1fV%.1fH%.1f\" fill=\"none\" stroke=\"#888\"/>\n", x_of(0), y_of(1), y_of(0),
            x_of(1));
        add("<text x=\"%.1f\" y=\"%.1f\" text-anchor=\"middle\">%s</text>\n", x_of(0.5), height - 10, x_name);
        add("<text transform=\"translate(14 %.1f) rotate(-90)\" text-anchor=\"middle\">%s</text>\n",
            y_of(0.5), y_name);
    }

    void tick_x(double part, const std::string& text) {
        add("<text x=\"%.1f\" y=\"%.1f\" text-anchor=\"middle\">%s</text>\n", x_of(part), y_of(0) + 16,
            text.c_str());
    }
    void tick_y(double part, const std::string& text) {
        add("<text x=\"%.1f\" y=\"%.1f\" text-anchor=\"end\">%s</text>\n", x_of(0) - 6, y_of(part) + 4,
            text.c_str());
    }
    // From the axis, or from the end of another bar, upwards.
    void bar(double x, double bar_width, double from, double to, const char* color) {
        if (to > from)
            add("<rect x=\"%.1f\" y=\"%.1f\" width=\"%.1f\" height=\"%.1f\" fill=\"%s\"/>\n", x, y_of(to),
                bar_width, y_of(from) - y_of(to), color);
    }
    void dashed(double from_x, double from_y, double to_x, double to_y) {
        add("<path d=\"M%.1f %.1fL%.1f %.1f\" stroke=\"#333\" stroke-dasharray=\"4 3\"/>\n", x_of(from_x),
            y_of(from_y), x_of(to_x), y_of(to_y));
    }
    void dot(double x, double y) {
        add("<circle cx=\"%.1f\" cy=\"%.1f\" r=\"4\" fill=\"%s\"/>\n", x_of(x), y_of(y), line_color);
    }
    // The line through these points, in the order they come.
    void begin_line() {
        m_text += "<path d=\"";
        m_step = 'M';
    }
    void go_to(double x, double y) {
        add("%c%.1f %.1f", m_step, x_of(x), y_of(y));
        m_step = 'L';
    }
    void end_line() { add("\" fill=\"none\" stroke=\"%s\" stroke-width=\"2\"/>\n", line_color); }

    [[nodiscard]] std::string end(const char* legend = "") {
        m_text += "</svg>\n";
        if (*legend)
            add("<p>%s</p>\n", legend);
        return std::move(m_text);
    }

private:
    [[gnu::format(printf, 2, 3)]] void add(const char* format, ...) {
        std::array<char, 1024> line;
        std::va_list arguments;
        va_start(arguments, format);
        std::vsnprintf(line.data(), line.size(), format, arguments);
        va_end(arguments);
        m_text += line.data();
    }

    std::string m_text;
    char m_step = 'M';
};

} // namespace

std::string score_plot(const evaluation_result& result) {
    constexpr std::size_t bins = 25;
    std::array<std::array<std::uint64_t, bins>, 2> counts{};
    for (const judged_mail& mail : result.mails)
        ++counts[mail.spam ? 1 : 0][std::min(static_cast<std::size_t>(mail.score / 100 * bins), bins - 1)];
    std::uint64_t most = 1;
    for (const auto& half : counts)
        most = std::max(most, *std::max_element(half.begin(), half.end()));
    // To the logarithm, since most messages lie at the ends.
    const auto tall = [&](std::uint64_t count) {
        return std::log1p(static_cast<double>(count)) / std::log1p(static_cast<double>(most));
    };
    plot out("Scores", "score", "messages");
    const double bar = (width - 2 * margin) / bins / 2 - 1;
    for (std::size_t half = 0; half < 2; ++half)
        for (std::size_t bin = 0; bin < bins; ++bin)
            out.bar(x_of(static_cast<double>(bin) / bins) + static_cast<double>(half) * (bar + 1), bar, 0,
                    tall(counts[half][bin]), half == 0 ? ham_color : spam_color);
    for (const double threshold : {result.spam_threshold, result.unsure_threshold})
        out.dashed(threshold / 100, 0, threshold / 100, 1);
    for (const int mark : {0, 50, 100})
        out.tick_x(mark / 100.0, std::to_string(mark));
    for (std::uint64_t mark = 1; mark <= most; mark *= 10)
        out.tick_y(tall(mark), std::to_string(mark));
    return out.end("Green: ham. Red: spam. Dashed: the thresholds for unsure and spam.");
}

std::string roc_plot(const evaluation_result& result) {
    plot out("ROC", "false positives", "spam found");
    const confusion matrix = confuse(result.mails);
    const double spam = std::max<double>(1, static_cast<double>(matrix.spam()));
    const double ham = std::max<double>(1, static_cast<double>(matrix.ham()));
    static constexpr double least = 1e-4; // the axis is logarithmic
    const auto place = [](double rate) {
        return std::max(0.0, 1 - std::log10(std::max(rate, least)) / std::log10(least));
    };
    std::vector<judged_mail> falling = result.mails;
    std::ranges::sort(falling, std::greater{}, &judged_mail::score);
    double found = 0;
    double wrong = 0;
    out.begin_line();
    out.go_to(0, 0);
    for (std::size_t i = 0; i < falling.size(); ++i) {
        (falling[i].spam ? found : wrong) += 1;
        if (i + 1 == falling.size() ||
            (falling[i + 1].score != falling[i].score && falling[i + 1].spam != falling[i].spam))
            out.go_to(place(wrong / ham), found / spam);
    }
    out.end_line();
    constexpr std::array<const char*, 5> rates = {"0.01 %", "0.1 %", "1 %", "10 %", "100 %"};
    for (std::size_t i = 0; i < rates.size(); ++i)
        out.tick_x(static_cast<double>(i) / 4, rates[i]);
    for (const int mark : {0, 50, 100})
        out.tick_y(mark / 100.0, std::to_string(mark) + " %");
    return out.end();
}

std::string reliability_plot(const evaluation_result& result) {
    plot out("Reliability", "spam said", "spam seen");
    out.dashed(0, 0, 1, 1);
    for (const reliability_bin& bin : reliability(result.mails))
        out.dot(bin.said, bin.seen);
    for (const int mark : {0, 50, 100}) {
        out.tick_x(mark / 100.0, std::to_string(mark) + " %");
        out.tick_y(mark / 100.0, std::to_string(mark) + " %");
    }
    return out.end("A score that is a probability lies on the dashed line.");
}

std::string learning_plot(const evaluation_result& result) {
    if (result.curve.size() < 2)
        return {};
    plot out("Learning curve", "messages trained", "right");
    const auto most = static_cast<double>(result.curve.back().trained);
    constexpr double lowest = 0.5;
    out.begin_line();
    for (const learning_point& point : result.curve)
        out.go_to(static_cast<double>(point.trained) / most,
                  std::max(0.0, point.accuracy - lowest) / (1 - lowest));
    out.end_line();
    out.tick_x(0, "0");
    out.tick_x(1, std::to_string(result.curve.back().trained));
    for (const int mark : {50, 75, 100})
        out.tick_y((mark / 100.0 - lowest) / (1 - lowest), std::to_string(mark) + " %");
    return out.end();
}

std::string block_plot(const evaluation_result& result) {
    if (result.block == 0)
        return {};
    const auto blocks = errors_by_block(result.mails, result.block);
    std::uint64_t most = 1;
    for (const block_errors& block : blocks)
        most = std::max(most, block.false_positives + block.missed);
    const auto part = [&](std::uint64_t count) {
        return static_cast<double>(count) / static_cast<double>(most);
    };
    plot out("Errors over time", "block", "errors in a block");
    const double step = (width - 2 * margin) / static_cast<double>(std::max<std::size_t>(1, blocks.size()));
    for (std::size_t i = 0; i < blocks.size(); ++i) {
        const double x = x_of(0) + static_cast<double>(i) * step;
        const double lower = part(blocks[i].missed);
        out.bar(x, step * 0.8, 0, lower, spam_color);
        out.bar(x, step * 0.8, lower, lower + part(blocks[i].false_positives), ham_color);
    }
    out.tick_x(0, "2"); // the first block is only trained
    out.tick_x(1, std::to_string(blocks.size() + 1));
    out.tick_y(0, "0");
    out.tick_y(1, std::to_string(most));
    return out.end("Red: spam that was missed. Green: good mail that was called spam.");
}

} // namespace tvr
