// Learns ready records.

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <iostream>

#include "client/known_messages.h"
#include "client/tvr_ipc.h"
#include "common/bytes.h"
#include "dict/message_record.h"
#include "platform/folder_watch.h"
#include "tools/commands/train.h"
#include "tools/mail/record_stream.h"
#include "tools/progress.h"
#include "tools/text.h"

namespace tvr {

namespace {

constexpr std::size_t batch_bytes = std::size_t{4} << 20; // appended at once

class record_training {
public:
    record_training(const train_options& options, training_client& client, training_sum& sum)
        : m_client(client), m_sum(sum), m_progress("Reading records", options.quiet), m_again(options.again),
          m_known(client.working_directory()) {
        if (!m_again)
            m_known.load();
    }

    ipc_status take(std::istream& in, const std::string& name, std::uint64_t size) {
        record_reader reader(in);
        record_batch one;
        while (!platform::folder_watch::stop_requested() && reader.next(one)) {
            take_record(one.bytes());
            one.clear();
            if (m_batch.bytes().size() < batch_bytes)
                continue;
            if (ipc_status status = append(); !status)
                return status;
            m_progress.show(std::min(reader.position(), size), size, grouped(m_sum.all()) + " messages");
        }
        ipc_status status = append();
        if (status && in.bad())
            return {ipc_error::io, name + ": can't be read to its end"};
        if (status && !reader.error().empty())
            return {ipc_error::bad_message, name + ": " + reader.error()};
        return status;
    }

private:
    void take_record(std::span<const std::uint8_t> record) {
        message_head head;
        std::size_t behind = 0;
        head.header.read(record, behind);
        const std::string_view msid(reinterpret_cast<const char*>(record.data()) + behind + 1,
                                    record[behind]);
        const bool is_spam = (head.flags & message_flag::spam) != 0;
        const bool is_manual = (head.flags & message_flag::manual) != 0;
        if (!m_again && m_known.is_learned(msid, is_spam, is_manual)) {
            ++m_chunk.known;
            return;
        }
        m_chunk.corrected += m_known.find(msid).as(!is_spam) ? 1 : 0;
        m_batch.add(record);
        ++m_chunk.messages[is_spam ? 1 : 0];
        m_chunk.tokens += head.tokens;
        m_known.note(msid, is_spam);
    }

    ipc_status append() {
        ipc_status status = m_client.append(m_batch);
        if (status)
            m_sum += m_chunk;
        m_batch.clear();
        m_chunk = {};
        return status;
    }

    training_client& m_client;
    training_sum& m_sum;
    progress m_progress;
    record_batch m_batch;
    training_sum m_chunk;
    bool m_again;
    known_messages m_known;
};

} // namespace

ipc_status take_records(const train_options& options, training_client& client, training_sum& sum) {
    record_training training(options, client, sum);
    for (const std::string& path : options.records) {
        ipc_status status;
        if (path == "-") {
            status = training.take(std::cin, "standard input", 0);
        } else {
            std::ifstream file(path, std::ios::binary);
            if (!file)
                return {ipc_error::io, path + ": " + std::strerror(errno)};
            std::error_code error;
            const std::uintmax_t size = std::filesystem::file_size(path, error);
            status = training.take(file, path, error ? 0 : size);
        }
        if (!status)
            return status;
    }
    return {};
}

} // namespace tvr
