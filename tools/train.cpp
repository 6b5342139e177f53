// tvrctl train: cuts mail into tokens, hands it to the engine, and waits for the base made of it.

#include <algorithm>
#include <array>
#include <chrono>
#include <cstdio>
#include <vector>

#include "client/tvr_ipc.h"
#include "platform/clock.h"
#include "platform/file.h"
#include "platform/process.h"
#include "tools/command.h"
#include "tools/engine_view.h"
#include "tools/mail_input.h"
#include "tools/train.h"

namespace tvr {

namespace {

using clock = std::chrono::steady_clock;

double seconds_since(clock::time_point start) {
    return std::chrono::duration<double>(clock::now() - start).count();
}

// Watches the engine until it is through with what was appended.
class engine_watch {
public:
    engine_watch(const train_options& options, training_client& client, std::uint64_t stamp_before)
        : m_options(options), m_client(client), m_view(client.working_directory()),
          m_stamp_before(stamp_before) {}

    // False with the reason in `why`.
    bool wait(std::string& why) {
        const auto start = clock::now();
        auto last_seen = start;
        auto idle_since = start;
        for (;;) {
            const std::uint32_t process = engine_view::process_id();
            const auto now = clock::now();
            if (process != 0) {
                last_seen = now;
                m_peak = std::max(m_peak, platform::peak_memory(process).value_or(0));
            }
            if (!is_idle())
                idle_since = now;
            else if (m_view.stamp() != m_stamp_before || now - idle_since > no_change)
                return true;
            if (now - last_seen > absence) {
                why = "the engine has gone";
                return false;
            }
            if (now - start > std::chrono::seconds(m_options.timeout)) {
                why = "the engine isn't through after " + std::to_string(m_options.timeout) + " s";
                return false;
            }
            // One that died is started again; the event is still raised or the pipeline resumes by itself.
            if (now - last_seen > restart_pause && m_restarts < most_restarts) {
                ++m_restarts;
                last_seen = now;
                m_client.raise(engine_event::train);
            }
            platform::sleep_for(poll_pause);
        }
    }

    [[nodiscard]] std::uint64_t peak() const { return m_peak; } // bytes
    [[nodiscard]] const engine_view& view() const { return m_view; }

private:
    static constexpr std::uint32_t poll_pause = 10;            // milliseconds
    static constexpr auto no_change = std::chrono::seconds(2); // a training that changes nothing
    static constexpr auto restart_pause = std::chrono::seconds(12);
    static constexpr auto absence = std::chrono::seconds(30);
    static constexpr unsigned most_restarts = 3;

    bool is_idle() {
        m_taken = m_taken || m_view.cache_size() < m_client.appended_until();
        return m_taken && !m_view.stage();
    }

    const train_options& m_options;
    training_client& m_client;
    engine_view m_view;
    std::uint64_t m_stamp_before;
    std::uint64_t m_peak = 0;
    unsigned m_restarts = 0;
    bool m_taken = false; // the engine has taken the cache with the messages
};

void report_base(const engine_watch& watch, std::uint64_t stamp_before) {
    const auto base = watch.view().base();
    if (!base) {
        std::printf("No base is published: there is too little mail of both kinds yet.\n");
        return;
    }
    std::printf("%s: %s bytes, %s graded tokens, from %s spam and %s ham messages.\n",
                base->published == stamp_before ? "The base stays as it was" : "Published base",
                grouped(base->bytes).c_str(), grouped(base->tokens).c_str(),
                grouped(base->spam_messages).c_str(), grouped(base->ham_messages).c_str());
    std::printf("It lies in %s\n", platform::display_path(watch.view().base_path()).c_str());
}

} // namespace

int train(const train_options& options) {
    const auto start = clock::now();
    training_client client;
    if (!client.status())
        return fail(client.status().text);
    const std::uint64_t stamp_before = engine_view(client.working_directory()).stamp();

    training_sum sum;
    const ipc_status failure =
        options.records.empty() ? take_mail(options, client, sum) : take_records(options, client, sum);
    if (!failure)
        fail(failure.text);
    const double mail_seconds = seconds_since(start);
    if (!options.silent)
        std::printf("Took %s messages (%s spam, %s ham) with %s tokens in %.2f s; skipped %s.\n",
                    grouped(sum.all()).c_str(), grouped(sum.messages[1]).c_str(),
                    grouped(sum.messages[0]).c_str(), grouped(sum.tokens).c_str(), mail_seconds,
                    grouped(sum.skipped).c_str());
    std::fflush(stdout);
    if (sum.all() == 0)
        return failure ? exit_code::nothing_taken : exit_code::failed;

    const auto status = client.raise(options.later ? engine_event::add : engine_event::train);
    if (!client.remark().empty())
        std::fprintf(stderr, "tvrctl: %s\n", client.remark().c_str());
    if (!status)
        return fail(status.text + "; the messages wait in the cache");
    if (options.wait && !options.later) {
        engine_watch watch(options, client, stamp_before);
        std::string why;
        if (!watch.wait(why))
            return fail(why + "; \"tvrctl status\" tells more");
        if (options.silent)
            return exit_code::done;
        report_base(watch, stamp_before);
        std::printf("Trained in %.2f s; with the reading %.2f s. The engine's memory peaked at %.1f MiB.\n",
                    seconds_since(start) - mail_seconds, seconds_since(start),
                    static_cast<double>(watch.peak()) / (1 << 20));
    }
    return failure ? exit_code::done : exit_code::failed;
}

void add_train(CLI::App& program, int& code) {
    auto options = std::make_shared<train_options>();
    CLI::App* command = program.add_subcommand("train", "Learn mail as spam or as ham (good mail)");
    auto* spam = command
                     ->add_option("--spam", options->spam,
                                  "Spam: files, mbox files, Maildirs, folders, or - for standard input")
                     ->type_name("PATH");
    auto* ham = command->add_option("--ham", options->ham, "Good mail, in the same forms")->type_name("PATH");
    command
        ->add_option("--records", options->records,
                     "What \"tvrctl tokenize\" wrote, in place of mail; - for standard input")
        ->type_name("FILE")
        ->excludes(spam)
        ->excludes(ham);
    command->add_flag("--wait", options->wait, "Wait for the new base, and tell what it holds");
    command->add_flag("--later", options->later, "Leave the time of the training to the engine")
        ->excludes("--wait");
    command->add_flag("--manual", options->manual, "Mark the messages as the user's own verdict")
        ->excludes("--records");
    command->add_flag("-q,--quiet", options->quiet, "Show no progress");
    command->add_option("--threads", options->threads, "Threads that read mail; 0 is one for each processor")
        ->check(CLI::Range(0, 64))
        ->capture_default_str();
    command->add_option("--timeout", options->timeout, "Seconds that --wait waits at most")
        ->check(CLI::Range(1, 86400))
        ->capture_default_str();
    command->footer("Exit code 0: learned; 1: nothing could be taken; 3: the engine failed.\n\n"
                    "Examples:\n"
                    "  tvrctl train --wait --spam ~/Maildir/.Spam --ham ~/Maildir ~/mail/archive.mbox\n"
                    "  tvrctl train --spam - < message.eml\n"
                    "  tvrctl train --wait --records spam.records ham.records");
    command->callback([options, &code] {
        if (options->spam.empty() && options->ham.empty() && options->records.empty())
            throw CLI::RequiredError("--spam PATH, --ham PATH or --records FILE");
        code = train(*options);
    });
}

} // namespace tvr
