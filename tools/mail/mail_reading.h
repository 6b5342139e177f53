// Reads mail and cuts it into tokens on several threads.
#pragma once

#include <array>
#include <condition_variable>
#include <cstdint>
#include <functional>
#include <map>
#include <memory>
#include <mutex>
#include <string>
#include <unordered_map>
#include <utility>
#include <vector>

#include "client/tokenizer.h"
#include "tools/mail/mail_source.h"
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

// Tells on standard error what was passed over: the first ones by name, the others as a number for each
// reason and folder. One thread at a time.
class pass_log {
public:
    explicit pass_log(bool verbose = false) : m_verbose(verbose) {} // verbose: all by name

    void add(const passed_mail& mail, progress* shown = nullptr); // a bar gives way
    void sum_up();                                                // at the end

    [[nodiscard]] std::uint64_t count(passed_mail::kind what) const {
        return m_counts[static_cast<std::size_t>(what)];
    }
    [[nodiscard]] std::uint64_t skipped() const {
        return count(passed_mail::kind::skipped) + count(passed_mail::kind::lost);
    }

private:
    static constexpr std::uint64_t most_named = 10; // of each reason
    static constexpr std::size_t most_places = 20;  // that are summed up

    bool m_verbose;
    std::array<std::uint64_t, 4> m_counts{};
    std::map<std::string, std::uint64_t> m_reasons;                           // with how many of each
    std::map<std::pair<std::string, std::string>, std::uint64_t> m_not_named; // by reason and place
};

struct reading_options {
    bool quiet = false;   // no progress
    bool verbose = false; // every skipped message by name
};

// Skipped mail is told of on standard error. Holds some chunks of mail in memory, whatever there is to read.
// A request to stop (see platform::folder_watch) ends the reading after the chunk at hand.
class mail_reading {
public:
    mail_reading(const mail_paths& paths, std::string what, const reading_options& options);
    mail_reading(const std::vector<std::string>& spam, const std::vector<std::string>& ham, std::string what,
                 bool quiet)
        : mail_reading({.spam = spam, .ham = ham}, std::move(what), {.quiet = quiet}) {}

    // `threads`: 0 is one for each processor.
    void run(const std::function<std::unique_ptr<mail_worker>()>& make_worker, unsigned threads);

    [[nodiscard]] std::uint64_t skipped() const noexcept { return m_passed.skipped(); }
    [[nodiscard]] const pass_log& passed() const noexcept { return m_passed; }

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
    void show(std::uint64_t done);

    std::mutex m_source_mutex; // for the source and the progress
    progress m_progress;
    pass_log m_passed;
    mail_source m_source;
    std::uint64_t m_chunks = 0;
    std::uint64_t m_messages = 0;
    bool m_stopped = false;

    std::mutex m_order_mutex; // taken before the other
    std::condition_variable m_order;
    std::uint64_t m_turn = 0;
};

// Finds messages that are given both as spam and as good mail.
class verdict_conflicts {
public:
    void add(std::uint64_t key, bool spam, const std::string& name); // see mail_key()
    [[nodiscard]] std::string text() const;                          // for the user; empty if there is none

private:
    std::unordered_map<std::uint64_t, std::pair<bool, std::string>> m_given; // verdict and name
    std::string m_first;
    std::uint64_t m_count = 0;
};

// Why these messages can't be learned together, or an empty text. Reads them all once, but for what
// can be read only once; nothing is told of what is passed over.
[[nodiscard]] std::string learning_conflict(const mail_paths& paths);

} // namespace tvr
