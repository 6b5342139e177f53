#include "tools/eval/mail_spool.h"

#include <memory>
#include <utility>

#include "common/bytes.h"
#include "platform/folder_watch.h"
#include "tools/mail/mail_reading.h"
#include "tools/mail/record_stream.h"

namespace tvr {

namespace {

constexpr std::size_t head_size = 32; // bytes of a record before its message ID
constexpr std::size_t batch_bytes = std::size_t{4} << 20;

// Writes the records of each chunk, and notes where they lie.
class spooling_worker final : public mail_worker {
public:
    spooling_worker(std::ostream& out, std::uint64_t& end, std::vector<spooled_mail>& all)
        : m_out(out), m_end(end), m_all(all) {}

    void begin() override {
        m_batch.clear();
        m_here.clear();
    }
    void take(const mail_item& mail, const tokenizer& cut) override {
        const training_message message = describe(cut.facts(), mail.size, mail.spam, false);
        const std::size_t start = m_batch.bytes().size();
        if (m_batch.add(message, cut.tokens()))
            m_here.push_back({mail.name, mail.spam, message.time, cut.facts().arrival, start,
                              static_cast<std::uint32_t>(m_batch.bytes().size() - start)});
    }
    bool commit() override {
        const auto bytes = m_batch.bytes();
        m_out.write(reinterpret_cast<const char*>(bytes.data()), static_cast<std::streamsize>(bytes.size()));
        for (spooled_mail& mail : m_here) {
            mail.offset += m_end;
            m_all.push_back(std::move(mail));
        }
        m_end += bytes.size();
        return m_out.good() && !platform::folder_watch::stop_requested();
    }

private:
    std::ostream& m_out;
    std::uint64_t& m_end;
    std::vector<spooled_mail>& m_all;
    record_batch m_batch;
    std::vector<spooled_mail> m_here;
};

} // namespace

mail_spool::mail_spool(std::string path)
    : m_path(std::move(path)),
      m_file(m_path, std::ios::binary | std::ios::in | std::ios::out | std::ios::trunc) {}

bool mail_spool::read_in(const std::vector<std::string>& spam, const std::vector<std::string>& ham,
                         unsigned threads, bool quiet) {
    m_file.seekp(static_cast<std::streamoff>(m_end));
    mail_reading reading(spam, ham, "Reading mail", quiet);
    reading.run([&] { return std::make_unique<spooling_worker>(m_file, m_end, m_mails); }, threads);
    m_file.flush();
    return m_file.good();
}

bool mail_spool::read_record(std::size_t mail) {
    const spooled_mail& wanted = m_mails.at(mail);
    m_record.resize(wanted.length);
    m_file.seekg(static_cast<std::streamoff>(wanted.offset));
    m_file.read(reinterpret_cast<char*>(m_record.data()), static_cast<std::streamsize>(m_record.size()));
    return m_file.good();
}

bool mail_spool::tokens_of(std::size_t mail, token_table& tokens) {
    tokens.clear();
    if (!read_record(mail) || record_defect(m_record))
        return false;
    std::size_t at = head_size + 1 + m_record[head_size] + 8;
    while (at < m_record.size()) {
        const std::size_t length = m_record[at];
        tokens.add({reinterpret_cast<const char*>(m_record.data()) + at + 1, length},
                   load_u32(m_record.data() + at + 1 + length));
        at += length + 5;
    }
    return true;
}

bool mail_spool::write_stream(const std::vector<std::size_t>& mails, const std::string& path) {
    std::ofstream out(path, std::ios::binary);
    record_writer writer(out);
    record_batch batch;
    for (const std::size_t mail : mails) {
        if (!read_record(mail) || !batch.add(m_record))
            return false;
        if (batch.bytes().size() < batch_bytes)
            continue;
        writer.write(batch);
        batch.clear();
    }
    writer.write(batch);
    writer.finish();
    out.close();
    return out.good();
}

} // namespace tvr
