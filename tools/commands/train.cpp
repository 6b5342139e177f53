// tvrctl train: cuts mail into tokens, hands it to the engine, and waits for the base made of it.

#include <algorithm>
#include <array>
#include <chrono>
#include <cstdio>
#include <vector>

#include "client/training_schedule.h"
#include "client/tvr_ipc.h"
#include "common/file_names.h"
#include "platform/clock.h"
#include "platform/file.h"
#include "platform/folder_watch.h"
#include "platform/process.h"
#include "tools/command.h"
#include "tools/commands/mail_input.h"
#include "tools/commands/train.h"
#include "tools/state/engine_view.h"

namespace tvr {

namespace {

using clock = std::chrono::steady_clock;

constexpr unsigned default_timeout = 600; // seconds

double seconds_since(clock::time_point start) {
    return std::chrono::duration<double>(clock::now() - start).count();
}

// Watches the engine until it is through with what was appended.
class engine_watch {
public:
    engine_watch(const train_options& options, training_client& client, std::uint64_t stamp_before)
        : m_options(options), m_client(client), m_view(client.working_directory()),
          m_stamp_before(stamp_before) {}

    // The reason of a failure, or an empty text.
    std::string wait() {
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
                return {};
            // The engine doesn't begin, but waits for room.
            if (!m_taken && !m_view.stage())
                if (const std::string fault = m_view.room_fault(); !fault.empty())
                    return fault + "; the messages wait in the cache";
            if (platform::folder_watch::stop_requested())
                return "stopped; the training goes on in the background";
            if (now - last_seen > absence)
                return "the engine has gone";
            const unsigned timeout = m_options.timeout.value_or(default_timeout);
            if (now - start > std::chrono::seconds(timeout))
                return "the engine isn't through after " + std::to_string(timeout) + " s";
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
    static constexpr std::uint32_t poll_pause = 1;             // milliseconds
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

// Why there are no grades yet, if mail of one kind is all that was ever learned; or an empty text.
std::string one_kind_only(const engine_view& view) {
    const bool has_spam = view.half(names::spam_half).messages != 0;
    const bool has_ham = view.half(names::good_half).messages != 0;
    if (has_spam == has_ham)
        return {};
    return std::string("Nothing can be graded yet: so far only ") + (has_spam ? "spam" : "good mail") +
           " is learned, and it takes " + (has_spam ? "good mail" : "spam") + ", too.";
}

// "Of 500 remembered ham messages the newest 200 take part".
void report_balance(const char* kind, std::uint64_t remembered, std::uint64_t graded) {
    if (graded < remembered)
        std::printf(
            "Of the %s %s messages that are remembered the newest %s take part: the two kinds are kept in "
            "balance.\n",
            grouped(remembered).c_str(), kind, grouped(graded).c_str());
}

// False if there is a base, and it is damaged.
bool report_base(const engine_view& view, std::uint64_t stamp_before) {
    if (const std::string fault = view.base_fault(); !fault.empty()) {
        fail(platform::display_path(view.base_path()) + ": " + fault +
             "; \"tvrctl stop; tvrctl repair; tvrctl start\" makes it again");
        return false;
    }
    const std::string missing = one_kind_only(view);
    const auto base = view.base();
    if (!missing.empty())
        std::printf("%s\n", missing.c_str());
    else if (!base)
        std::printf("No base is published: there is too little mail of both kinds yet.\n");
    if (!base || (!missing.empty() && base->tokens == 0))
        return true;
    std::printf("%s: %s bytes, %s graded tokens, from %s spam and %s ham messages.\n",
                base->published == stamp_before ? "The base stays as it was" : "Published base",
                grouped(base->bytes).c_str(), grouped(base->tokens).c_str(),
                grouped(base->spam_messages).c_str(), grouped(base->ham_messages).c_str());
    report_balance("spam", view.half(names::spam_half).messages, base->spam_messages);
    report_balance("ham", view.half(names::good_half).messages, base->ham_messages);
    std::printf("It lies in %s\n", platform::display_path(view.base_path()).c_str());
    return true;
}

void report_taken(const training_sum& sum, double seconds) {
    std::printf("Took %s messages (%s spam, %s ham) with %s tokens in %.2f s; skipped %s.\n",
                grouped(sum.all()).c_str(), grouped(sum.messages[1]).c_str(),
                grouped(sum.messages[0]).c_str(), grouped(sum.tokens).c_str(), seconds,
                grouped(sum.skipped).c_str());
    if (sum.known != 0)
        std::printf("Left out: %s that are known with the same verdict (--again takes them all the same).\n",
                    grouped(sum.known).c_str());
    if (sum.thrown_away != 0)
        std::printf(
            "Left out: %s that their owner has thrown away (in the trash, drafts, or marked as deleted).\n",
            grouped(sum.thrown_away).c_str());
    std::fflush(stdout);
}

// Hands the messages over, and tells when they are learned.
ipc_status hand_over(const train_options& options, training_client& client, bool corrected) {
    const training_schedule schedule(client.working_directory());
    const bool is_due = !options.later || schedule.is_due(corrected);
    const ipc_status status = client.raise(is_due ? engine_event::train : engine_event::add);
    if (!status || options.silent || options.wait)
        return status;
    if (is_due)
        std::printf("Training in the background; \"tvrctl status\" shows it.\n");
    else
        std::printf("They are learned once %s messages wait, %s hours after the last training, or at once by "
                    "\"tvrctl force\".\n",
                    grouped(schedule.get(schedule_value::messages)).c_str(),
                    grouped(schedule.get(schedule_value::hours)).c_str());
    return status;
}

int stopped(const training_client& client) {
    return fail(
        "stopped; " + grouped(engine_view(client.working_directory()).waiting()) +
        " messages wait to be learned: \"tvrctl force\" learns them, \"tvrctl forget --waiting\" takes "
        "them back");
}

} // namespace

int train(const train_options& options) {
    const auto start = clock::now();
    training_client client;
    if (!client.status())
        return fail(client.status().text);
    if (options.timeout)
        client.set_patience(*options.timeout * 1000);
    platform::folder_watch::take_stop_requests();
    const engine_view view(client.working_directory());
    const std::uint64_t stamp_before = view.stamp();

    training_sum sum;
    const ipc_status failure =
        options.records.empty() ? take_mail(options, client, sum) : take_records(options, client, sum);
    if (!failure)
        fail(failure.text);
    if (failure.error == ipc_error::refused)
        return exit_code::usage;
    if (platform::folder_watch::stop_requested())
        return stopped(client);
    const double mail_seconds = seconds_since(start);
    if (!options.silent)
        report_taken(sum, mail_seconds);
    const int code = !failure || sum.lost != 0 ? exit_code::failed : exit_code::done;
    if (sum.all() == 0)
        return code != exit_code::done || sum.known != 0 ? code : exit_code::nothing_taken;

    const ipc_status status = hand_over(options, client, options.manual || sum.corrected != 0);
    if (!client.remark().empty())
        std::fprintf(stderr, "tvrctl: %s\n", client.remark().c_str());
    if (!status)
        return fail(status.text + "; the messages wait in the cache");
    if (options.wait) {
        engine_watch watch(options, client, stamp_before);
        if (const std::string why = watch.wait(); !why.empty())
            return fail(why + "; \"tvrctl status\" tells more");
        if (options.silent)
            return view.base_fault().empty() ? code : exit_code::failed;
        if (!report_base(view, stamp_before))
            return exit_code::failed;
        std::printf("Trained in %.2f s; with the reading %.2f s. The engine's memory peaked at %.1f MiB.\n",
                    seconds_since(start) - mail_seconds, seconds_since(start),
                    static_cast<double>(watch.peak()) / (1 << 20));
    }
    return code;
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
    command->add_flag("-r,--recursive", options->recursive, "Read the other folders of a Maildir, too");
    command->add_flag("--again", options->again, "Learn also messages that are known with the same verdict");
    command->add_flag("--wait", options->wait, "Wait for the new base, and show what it holds");
    command->add_flag("--later", options->later, "Let the messages wait until a training is due")
        ->excludes("--wait");
    command->add_flag("--manual", options->manual, "Mark the messages as the user's own verdict")
        ->excludes("--records");
    command->add_flag("-q,--quiet", options->quiet, "Show no progress");
    command->add_flag("-v,--verbose", options->verbose, "Name everything that is skipped");
    add_threads(*command, options->threads);
    command
        ->add_option(
            "--timeout", options->timeout,
            "Seconds to wait at most: for the training (600), for the cache while another program has "
            "it (30)")
        ->check(CLI::Range(1, 86400));
    command->footer(
        "A Maildir is one mailbox; the folders in it are others. They are read if you name them, or with\n"
        "--recursive, which leaves out folders whose names suggest the other verdict, Trash, Drafts, Sent "
        "and\n"
        "the like. A plain folder means everything below it, except such folders. If one path is inside\n"
        "another, each message belongs to the nearer one. A path or a message given for both verdicts is\n"
        "refused. Messages that are known with the same verdict, and those that their owner has deleted, "
        "are\n"
        "left out and counted.\n\n"
        "The training begins at once, in the background; --wait waits for its end. With --later it begins "
        "when\n"
        "50 messages wait, 4 hours after the last one, or at once when a verdict is corrected or given by "
        "hand\n"
        "(--manual); \"tvrctl config\" changes these numbers.\n\n"
        "Exit code 0: learned, or known already; 1: no mail; 2: wrong usage; 3: a named path can't be read, "
        "or\n"
        "the engine failed. Skipped files in folders don't change it.\n\n"
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
