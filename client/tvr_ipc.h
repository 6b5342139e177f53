// The engine's client: hands training messages over, raises the engine's events, starts the engine.
//
//     tvr::training_client client;
//     tvr::tokenizer tokenizer;
//     tokenizer.tokenize(raw_mail);
//     tvr::record_batch batch;
//     batch.add({.msid = tokenizer.facts().msid, .spam = true, ...}, tokenizer.tokens());
//     if (const auto status = client.train(batch); !status) report(status.text);
#pragma once

#include <cstdint>
#include <memory>
#include <string>
#include <string_view>
#include <vector>

#include "client/record_batch.h"
#include "client/token_table.h"
#include "client/tokenizer.h"
#include "client/tvr_ipc_export.h"

namespace tvr {

enum class ipc_error : int {
    none = 0,
    bad_message = 1, // a message ID or a token that is too long
    no_folder = 2,   // the working directory can't be found or made
    locked = 3,      // another process held the cache's lock for all the patience
    cache_full = 4,  // 2 GiB of messages wait: the engine has to take them first
    io = 5,          // the cache can't be written
    no_engine = 6,   // it doesn't run and could not be started
    known = 8,       // left out, as the engine knows the message with this verdict
    refused = 9,     // of tvrctl: what is given contradicts itself
};

struct ipc_status {
    ipc_error error = ipc_error::none;
    std::string text; // for the user: the file and the reason; empty on success

    explicit operator bool() const noexcept { return error == ipc_error::none; }
};

enum class engine_event : std::uint32_t {
    add = 0,   // messages were appended: the engine's training delay starts again
    train = 1, // train now
    reset = 2, // forget all training
};

// Any thread, any number of processes. What is raised before the engine is up reaches it as long as one
// client object is alive.
class TVR_IPC_EXPORT training_client {
public:
    // Finds the user's working directory, and makes the folders of the cache. status() tells the failure;
    // the other operations then return the same.
    training_client();
    ~training_client();
    training_client(const training_client&) = delete;
    training_client& operator=(const training_client&) = delete;

    [[nodiscard]] const ipc_status& status() const noexcept;
    // With backslashes, and one at the end; empty on failure.
    [[nodiscard]] const std::string& working_directory() const noexcept;

    // How long append() waits for the cache's lock, in milliseconds; 30,000 at first.
    void set_patience(std::uint32_t milliseconds) noexcept;
    // Appends the batch to the cache, all of it or nothing. Raises no event. The verdict on mail learns from
    // the messages, too: with the next event, or when this object goes.
    ipc_status append(const record_batch& batch);
    // The same with many batches at once, which are kept as they are until the verdict has learned.
    ipc_status append(std::vector<record_batch> batches);
    // Appends the batch and hands it over; see hand_over().
    ipc_status train(const record_batch& batch, bool corrected = false);
    // Tells the engine, which is started if it doesn't run, that messages were appended: raises `train` if
    // the user's training_schedule finds that they are due, otherwise `add`. `corrected`: they change a
    // verdict of before by the user's own hand.
    ipc_status hand_over(bool corrected);

    // Raises an event, and first starts the engine if it doesn't run and `start` allows it. Without an
    // engine the event stays raised until one comes up or this object goes. `reset` also deletes what the
    // verdict learned.
    ipc_status raise(engine_event event, bool start = true);

    // What went wrong when the verdict learned from the last messages, in one line; empty if nothing did. The
    // engine's training isn't touched by it.
    [[nodiscard]] std::string remark() const;

    // Whether a raise of this event hasn't reached an engine yet. Whoever raises and ends stays that long.
    [[nodiscard]] bool is_pending(engine_event event) const;

    [[nodiscard]] bool engine_runs() const;
    // The end of the cache (bytes) behind what this object appended last.
    [[nodiscard]] std::uint64_t appended_until() const noexcept;

private:
    struct state;
    std::unique_ptr<state> m_state;
};

} // namespace tvr
