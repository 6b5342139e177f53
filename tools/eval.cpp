// tvrctl eval: trains a throw-away root on one part of the mail and tells how well it grades the other.

#include <algorithm>
#include <array>
#include <atomic>
#include <chrono>
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <functional>
#include <memory>

#include "platform/clock.h"
#include "platform/file.h"
#include "platform/process.h"
#include "tools/engine_view.h"
#include "tools/evaluation.h"
#include "tools/mail_input.h"
#include "tools/mail_reading.h"
#include "tools/published_base.h"
#include "tools/train.h"

namespace tvr {

namespace {

struct eval_options {
    std::vector<std::string> spam, ham;
    std::vector<std::string> test_spam, test_ham; // if given, all of the others is trained
    double split = 60;                            // percent of the mail that is trained
    std::uint64_t seed = 1;
    bool by_time = false;
    std::string rule = "kinds";
    std::string report;
    unsigned threads = 0;
    bool quiet = false;
};

// A root of its own for this process and its engine, gone with the object.
class throw_away_root {
public:
    throw_away_root() {
        const std::string folder =
            platform::temp_folder_path() + "eval" + std::to_string(platform::current_process_id());
        if (!platform::create_directory(folder))
            return;
        m_path = platform::display_path(folder);
        platform::set_environment_variable("TESSIVAR_ROOT", m_path);
    }
    ~throw_away_root() {
        if (m_path.empty())
            return;
        const std::uint32_t engine = engine_view::process_id();
        if (engine != 0)
            platform::terminate_process(engine, 0);
        while (engine != 0 && platform::process_exists(engine))
            platform::sleep_for(5);
        std::error_code ignored;
        std::filesystem::remove_all(m_path, ignored);
    }
    throw_away_root(const throw_away_root&) = delete;
    throw_away_root& operator=(const throw_away_root&) = delete;

    [[nodiscard]] bool made() const { return !m_path.empty(); }

private:
    std::string m_path;
};

// A number from 0 to 1 for each message, always the same for one seed.
double lot_of(std::uint64_t seed, std::uint64_t index) {
    std::uint64_t x = seed * 0x9E3779B97F4A7C15ULL + (index + 1) * 0xBF58476D1CE4E5B9ULL;
    x = (x ^ x >> 30) * 0xBF58476D1CE4E5B9ULL;
    x = (x ^ x >> 27) * 0x94D049BB133111EBULL;
    return static_cast<double>((x ^ x >> 31) >> 11) / 9007199254740992.0;
}

// The lots of all messages: at random, or by time; in either case within each half for itself.
class lottery {
public:
    explicit lottery(const eval_options& options) : m_seed(options.seed) {
        if (options.by_time)
            read_times(options);
    }

    [[nodiscard]] double of(const mail_item& mail) const {
        return m_lots.empty() ? lot_of(m_seed, mail.index) : m_lots.at(mail.index);
    }

private:
    struct dated {
        std::uint32_t time = 0;
        std::uint64_t index = 0;
    };
    using halves = std::array<std::vector<dated>, 2>;

    class worker final : public mail_worker {
    public:
        explicit worker(halves& all) : m_all(all) {}
        void begin() override {
            for (auto& half : m_here)
                half.clear();
        }
        void take(const mail_item& mail, const tokenizer& cut) override {
            m_here[mail.spam ? 1 : 0].push_back({cut.facts().time, mail.index});
        }
        bool commit() override {
            for (std::size_t i : {0U, 1U})
                m_all[i].insert(m_all[i].end(), m_here[i].begin(), m_here[i].end());
            return true;
        }

    private:
        halves& m_all;
        halves m_here;
    };

    void read_times(const eval_options& options) {
        halves all;
        mail_reading reading(options.spam, options.ham, "Reading dates", options.quiet);
        reading.run([&] { return std::make_unique<worker>(all); }, options.threads);
        m_lots.resize(all[0].size() + all[1].size());
        for (auto& half : all) {
            std::stable_sort(half.begin(), half.end(),
                             [](const dated& a, const dated& b) { return a.time < b.time; });
            for (std::size_t i = 0; i < half.size(); ++i)
                m_lots.at(half[i].index) = static_cast<double>(i) / static_cast<double>(half.size());
        }
    }

    std::uint64_t m_seed;
    std::vector<double> m_lots;
};

class scoring_worker final : public mail_worker {
public:
    scoring_worker(const mail_scorer& scorer, const std::function<bool(const mail_item&)>& selects,
                   std::vector<scored_mail>& all)
        : m_scorer(scorer), m_selects(selects), m_all(all) {}
    void begin() override { m_here.clear(); }
    bool wants(const mail_item& mail) override { return !m_selects || m_selects(mail); }
    void take(const mail_item& mail, const tokenizer& cut) override {
        m_here.push_back({m_scorer.score(cut.tokens()).score, mail.spam});
    }
    bool commit() override {
        m_all.insert(m_all.end(), m_here.begin(), m_here.end());
        return true;
    }

private:
    const mail_scorer& m_scorer;
    const std::function<bool(const mail_item&)>& m_selects;
    std::vector<scored_mail>& m_all;
    std::vector<scored_mail> m_here;
};

class evaluation {
public:
    explicit evaluation(const eval_options& options)
        : m_options(options), m_own_test(!options.test_spam.empty() || !options.test_ham.empty()),
          m_part(m_own_test ? 1 : options.split / 100) {}

    int run() {
        if (!m_root.made())
            return fail("no folder of temporary files could be made");
        const lottery lots(m_options);
        // With a report, in steps, for its learning curve.
        const std::vector<double> steps =
            m_options.report.empty() ? std::vector<double>{1} : std::vector<double>{0.05, 0.1, 0.25, 0.5, 1};
        double from = 0;
        for (const double step : steps) {
            const double to = step * m_part;
            if (const int code = train_lots(lots, from, to); code != exit_code::done)
                return code;
            if (!score(lots))
                return exit_code::failed;
            m_curve.push_back({m_trained, accuracy()});
            from = to;
        }
        print();
        return m_options.report.empty() ? exit_code::done : write_report();
    }

private:
    int train_lots(const lottery& lots, double from, double to) {
        train_options options;
        options.spam = m_options.spam;
        options.ham = m_options.ham;
        options.wait = options.silent = true;
        options.quiet = m_options.quiet;
        options.threads = m_options.threads;
        std::atomic<std::uint64_t> taken{0};
        options.selects = [&](const mail_item& mail) {
            const double lot = lots.of(mail);
            const bool selected = lot >= from && lot < to;
            taken += selected ? 1 : 0;
            return selected;
        };
        const int code = train(options);
        m_trained += taken;
        return code == exit_code::nothing_taken ? fail("there is no mail to train on") : code;
    }

    bool score(const lottery& lots) {
        published_base base;
        if (!base.load()) {
            fail(base.error());
            return false;
        }
        const mail_scorer scorer = base.scorer(rule_of(m_options.rule));
        m_spam_threshold = scorer.settings().spam_threshold;
        m_unsure_threshold = scorer.settings().unsure_threshold;
        std::function<bool(const mail_item&)> selects;
        if (!m_own_test)
            selects = [&](const mail_item& mail) { return lots.of(mail) >= m_part; };
        m_scores.clear();
        const auto start = std::chrono::steady_clock::now();
        mail_reading reading(m_own_test ? m_options.test_spam : m_options.spam,
                             m_own_test ? m_options.test_ham : m_options.ham, "Scoring", m_options.quiet);
        reading.run([&] { return std::make_unique<scoring_worker>(scorer, selects, m_scores); },
                    m_options.threads);
        m_seconds = std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
        return true;
    }

    [[nodiscard]] confusion matrix() const { return confuse(m_scores, m_spam_threshold, m_unsure_threshold); }

    [[nodiscard]] double accuracy() const {
        const confusion found = matrix();
        return m_scores.empty() ? 0
                                : static_cast<double>(found.right()) / static_cast<double>(m_scores.size());
    }

    void print() const {
        const confusion found = matrix();
        const auto text = [](std::uint64_t number) { return grouped(number); };
        std::printf("Trained on %s messages, tested on %s.\n\n", text(m_trained).c_str(),
                    text(m_scores.size()).c_str());
        std::printf("%8s %12s %12s %12s\n", "", "called spam", "unsure", "called ham");
        std::printf("%8s %12s %12s %12s\n", "spam", text(found.spam_as_spam).c_str(),
                    text(found.spam_as_unsure).c_str(), text(found.spam_as_ham).c_str());
        std::printf("%8s %12s %12s %12s\n\n", "ham", text(found.ham_as_spam).c_str(),
                    text(found.ham_as_unsure).c_str(), text(found.ham_as_ham).c_str());
        const auto rate = [](const char* name, std::uint64_t hits, std::uint64_t all) {
            const interval range = confidence(hits, all);
            std::printf("%-16s %6.2f %%  (95 %%: %.2f to %.2f %%)\n", name,
                        all == 0 ? 0 : 100 * static_cast<double>(hits) / static_cast<double>(all),
                        100 * range.low, 100 * range.high);
        };
        rate("Accuracy", found.right(), m_scores.size());
        rate("False positives", found.ham_as_spam, found.ham());
        rate("Missed spam", found.missed(), found.spam());
        std::printf("%-16s %.5f\n", "ROC area", roc_area(m_scores));
        std::printf("%-16s %.2f ms, reading and scoring\n", "Per message",
                    m_scores.empty() ? 0 : 1000 * m_seconds / static_cast<double>(m_scores.size()));
    }

    [[nodiscard]] int write_report() const {
        std::ofstream out(m_options.report, std::ios::binary);
        out << report_page(m_scores, matrix(), m_curve,
                           "Trained on " + grouped(m_trained) + " messages, tested on " +
                               grouped(m_scores.size()),
                           m_spam_threshold, m_unsure_threshold);
        out.close();
        return out ? exit_code::done : fail(m_options.report + ": can't be written");
    }

    const eval_options& m_options;
    bool m_own_test;
    double m_part;
    throw_away_root m_root;
    std::uint64_t m_trained = 0;
    std::vector<scored_mail> m_scores;
    std::vector<learning_point> m_curve;
    double m_spam_threshold = 0, m_unsure_threshold = 0;
    double m_seconds = 0;
};

} // namespace

void add_eval(CLI::App& program, int& code) {
    auto options = std::make_shared<eval_options>();
    CLI::App* command = program.add_subcommand("eval", "Measure how well the filter does on your mail");
    command->add_option("--spam", options->spam, "Spam")->type_name("PATH")->required();
    command->add_option("--ham", options->ham, "Good mail")->type_name("PATH")->required();
    command
        ->add_option("--test-spam", options->test_spam,
                     "Spam to test on; all of the other mail is then trained")
        ->type_name("PATH");
    command->add_option("--test-ham", options->test_ham, "Good mail to test on")->type_name("PATH");
    command->add_option("--split", options->split, "Percent of the mail that is trained")
        ->check(CLI::Range(1, 99))
        ->capture_default_str();
    command->add_option("--seed", options->seed, "Chooses the mail that is trained")->capture_default_str();
    command->add_flag("--by-time", options->by_time, "Train the older mail, test on the newer");
    command->add_option("--rule", options->rule, "How the grades are combined")
        ->check(CLI::IsMember({"kinds", "graham", "robinson", "fisher"}))
        ->capture_default_str();
    command->add_option("--report", options->report, "Write a page of HTML with plots")->type_name("FILE");
    command->add_option("--threads", options->threads, "Threads that read mail; 0 is one for each processor")
        ->check(CLI::Range(0, 64))
        ->capture_default_str();
    command->add_flag("-q,--quiet", options->quiet, "Show no progress");
    command->footer("The user's own training is neither used nor touched.\n\n"
                    "Example:\n"
                    "  tvrctl eval --spam ~/Maildir/.Spam --ham ~/Maildir --report report.html");
    command->callback([options, &code] { code = evaluation(*options).run(); });
}

} // namespace tvr
