// tvrctl eval: how well the filter does on labelled mail, shown on a root of its own with an engine of its
// own.

#include <algorithm>
#include <array>
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <memory>
#include <numeric>
#include <optional>

#include "common/minutes.h"
#include "platform/clock.h"
#include "platform/folder_watch.h"
#include "tools/commands/mail_input.h"
#include "tools/commands/train.h"
#include "tools/eval/evaluation_report.h"
#include "tools/eval/mail_spool.h"
#include "tools/eval/trial_root.h"
#include "tools/mail/mail_reading.h"
#include "tools/progress.h"
#include "tools/state/published_base.h"

namespace tvr {

namespace {

constexpr std::uint64_t fewest = 10; // messages of a kind that are judged, for figures that mean anything
constexpr std::array<const char*, 2> kind_names = {"good mail", "spam"};

struct eval_options {
    std::vector<std::string> spam, ham;
    std::vector<std::string> test_spam, test_ham; // if given, all of the others is trained
    double split = 60;                            // percent of the mail that is trained
    std::uint64_t seed = 1;
    bool by_time = false;
    bool stream = false;
    std::size_t block = 500; // of the stream
    std::string rule = "kinds";
    std::string report;
    std::string scores;
    unsigned threads = 0;
    bool quiet = false;

    [[nodiscard]] bool has_own_test() const { return !test_spam.empty() || !test_ham.empty(); }
};

// A number from 0 to 1 for each message, always the same for one seed.
double lot_of(std::uint64_t seed, std::uint64_t index) {
    std::uint64_t x = seed * 0x9E3779B97F4A7C15ULL + (index + 1) * 0xBF58476D1CE4E5B9ULL;
    x = (x ^ x >> 30) * 0xBF58476D1CE4E5B9ULL;
    x = (x ^ x >> 27) * 0x94D049BB133111EBULL;
    return static_cast<double>((x ^ x >> 31) >> 11) / 9007199254740992.0;
}

std::vector<std::size_t> places_of(const std::vector<spooled_mail>& mails) {
    std::vector<std::size_t> places(mails.size());
    std::iota(places.begin(), places.end(), std::size_t{0});
    return places;
}

// The lots by time, within each half for itself.
std::vector<double> lots_by_time(const std::vector<spooled_mail>& mails) {
    std::vector<double> lots(mails.size());
    std::array<std::vector<std::size_t>, 2> halves;
    for (const std::size_t place : places_of(mails))
        halves[mails[place].spam ? 1 : 0].push_back(place);
    for (auto& half : halves) {
        std::ranges::stable_sort(half, {}, [&](std::size_t place) { return mails[place].time; });
        for (std::size_t i = 0; i < half.size(); ++i)
            lots[half[i]] = static_cast<double>(i) / static_cast<double>(half.size());
    }
    return lots;
}

// By the Received lines, the mail without one first: no server has passed it on. If that is most of the mail,
// by the Date lines.
std::vector<std::size_t> order_of_arrival(const std::vector<spooled_mail>& mails) {
    const auto unstamped = static_cast<std::size_t>(std::ranges::count(mails, 0U, &spooled_mail::arrival));
    const auto time = unstamped > mails.size() / 2 ? &spooled_mail::time : &spooled_mail::arrival;
    std::vector<std::size_t> order = places_of(mails);
    std::ranges::stable_sort(order, {}, [&](std::size_t place) { return mails[place].*time; });
    return order;
}

// A file that is written at the end of long work, and found unwritable before it.
class late_file {
public:
    explicit late_file(std::string path) : m_path(std::move(path)) {
        std::error_code error;
        m_is_new = wanted() && !std::filesystem::exists(m_path, error);
        if (wanted())
            m_ok = std::ofstream(m_path, std::ios::binary | std::ios::app).is_open();
    }
    ~late_file() {
        std::error_code ignored;
        if (wanted() && m_is_new && !m_written)
            std::filesystem::remove(m_path, ignored);
    }
    late_file(const late_file&) = delete;
    late_file& operator=(const late_file&) = delete;

    [[nodiscard]] bool wanted() const { return !m_path.empty(); }
    [[nodiscard]] bool ok() const { return m_ok; }
    [[nodiscard]] std::string defect() const { return m_path + ": can't be written"; }
    bool write(const std::string& text) {
        std::ofstream out(m_path, std::ios::binary);
        out << text;
        out.close();
        m_written = true;
        return m_ok = out.good();
    }

private:
    std::string m_path;
    bool m_is_new = false;
    bool m_ok = true;
    bool m_written = false;
};

std::string joined(const std::vector<std::string>& paths) {
    std::string text;
    for (const std::string& path : paths)
        text += (text.empty() ? "" : " ") + path;
    return text;
}

std::string number_text(const char* format, double number) {
    std::array<char, 40> text;
    std::snprintf(text.data(), text.size(), format, number);
    return text.data();
}

class evaluation {
public:
    explicit evaluation(const eval_options& options)
        : m_options(options), m_report(options.report), m_scores(options.scores),
          m_start(platform::system_time()) {}

    int run() {
        for (const late_file* file : {&m_report, &m_scores})
            if (!file->ok())
                return fail(file->defect());
        if (!platform::folder_watch::take_stop_requests())
            return fail("the requests to stop can't be taken");
        m_root.emplace();
        if (!m_root->made())
            return fail("no folder of temporary files could be made");
        m_spool.emplace(m_root->path() + "/mail");
        m_block_file = m_root->path() + "/block";
        if (const int code = measure(); code != exit_code::done)
            return code;
        m_spool->close();
        m_root.reset();
        return tell();
    }

private:
    int measure() {
        if (const std::string why = learning_conflict({.spam = m_options.spam, .ham = m_options.ham});
            !why.empty()) {
            fail(why);
            return exit_code::usage;
        }
        const auto read_in = [&](const auto& spam, const auto& ham) {
            return m_spool->read_in(spam, ham, m_options.threads, m_options.quiet);
        };
        bool read = read_in(m_options.spam, m_options.ham);
        m_own = m_spool->mails().size();
        if (m_options.has_own_test())
            read = read && read_in(m_options.test_spam, m_options.test_ham);
        if (!read)
            return fail(m_spool->path() + ": can't be written");
        if (stopped())
            return fail("stopped");
        const int plan = m_options.stream ? plan_stream() : plan_split();
        if (plan != exit_code::done)
            return plan;
        if (!m_root->start_engine())
            return fail("the engine could not be started");
        return m_options.stream ? play_stream() : play_split();
    }

    static bool stopped() { return platform::folder_watch::stop_requested(); }

    // Refuses what can give no figures.
    int check(const std::vector<std::size_t>& trained, const std::vector<std::size_t>& judged) const {
        for (const bool spam : {true, false}) {
            const auto is_of_kind = [&](std::size_t place) { return m_spool->mails()[place].spam == spam; };
            const std::string kind = kind_names[spam ? 1 : 0];
            if (std::ranges::none_of(trained, is_of_kind))
                return fail("there is no " + kind + " to train on");
            const auto count = static_cast<std::uint64_t>(std::ranges::count_if(judged, is_of_kind));
            if (count < fewest)
                return fail("there are " + std::to_string(count) + " messages of " + kind +
                            " to judge, too few for a figure; " + std::to_string(fewest) + " are needed");
        }
        return exit_code::done;
    }

    // --- one cut

    int plan_split() {
        const auto& mails = m_spool->mails();
        if (m_options.by_time) {
            m_lots = lots_by_time(mails);
        } else {
            for (const std::size_t place : places_of(mails))
                m_lots.push_back(lot_of(m_options.seed, place));
        }
        m_part = m_options.has_own_test() ? 1 : m_options.split / 100;
        for (const std::size_t place : places_of(mails))
            if (m_options.has_own_test() ? place >= m_own : m_lots[place] >= m_part)
                m_judged.push_back(place);
        return check(own_lots(0, m_part), m_judged);
    }

    [[nodiscard]] std::vector<std::size_t> own_lots(double from, double to) const {
        std::vector<std::size_t> places;
        for (std::size_t place = 0; place < m_own; ++place)
            if (m_lots[place] >= from && m_lots[place] < to)
                places.push_back(place);
        return places;
    }

    int play_split() {
        // With a report, in steps, for its learning curve.
        const std::vector<double> steps =
            m_report.wanted() ? std::vector<double>{0.05, 0.1, 0.25, 0.5, 1} : std::vector<double>{1};
        double from = 0;
        std::uint64_t trained = 0;
        for (const double step : steps) {
            const auto part = own_lots(from, step * m_part);
            from = step * m_part;
            trained += part.size();
            if (const int code = train_part(part); code != exit_code::done)
                return code;
            m_result.mails.clear();
            if (const int code = judge(m_judged); code != exit_code::done)
                return code;
            m_result.curve.push_back({trained, static_cast<double>(confuse(m_result.mails).right()) /
                                                   static_cast<double>(m_judged.size())});
        }
        m_result.title =
            "Trained on " + grouped(trained) + " messages, tested on " + grouped(m_judged.size()) + ".";
        return exit_code::done;
    }

    // --- a stream

    int plan_stream() {
        m_order = order_of_arrival(m_spool->mails());
        if (m_order.size() <= m_options.block)
            return fail("there are " + grouped(m_order.size()) + " messages; more than one block of " +
                        grouped(m_options.block) + " is needed");
        const auto second = m_order.begin() + static_cast<std::ptrdiff_t>(m_options.block);
        m_judged.assign(second, m_order.end());
        return check(m_order, m_judged);
    }

    int play_stream() {
        progress told("Playing the stream", m_options.quiet);
        for (std::size_t at = 0; at < m_order.size(); at += m_options.block) {
            const auto begin = m_order.begin() + static_cast<std::ptrdiff_t>(at);
            const std::vector<std::size_t> block(
                begin, begin + static_cast<std::ptrdiff_t>(std::min(m_options.block, m_order.size() - at)));
            if (at != 0)
                if (const int code = judge(block); code != exit_code::done)
                    return code;
            if (const int code = train_part(block); code != exit_code::done)
                return code;
            told.show(at + block.size(), m_order.size(), grouped(at + block.size()) + " messages");
        }
        m_result.block = m_options.block;
        m_result.title = grouped(m_order.size()) + " messages in the order of arrival, in blocks of " +
                         grouped(m_options.block) +
                         ": each judged, then trained; the first one is only trained.";
        return exit_code::done;
    }

    // --- both

    // As "tvrctl train" hands mail over.
    int train_part(const std::vector<std::size_t>& places) {
        if (places.empty())
            return exit_code::done;
        if (!m_spool->write_stream(places, m_block_file))
            return fail(m_block_file + ": can't be written");
        train_options options;
        options.records = {m_block_file};
        options.again = options.wait = options.silent = options.quiet = true;
        const int code = train(options);
        if (stopped())
            return code == exit_code::done ? fail("stopped") : code;
        return code == exit_code::nothing_taken ? exit_code::done : code; // all of it was known
    }

    // By the published base; without one nothing is known of any token.
    int judge(const std::vector<std::size_t>& places) {
        published_base base;
        if (const std::string why = base.is_there() ? base.load() : std::string(); !why.empty())
            return fail(why);
        const mail_scorer scorer = base.scorer(rule_of(m_options.rule));
        if (!base.remark().empty())
            fail(base.remark());
        m_limits = scorer.settings().limits;
        m_result.unsure_threshold = scorer.settings().unsure_threshold;
        token_table tokens;
        for (const std::size_t place : places) {
            if (stopped())
                return fail("stopped");
            if (!m_spool->tokens_of(place, tokens))
                return fail(m_spool->path() + ": can't be read");
            const message_score found = scorer.score(tokens);
            m_result.spam_threshold = found.spam_from;
            m_result.mails.push_back({found.score, m_spool->mails()[place].spam, found.decision});
        }
        return exit_code::done;
    }

    int tell() {
        const auto& mails = m_spool->mails();
        for (const std::size_t place : m_judged)
            m_result.names.push_back(mails[place].name);
        m_result.circumstances = circumstances();
        std::fputs(report_text(m_result).c_str(), stdout);
        if (m_report.wanted() && !m_report.write(report_page(m_result)))
            return fail(m_report.defect());
        if (m_scores.wanted() && !m_scores.write(scores_text()))
            return fail(m_scores.defect());
        return exit_code::done;
    }

    [[nodiscard]] std::vector<std::pair<std::string, std::string>> circumstances() const {
        std::vector<std::pair<std::string, std::string>> all = {
            {"Rule", m_options.rule},
            {"Thresholds", "spam from " + number_text("%g", m_limits.spam_threshold) + ", unsure from " +
                               number_text("%g", m_result.unsure_threshold)}};
        if (m_options.rule == "kinds" && m_limits.false_positives < 100)
            all.back().second += "; for " + number_text("%g", m_limits.false_positives) +
                                 " % false positives at most, spam from " +
                                 number_text("%.2f", m_result.spam_threshold) + " in the end";
        if (!m_options.stream && !m_options.has_own_test())
            all.emplace_back("Cut",
                             number_text("%g", m_options.split) + " % trained, " +
                                 (m_options.by_time ? "the older mail"
                                                    : "at random, seed " + std::to_string(m_options.seed)));
        if (m_result.curve.size() > 1)
            all.emplace_back("Trained", "in " + std::to_string(m_result.curve.size()) +
                                            " steps, for the learning curve");
        all.emplace_back("Spam", joined(m_options.spam));
        all.emplace_back("Good mail", joined(m_options.ham));
        if (m_options.has_own_test()) {
            all.emplace_back("Test spam", joined(m_options.test_spam));
            all.emplace_back("Test good", joined(m_options.test_ham));
        }
        all.emplace_back("Date", time_text(m_start));
        return all;
    }

    // One line a message. The first block of a stream is there, too, for others that play it: without scores.
    [[nodiscard]] std::string scores_text() const {
        std::string text = "index,time,spam,score,path\n";
        const std::size_t unjudged = m_order.size() - std::min(m_order.size(), m_judged.size());
        for (std::size_t i = 0; i < unjudged; ++i)
            text += scores_line(i, m_order[i], "");
        for (std::size_t i = 0; i < m_judged.size(); ++i)
            text += scores_line(m_options.stream ? unjudged + i : m_judged[i], m_judged[i],
                                number_text("%.17g", m_result.mails[i].score));
        return text;
    }

    // The path is quoted, for it may hold anything.
    [[nodiscard]] std::string scores_line(std::size_t index, std::size_t place,
                                          const std::string& score) const {
        const spooled_mail& mail = m_spool->mails()[place];
        std::string path;
        for (const char c : mail.name)
            path.append(c == '"' ? 2 : 1, c);
        return std::to_string(index) + "," +
               (mail.arrival == 0 ? "" : time_text(mail.arrival * ticks_per_minute)) + "," +
               (mail.spam ? "1," : "0,") + score + ",\"" + path + "\"\n";
    }

    const eval_options& m_options;
    late_file m_report, m_scores;
    std::uint64_t m_start; // 100 ns units since 1601
    std::optional<trial_root> m_root;
    std::optional<mail_spool> m_spool; // its file lies in the root
    std::string m_block_file;
    std::size_t m_own = 0;             // messages that aren't the test's own
    std::vector<double> m_lots;        // of a cut
    double m_part = 1;                 // lots below this are trained
    std::vector<std::size_t> m_order;  // of a stream
    std::vector<std::size_t> m_judged; // in the order of the verdicts
    spam_limits m_limits;              // the user's
    evaluation_result m_result;
};

} // namespace

void add_eval(CLI::App& program, int& code) {
    auto options = std::make_shared<eval_options>();
    CLI::App* command = program.add_subcommand("eval", "Measure how well the filter works on your mail");
    command->add_option("--spam", options->spam, "Spam")->type_name("PATH")->required();
    command->add_option("--ham", options->ham, "Good mail")->type_name("PATH")->required();
    auto* test_spam = command
                          ->add_option("--test-spam", options->test_spam,
                                       "Spam to test on; all of the other mail is then trained")
                          ->type_name("PATH");
    auto* test_ham =
        command->add_option("--test-ham", options->test_ham, "Good mail to test on")->type_name("PATH");
    auto* split = command->add_option("--split", options->split, "Percent of the mail that is trained")
                      ->check(CLI::Range(1, 99))
                      ->capture_default_str();
    auto* seed = command->add_option("--seed", options->seed, "Chooses the mail that is trained")
                     ->capture_default_str();
    auto* by_time =
        command->add_flag("--by-time", options->by_time, "Train the older mail, test on the newer");
    auto* stream = command
                       ->add_flag("--stream", options->stream,
                                  "Play the mail in the order of arrival: judge a block, then train on it")
                       ->excludes(test_spam)
                       ->excludes(test_ham)
                       ->excludes(split)
                       ->excludes(seed)
                       ->excludes(by_time);
    command->add_option("--block", options->block, "Messages in a block of the stream")
        ->check(CLI::Range(1, 1000000))
        ->capture_default_str()
        ->needs(stream);
    add_rule(*command, options->rule);
    command->add_option("--report", options->report, "Write a page of HTML with plots")->type_name("FILE");
    command
        ->add_option("--scores", options->scores,
                     "Write the score of each message as CSV: index, time, spam, score, path")
        ->type_name("FILE");
    add_threads(*command, options->threads);
    command->add_flag("-q,--quiet", options->quiet, "Show no progress");
    command->footer(
        "The user's own training is neither used nor touched; the thresholds are the user's.\n"
        "A stream is in the order of the newest Received lines, or of the Date lines if there are none.\n\n"
        "Exit code: 0 measured; 2 wrong usage; 3 a failure, or too little mail of a kind.\n\n"
        "Examples:\n"
        "  tvrctl eval --spam ~/Maildir/.Spam --ham ~/Maildir --report report.html\n"
        "  tvrctl eval --stream --spam spam.mbox --ham archive.mbox");
    command->callback([options, &code] { code = evaluation(*options).run(); });
}

} // namespace tvr
