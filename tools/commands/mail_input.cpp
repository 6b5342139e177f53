#include "tools/commands/mail_input.h"

#include <memory>
#include <utility>

#include "client/known_messages.h"
#include "client/tokenizer.h"
#include "common/file_names.h"
#include "tools/mail/mail_reading.h"
#include "tools/mail/mail_source.h"

namespace tvr {

namespace {

// Appends each chunk to the cache, but for what the engine knows.
class training_worker final : public mail_worker {
public:
    training_worker(const train_options& options, training_client& client, known_messages& known,
                    training_sum& sum, ipc_status& failure)
        : m_options(options), m_client(client), m_known(known), m_sum(sum), m_failure(failure) {}

    void begin() override { m_mails.clear(); }
    bool wants(const mail_item& mail) override { return !m_options.selects || m_options.selects(mail); }
    void take(const mail_item& mail, const tokenizer& cut) override {
        training_mail& one = m_mails.emplace_back();
        one.id = cut.facts().msid;
        one.spam = mail.spam;
        one.tokens = cut.tokens().size();
        one.record.add(describe(cut.facts(), mail.size, mail.spam, m_options.manual), cut.tokens());
    }
    bool commit() override {
        training_sum chunk;
        if (ipc_status status = hand_in(chunk); !status) {
            m_failure = std::move(status);
            return false;
        }
        m_sum += chunk;
        return true;
    }

private:
    struct training_mail {
        std::string id;
        bool spam = false;
        std::uint32_t tokens = 0;
        record_batch record;
    };

    ipc_status hand_in(training_sum& chunk) {
        wanted_verdicts waiting; // with the other verdict
        if (!m_options.again)
            for (const training_mail& mail : m_mails)
                if (const known_as known = m_known.find(mail.id); known.waits && !known.as(mail.spam))
                    waiting.try_emplace(mail.id).first->second.spam = mail.spam;
        if (!waiting.empty())
            if (std::string why = correct_waiting(
                    m_client.working_directory() + names::transact_path + names::cache, waiting);
                !why.empty())
                return {ipc_error::io, std::move(why)};
        record_batch batch;
        for (const training_mail& mail : m_mails) {
            if (!m_options.again && m_known.is_learned(mail.id, mail.spam, m_options.manual)) {
                ++chunk.known;
                continue;
            }
            chunk.corrected += m_known.find(mail.id).as(!mail.spam) ? 1 : 0;
            const auto found = waiting.find(mail.id);
            const bool is_remarked = found != waiting.end() && found->second.waiting != 0;
            if (!is_remarked && !batch.add(mail.record.bytes()))
                return {ipc_error::bad_message, mail.id + ": too large"};
            ++chunk.messages[mail.spam ? 1 : 0];
            chunk.tokens += mail.tokens;
            m_known.note(mail.id, mail.spam);
        }
        return m_client.append(batch);
    }

    const train_options& m_options;
    training_client& m_client;
    known_messages& m_known; // in commit() only
    training_sum& m_sum;
    ipc_status& m_failure;
    std::vector<training_mail> m_mails;
};

} // namespace

void add_threads(CLI::App& command, unsigned& threads) {
    command.add_option("--threads", threads, "Threads that read mail; 0 is one for each processor")
        ->check(CLI::Range(0, 64))
        ->capture_default_str();
}

void add_rule(CLI::App& command, std::string& rule) {
    command.add_option("--rule", rule, "How the grades are combined")
        ->check(CLI::IsMember({"kinds", "graham", "robinson", "fisher"}))
        ->capture_default_str();
}

ipc_status take_mail(const train_options& options, training_client& client, training_sum& sum) {
    const mail_paths paths = {.spam = options.spam, .ham = options.ham, .recursive = options.recursive};
    if (std::string why = learning_conflict(paths); !why.empty())
        return {ipc_error::refused, why + "; nothing is learned"};
    mail_reading reading(paths, "Reading mail", {.quiet = options.quiet, .verbose = options.verbose});
    known_messages known(client.working_directory());
    if (!options.again)
        known.load();
    ipc_status failure;
    reading.run([&] { return std::make_unique<training_worker>(options, client, known, sum, failure); },
                options.threads);
    sum.skipped = reading.skipped();
    sum.thrown_away = reading.passed().count(passed_mail::kind::thrown_away);
    sum.lost = reading.passed().count(passed_mail::kind::lost);
    return failure;
}

bool add_message_ids(const std::vector<std::string>& files, mail_to_forget& messages) {
    pass_log passed;
    mail_source source({.ham = files, .everything = true},
                       [&](const passed_mail& mail) { passed.add(mail); });
    tokenizer cut;
    mail_item mail;
    while (source.next(mail)) {
        cut.tokenize(mail.raw);
        messages.try_emplace(cut.facts().msid);
    }
    passed.sum_up();
    return passed.count(passed_mail::kind::lost) == 0;
}

} // namespace tvr
