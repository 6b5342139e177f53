#include "tools/mail_input.h"

#include <memory>
#include <utility>

#include "client/tokenizer.h"
#include "tools/mail_reading.h"
#include "tools/mail_source.h"

namespace tvr {

namespace {

// Appends each chunk to the cache.
class training_worker final : public mail_worker {
public:
    training_worker(const train_options& options, training_client& client, training_sum& sum,
                    ipc_status& failure)
        : m_options(options), m_client(client), m_sum(sum), m_failure(failure) {}

    void begin() override {
        m_batch.clear();
        m_chunk = {};
    }
    bool wants(const mail_item& mail) override { return !m_options.selects || m_options.selects(mail); }
    void take(const mail_item& mail, const tokenizer& cut) override {
        m_batch.add(describe(cut.facts(), mail.raw.size(), mail.spam, m_options.manual), cut.tokens());
        ++m_chunk.messages[mail.spam ? 1 : 0];
        m_chunk.tokens += cut.tokens().size();
    }
    bool commit() override {
        if (ipc_status status = m_client.append(m_batch); !status) {
            m_failure = std::move(status);
            return false;
        }
        m_sum += m_chunk;
        return true;
    }

private:
    const train_options& m_options;
    training_client& m_client;
    training_sum& m_sum;
    ipc_status& m_failure;
    record_batch m_batch;
    training_sum m_chunk;
};

} // namespace

ipc_status take_mail(const train_options& options, training_client& client, training_sum& sum) {
    mail_reading reading(options.spam, options.ham, "Reading mail", options.quiet);
    ipc_status failure;
    reading.run([&] { return std::make_unique<training_worker>(options, client, sum, failure); },
                options.threads);
    sum.skipped = reading.skipped();
    return failure;
}

bool add_message_ids(const std::vector<std::string>& files, mail_to_forget& messages) {
    bool failed = false;
    mail_source source([&](const std::string& name, const std::string& why) {
        failed = true;
        fail(name + ": " + why);
    });
    for (const std::string& path : files)
        source.add(path, false);
    tokenizer cut;
    mail_item mail;
    while (source.next(mail)) {
        cut.tokenize(mail.raw);
        messages.try_emplace(cut.facts().msid);
    }
    return !failed;
}

} // namespace tvr
