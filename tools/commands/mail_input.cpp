#include "tools/commands/mail_input.h"

#include <memory>
#include <span>
#include <utility>
#include <vector>

#include "client/known_messages.h"
#include "client/tokenizer.h"
#include "common/file_names.h"
#include "tools/mail/mail_reading.h"
#include "tools/mail/mail_source.h"

namespace tvr {

namespace {

struct training_mail {
    std::string id;
    std::string name;      // for the user
    std::uint64_t key = 0; // see mail_key(); 0 where nothing can conflict
    bool spam = false;
    std::uint32_t tokens = 0;
    std::size_t size = 0; // bytes of its record; 0: it is too large for one
};

// Messages that were read together, and their records one after the other.
struct training_chunk {
    std::vector<training_mail> mails;
    record_batch records;
};

// Appends mail to the cache, but for what the engine knows. Nothing is appended before it is sure that no
// message is given with both verdicts.
class training_queue {
public:
    training_queue(const mail_paths& paths, const train_options& options, training_client& client,
                   training_sum& sum)
        : may_conflict(!paths.spam.empty() && !paths.ham.empty()), m_paths(paths), m_options(options),
          m_client(client), m_known(client.working_directory()), m_sum(sum) {
        if (!m_options.again)
            m_known.load();
    }

    const bool may_conflict; // mail is given with either verdict

    // False if no more is wanted.
    bool add(const training_chunk& chunk) {
        m_bytes += chunk.records.bytes().size();
        if (m_holds) {
            for (const training_mail& mail : chunk.mails)
                m_conflicts.add(mail.key, mail.spam, mail.name);
            m_conflict = m_conflicts.text();
            if (!m_conflict.empty()) {
                m_chunks.clear(); // what is left to read is only looked at
                return true;
            }
            m_holds = m_bytes <= most_held;
            if (!m_holds)
                m_conflict = learning_conflict(m_paths);
        }
        m_chunks.push_back(chunk);
        return m_conflict.empty() && (m_holds || m_bytes < portion || hand_in());
    }

    // Hands in what is left; nothing of it if there was a conflict.
    ipc_status finish() {
        if (!m_conflict.empty())
            return {ipc_error::refused, m_conflict + "; nothing is learned"};
        if (m_failure)
            hand_in();
        return m_failure;
    }

private:
    static constexpr std::size_t portion = std::size_t{8} << 20;    // bytes that are appended at once
    static constexpr std::size_t most_held = std::size_t{64} << 20; // with more, all mail is looked at first

    bool hand_in() {
        training_sum part;
        m_failure = hand_in(part);
        if (m_failure)
            m_sum += part;
        m_chunks.clear();
        m_bytes = 0;
        return static_cast<bool>(m_failure);
    }

    ipc_status hand_in(training_sum& part) {
        wanted_verdicts waiting; // with the other verdict
        if (!m_options.again)
            for (const training_chunk& chunk : m_chunks)
                for (const training_mail& mail : chunk.mails)
                    if (const known_as known = m_known.find(mail.id); known.waits && !known.as(mail.spam))
                        waiting.try_emplace(mail.id).first->second.spam = mail.spam;
        if (!waiting.empty())
            if (std::string why = correct_waiting(
                    m_client.working_directory() + names::transact_path + names::cache, waiting);
                !why.empty())
                return {ipc_error::io, std::move(why)};
        std::vector<record_batch> batches;
        for (training_chunk& chunk : m_chunks) {
            std::vector<std::span<const std::uint8_t>> wanted;
            std::size_t at = 0;
            for (const training_mail& mail : chunk.mails) {
                if (mail.size == 0)
                    return {ipc_error::bad_message, mail.id + ": too large"};
                if (is_wanted(mail, waiting, part))
                    wanted.push_back(chunk.records.bytes().subspan(at, mail.size));
                at += mail.size;
            }
            if (wanted.size() == chunk.mails.size()) {
                batches.push_back(std::move(chunk.records));
                continue;
            }
            record_batch& rest = batches.emplace_back();
            for (const auto record : wanted)
                rest.add(record);
        }
        return m_client.append(std::move(batches));
    }

    // Whether a record is to be appended; counts it.
    bool is_wanted(const training_mail& mail, const wanted_verdicts& waiting, training_sum& part) {
        if (!m_options.again && m_known.is_learned(mail.id, mail.spam, m_options.manual)) {
            ++part.known;
            return false;
        }
        part.corrected += m_known.find(mail.id).as(!mail.spam) ? 1 : 0;
        ++part.messages[mail.spam ? 1 : 0];
        part.tokens += mail.tokens;
        m_known.note(mail.id, mail.spam);
        const auto found = waiting.find(mail.id);
        return found == waiting.end() || found->second.waiting == 0; // or it is marked anew where it waits
    }

    const mail_paths& m_paths;
    const train_options& m_options;
    training_client& m_client;
    known_messages m_known;
    training_sum& m_sum;
    ipc_status m_failure;
    bool m_holds = may_conflict;
    verdict_conflicts m_conflicts;
    std::string m_conflict; // for the user
    std::vector<training_chunk> m_chunks;
    std::size_t m_bytes = 0; // of their records
};

class training_worker final : public mail_worker {
public:
    training_worker(const train_options& options, training_queue& queue)
        : m_options(options), m_queue(queue) {}

    void begin() override {
        m_chunk.mails.clear();
        m_chunk.records.clear();
    }
    bool wants(const mail_item& mail) override { return !m_options.selects || m_options.selects(mail); }
    void take(const mail_item& mail, const tokenizer& cut) override {
        const std::size_t start = m_chunk.records.bytes().size();
        m_chunk.records.add(describe(cut.facts(), mail.size, mail.spam, m_options.manual), cut.tokens());
        m_chunk.mails.push_back({.id = cut.facts().msid,
                                 .name = mail.name,
                                 .key = m_queue.may_conflict ? mail_key(mail.raw) : 0,
                                 .spam = mail.spam,
                                 .tokens = cut.tokens().size(),
                                 .size = m_chunk.records.bytes().size() - start});
    }
    bool commit() override { return m_queue.add(m_chunk); }

private:
    const train_options& m_options;
    training_queue& m_queue;
    training_chunk m_chunk;
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
    if (const std::string why = path_conflict(paths); !why.empty())
        return {ipc_error::refused, why + "; nothing is learned"};
    training_queue queue(paths, options, client, sum);
    mail_reading reading(paths, "Reading mail", {.quiet = options.quiet, .verbose = options.verbose});
    reading.run([&] { return std::make_unique<training_worker>(options, queue); }, options.threads);
    sum.skipped = reading.skipped();
    sum.thrown_away = reading.passed().count(passed_mail::kind::thrown_away);
    sum.lost = reading.passed().count(passed_mail::kind::lost);
    return queue.finish();
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
