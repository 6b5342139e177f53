// tvrctl train: cuts mail into tokens, hands it to the engine, and waits for the base made of it.

#include <algorithm>
#include <array>
#include <atomic>
#include <chrono>
#include <condition_variable>
#include <cstdio>
#include <mutex>
#include <thread>
#include <vector>

#include "client/tvr_ipc.h"
#include "platform/clock.h"
#include "platform/file.h"
#include "platform/process.h"
#include "tools/command.h"
#include "tools/engine_view.h"
#include "tools/mail_source.h"
#include "tools/progress.h"

namespace tvr {

namespace {

using clock = std::chrono::steady_clock;

double seconds_since(clock::time_point start) {
    return std::chrono::duration<double>(clock::now() - start).count();
}

struct train_options {
    std::vector<std::string> spam;
    std::vector<std::string> ham;
    bool wait = false;
    bool later = false;
    bool manual = false;
    bool quiet = false;
    unsigned threads = 0; // 0: one for each processor
    unsigned timeout = 600;
};

// Reads and cuts up mail on several threads. The records reach the cache in the order of the mail, so that
// equal mail gives an equal base.
class mail_feeder {
public:
    mail_feeder(const train_options& options, training_client& client)
        : m_options(options), m_client(client), m_progress("Reading mail", options.quiet),
          m_source([this](const std::string& name, const std::string& why) { report_skipped(name, why); }) {
        for (const std::string& path : options.spam)
            m_source.add(path, true);
        for (const std::string& path : options.ham)
            m_source.add(path, false);
    }

    void run() {
        unsigned count = m_options.threads != 0 ? m_options.threads : std::thread::hardware_concurrency();
        count = std::clamp(count, 1U, 64U);
        std::vector<std::thread> workers;
        for (unsigned i = 1; i < count; ++i)
            workers.emplace_back([this] { work(); });
        work();
        for (std::thread& worker : workers)
            worker.join();
        if (taken() != 0)
            show_progress(m_source.total() + 1);
        m_progress.clear();
    }

    [[nodiscard]] std::uint64_t spam() const { return m_taken[1]; }
    [[nodiscard]] std::uint64_t ham() const { return m_taken[0]; }
    [[nodiscard]] std::uint64_t taken() const { return spam() + ham(); }
    [[nodiscard]] std::uint64_t tokens() const { return m_tokens; }
    [[nodiscard]] std::uint64_t skipped() const { return m_skipped; }
    [[nodiscard]] const ipc_status& failure() const { return m_failure; }

private:
    static constexpr std::size_t chunk_messages = 64;
    static constexpr std::size_t chunk_bytes = std::size_t{4} << 20;

    void report_skipped(const std::string& name, const std::string& why) {
        ++m_skipped;
        m_progress.clear();
        std::fprintf(stderr, "tvrctl: %s: %s; skipped\n", name.c_str(), why.c_str());
    }

    // All is done only when the last message is appended, not when it has been read.
    void show_progress(std::uint64_t done) {
        m_progress.show(done, m_source.total() + 1, grouped(m_appended) + " messages");
    }

    // The next messages, and their place in the order.
    bool take_chunk(std::vector<mail_item>& items, std::size_t& filled, std::uint64_t& turn) {
        const std::lock_guard lock(m_source_mutex);
        filled = 0;
        for (std::size_t bytes = 0; filled < chunk_messages && bytes < chunk_bytes && m_failure; ++filled) {
            if (!m_source.next(items[filled]))
                break;
            bytes += items[filled].raw.size();
        }
        turn = m_chunks;
        m_chunks += filled != 0 ? 1 : 0;
        show_progress(m_source.done());
        return filled != 0;
    }

    void work() {
        tokenizer tokenizer;
        record_batch batch;
        std::vector<mail_item> items(chunk_messages);
        std::size_t filled = 0;
        std::uint64_t turn = 0;
        while (take_chunk(items, filled, turn)) {
            batch.clear();
            std::array<std::uint64_t, 2> taken{};
            std::uint64_t tokens = 0;
            for (std::size_t i = 0; i < filled; ++i) {
                const mail_item& mail = items[i];
                tokenizer.tokenize(mail.raw);
                batch.add(describe(tokenizer.facts(), mail.raw.size(), mail.spam, m_options.manual),
                          tokenizer.tokens());
                ++taken[mail.spam ? 1 : 0];
                tokens += tokenizer.tokens().size();
            }
            std::unique_lock lock(m_order_mutex);
            m_order.wait(lock, [&] { return m_turn == turn; });
            append(batch, taken, tokens);
            ++m_turn;
            m_order.notify_all();
        }
    }

    void append(const record_batch& batch, const std::array<std::uint64_t, 2>& taken, std::uint64_t tokens) {
        if (!m_failure)
            return;
        ipc_status status = m_client.append(batch);
        if (status) {
            m_taken[0] += taken[0];
            m_taken[1] += taken[1];
            m_tokens += tokens;
            m_appended = this->taken();
            return;
        }
        const std::lock_guard lock(m_source_mutex);
        m_failure = std::move(status);
    }

    const train_options& m_options;
    training_client& m_client;
    std::mutex m_source_mutex; // for the source, the progress, and the chunks' numbers
    progress m_progress;
    std::uint64_t m_skipped = 0;
    mail_source m_source;
    std::uint64_t m_chunks = 0;
    std::atomic<std::uint64_t> m_appended{0};

    std::mutex m_order_mutex; // for the rest; taken before the other
    std::condition_variable m_order;
    std::uint64_t m_turn = 0;
    std::array<std::uint64_t, 2> m_taken{}; // good, spam
    std::uint64_t m_tokens = 0;
    ipc_status m_failure; // also under m_source_mutex
};

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

int train(const train_options& options) {
    const auto start = clock::now();
    training_client client;
    if (!client.status())
        return fail(client.status().text);
    const std::uint64_t stamp_before = engine_view(client.working_directory()).stamp();

    mail_feeder feeder(options, client);
    feeder.run();
    if (!feeder.failure())
        fail(feeder.failure().text);
    const double mail_seconds = seconds_since(start);
    std::printf("Took %s messages (%s spam, %s ham) with %s tokens in %.2f s; skipped %s.\n",
                grouped(feeder.taken()).c_str(), grouped(feeder.spam()).c_str(),
                grouped(feeder.ham()).c_str(), grouped(feeder.tokens()).c_str(), mail_seconds,
                grouped(feeder.skipped()).c_str());
    std::fflush(stdout);
    if (feeder.taken() == 0)
        return feeder.failure() ? exit_code::nothing_taken : exit_code::failed;

    const auto status = client.raise(options.later ? engine_event::add : engine_event::train);
    if (!status)
        return fail(status.text + "; the messages wait in the cache");
    if (options.wait && !options.later) {
        engine_watch watch(options, client, stamp_before);
        std::string why;
        if (!watch.wait(why))
            return fail(why + "; \"tvrctl status\" tells more");
        report_base(watch, stamp_before);
        std::printf("Trained in %.2f s; with the reading %.2f s. The engine's memory peaked at %.1f MiB.\n",
                    seconds_since(start) - mail_seconds, seconds_since(start),
                    static_cast<double>(watch.peak()) / (1 << 20));
    }
    return feeder.failure() ? exit_code::done : exit_code::failed;
}

} // namespace

void add_train(CLI::App& program, int& code) {
    auto options = std::make_shared<train_options>();
    CLI::App* command = program.add_subcommand("train", "Learn mail as spam or as ham (good mail)");
    command
        ->add_option("--spam", options->spam,
                     "Spam: files, mbox files, Maildirs, folders, or - for standard input")
        ->type_name("PATH");
    command->add_option("--ham", options->ham, "Good mail, in the same forms")->type_name("PATH");
    command->add_flag("--wait", options->wait, "Wait for the new base, and tell what it holds");
    command->add_flag("--later", options->later, "Leave the time of the training to the engine")
        ->excludes("--wait");
    command->add_flag("--manual", options->manual, "Mark the messages as the user's own verdict");
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
                    "  tvrctl train --spam - < message.eml");
    command->callback([options, &code] {
        if (options->spam.empty() && options->ham.empty())
            throw CLI::RequiredError("--spam PATH or --ham PATH");
        code = train(*options);
    });
}

} // namespace tvr
