// Reads mail and cuts it into tokens on several threads.
#pragma once

#include <array>
#include <condition_variable>
#include <cstdint>
#include <functional>
#include <memory>
#include <mutex>
#include <string>
#include <vector>

#include "client/tokenizer.h"
#include "tools/mail_source.h"
#include "tools/progress.h"

namespace tvr {

// What is done with the messages. Each thread has a worker of its own.
class mail_worker {
public:
    virtual ~mail_worker() = default;
    virtual void begin() = 0; // a new chunk of messages
    virtual bool wants(const mail_item&) { return true; }
    virtual void take(const mail_item& mail, const tokenizer& cut) = 0;
    // The end of the chunk. Called by one thread at a time, in the order of the mail, so that equal mail has
    // equal effects. False ends the reading.
    virtual bool commit() = 0;
};

// Skipped mail is named on standard error. Holds some chunks of mail in memory, whatever there is to read.
class mail_reading {
public:
    mail_reading(const std::vector<std::string>& spam, const std::vector<std::string>& ham, std::string what,
                 bool quiet);

    // `threads`: 0 is one for each processor.
    void run(const std::function<std::unique_ptr<mail_worker>()>& make_worker, unsigned threads);

    [[nodiscard]] std::uint64_t skipped() const noexcept { return m_skipped; }

private:
    static constexpr std::size_t chunk_messages = 64;
    static constexpr std::size_t chunk_bytes = std::size_t{4} << 20;

    struct chunk {
        std::vector<mail_item> items = std::vector<mail_item>(chunk_messages);
        std::size_t filled = 0;
        std::uint64_t turn = 0; // its place in the order
    };

    bool take_chunk(chunk& next);
    void work(mail_worker& worker);
    void report_skipped(const std::string& name, const std::string& why);
    void show(std::uint64_t done);

    std::mutex m_source_mutex; // for the source and the progress
    progress m_progress;
    std::uint64_t m_skipped = 0;
    mail_source m_source;
    std::uint64_t m_chunks = 0;
    std::uint64_t m_messages = 0;
    bool m_stopped = false;

    std::mutex m_order_mutex; // taken before the other
    std::condition_variable m_order;
    std::uint64_t m_turn = 0;
};

} // namespace tvr
