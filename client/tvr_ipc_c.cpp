#include "client/tvr_ipc_c.h"

#include <exception>
#include <memory>
#include <string>
#include <utility>

#include "client/known_messages.h"
#include "client/mail_record.h"
#include "client/tvr_ipc.h"

struct tvr_client {
    tvr::training_client client;
};

namespace {

thread_local std::string last_text;

int answer(tvr::ipc_status status) {
    last_text = std::move(status.text);
    return static_cast<int>(status.error);
}

int bad_message(const char* text) {
    return answer({tvr::ipc_error::bad_message, text});
}

// Appends the message, unless it is to be learned only once and is known.
int append(tvr_client* client, const tvr::record_batch& batch, const tvr::training_message& message,
           std::uint32_t marks) {
    if (marks & tvr_mark_once) {
        tvr::known_messages known(client->client.working_directory());
        known.load();
        if (known.is_learned(message.msid, message.spam, message.manual))
            return answer({tvr::ipc_error::known, "the message is known with this verdict"});
    }
    return answer(client->client.append(batch));
}

// Runs an operation; no exception leaves the library.
template <class Operation>
int guarded(Operation operation) noexcept {
    try {
        return operation();
    } catch (const std::exception& failure) {
        last_text = failure.what();
        return tvr_io;
    }
}

} // namespace

extern "C" {

tvr_client* tvr_open(void) {
    try {
        return std::make_unique<tvr_client>().release();
    } catch (const std::exception& failure) {
        last_text = failure.what();
        return nullptr;
    }
}

void tvr_close(tvr_client* client) {
    const std::unique_ptr<tvr_client> owner(client);
}

int tvr_append(tvr_client* client, const tvr_message* message) {
    return guarded([&] {
        tvr::token_table tokens;
        for (std::size_t i = 0; i < message->token_count; ++i) {
            const tvr_token& token = message->tokens[i];
            if (token.size == 0 || token.size > tvr::token_table::longest)
                return bad_message("a token is empty or longer than 255 bytes");
            tokens.add({token.text, token.size}, token.count);
        }
        tvr::record_batch batch;
        const tvr::training_message described = {.msid = {message->msid, message->msid_size},
                                                 .spam = (message->marks & tvr_mark_spam) != 0,
                                                 .manual = (message->marks & tvr_mark_manual) != 0,
                                                 .size = message->size,
                                                 .time = message->time};
        if (!batch.add(described, tokens))
            return bad_message("the message ID is longer than 255 bytes");
        return append(client, batch, described, message->marks);
    });
}

int tvr_append_mail(tvr_client* client, const char* raw, size_t size, uint32_t marks) {
    return guarded([&] {
        tvr::record_batch batch;
        tvr::training_message message = {
            .msid = {}, .spam = (marks & tvr_mark_spam) != 0, .manual = (marks & tvr_mark_manual) != 0};
        std::string msid;
        if (tvr::ipc_status status = tvr::add_mail(batch, {raw, size}, message.spam, message.manual, &msid);
            !status)
            return answer(std::move(status));
        message.msid = msid;
        return append(client, batch, message, marks);
    });
}

int tvr_raise(tvr_client* client, tvr_event event, int start) {
    return guarded(
        [&] { return answer(client->client.raise(static_cast<tvr::engine_event>(event), start != 0)); });
}

int tvr_hand_over(tvr_client* client, int corrected) {
    return guarded([&] { return answer(client->client.hand_over(corrected != 0)); });
}

int tvr_engine_runs(const tvr_client* client) {
    return client->client.engine_runs() ? 1 : 0;
}

const char* tvr_error_text(void) {
    return last_text.c_str();
}

} // extern "C"
