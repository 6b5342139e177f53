// Learns ready records.

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <iostream>

#include "client/tvr_ipc.h"
#include "common/bytes.h"
#include "dict/message_record.h"
#include "tools/progress.h"
#include "tools/record_stream.h"
#include "tools/text.h"
#include "tools/train.h"

namespace tvr {

namespace {

constexpr std::size_t batch_bytes = std::size_t{4} << 20; // appended at once

class record_training {
public:
    record_training(training_client& client, training_sum& sum, bool quiet)
        : m_client(client), m_sum(sum), m_progress("Reading records", quiet) {}

    ipc_status take(std::istream& in, const std::string& name, std::uint64_t size) {
        record_reader reader(in);
        while (reader.next(m_batch)) {
            count(reader.record());
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
    void count(std::span<const std::uint8_t> record) {
        message_head head;
        std::size_t behind = 0;
        head.header.read(record, behind);
        ++m_chunk.messages[head.flags & message_flag::spam ? 1 : 0];
        m_chunk.tokens += head.tokens;
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
};

} // namespace

ipc_status take_records(const train_options& options, training_client& client, training_sum& sum) {
    record_training training(client, sum, options.quiet);
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
