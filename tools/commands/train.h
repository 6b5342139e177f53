// The training of mail, for the commands that need it.
#pragma once

#include <array>
#include <cstdint>
#include <functional>
#include <optional>
#include <string>
#include <vector>

#include "client/tvr_ipc.h"

namespace tvr {

struct mail_item;

struct train_options {
    std::vector<std::string> spam;
    std::vector<std::string> ham;
    std::vector<std::string> records; // streams of ready records; then there is neither spam nor ham
    bool wait = false;
    bool later = false;
    bool manual = false;
    bool recursive = false; // with the other folders of a Maildir
    bool again = false;     // also what the engine knows with the same verdict
    bool quiet = false;
    bool verbose = false;
    bool silent = false;                           // prints no report either
    unsigned threads = 0;                          // 0: one for each processor
    std::optional<unsigned> timeout;               // seconds
    std::function<bool(const mail_item&)> selects; // empty: all
};

// What has reached the cache, and what hasn't.
struct training_sum {
    std::array<std::uint64_t, 2> messages{}; // ham, spam
    std::uint64_t tokens = 0;
    std::uint64_t known = 0;       // left out, as the engine knows them with the same verdict
    std::uint64_t corrected = 0;   // of the messages: they are known with the other verdict
    std::uint64_t skipped = 0;     // messages and files
    std::uint64_t thrown_away = 0; // left out, as their owner has done so
    std::uint64_t lost = 0;        // paths that were named and can't be read

    [[nodiscard]] std::uint64_t all() const { return messages[0] + messages[1]; }
    training_sum& operator+=(const training_sum& more) {
        for (const std::size_t half : {0U, 1U})
            messages[half] += more.messages[half];
        tokens += more.tokens;
        known += more.known;
        corrected += more.corrected;
        return *this;
    }
};

// Appends the records of the streams to the cache, up to the first damage. Returns the failure that ended it.
ipc_status take_records(const train_options& options, training_client& client, training_sum& sum);

// Reads the mail or the records, hands it to the engine, and reports on standard output. Returns the exit
// code.
int train(const train_options& options);

} // namespace tvr
