#include "client/tvr_ipc.h"

#include <utility>

#include "client/cache_writer.h"
#include "client/training_schedule.h"
#include "client/user_folder.h"
#include "client/verdict/learning.h"
#include "common/file_names.h"
#include "common/path.h"
#include "platform/error.h"
#include "platform/file.h"
#include "platform/presence.h"
#include "platform/process.h"
#include "platform/sync.h"
#include "signal/event_channel.h"
#include "signal/identity.h"

namespace tvr {

struct training_client::state {
    state()
        : working(find_working_directory()), cache(working + names::transact_path + names::cache),
          learning(working) {}

    std::string find_working_directory() {
        user_folder folder = make_user_folder();
        const std::string wanted = folder.path + names::transact_path;
        if (!folder.path.empty() && (make_folders(wanted) || platform::get_attributes(wanted)))
            return folder.path;
        status = {ipc_error::no_folder,
                  folder.path.empty() ? folder.error : path_error(wanted, platform::last_error())};
        return {};
    }

    ipc_status status;
    std::string working;
    cache_writer cache;
    std::uint32_t patience = 30000; // milliseconds
    event_channel channel;
    platform::critical_section learns; // for what follows; held through an append
    verdict_learning learning;
    std::string remark; // of the learning
};

training_client::training_client() : m_state(std::make_unique<state>()) {}
training_client::~training_client() {
    if (m_state->status)
        m_state->learning.finish();
}

const ipc_status& training_client::status() const noexcept {
    return m_state->status;
}
const std::string& training_client::working_directory() const noexcept {
    return m_state->working;
}
std::uint64_t training_client::appended_until() const noexcept {
    return m_state->cache.end();
}

ipc_status training_client::append(const record_batch& batch) {
    return append(std::vector<record_batch>{batch});
}

ipc_status training_client::append(std::vector<record_batch> batches) {
    if (!m_state->status)
        return m_state->status;
    const std::string path = m_state->working + names::transact_path;
    const platform::locker locker(m_state->learns);
    m_state->learning.prepare();
    switch (m_state->cache.append(batches, m_state->patience)) {
    case append_result::done:
        m_state->learning.take(std::move(batches));
        return {};
    case append_result::locked:
        return {ipc_error::locked, path_error(path + names::lock, platform::error::sharing_violation)};
    case append_result::cache_full:
        return {ipc_error::cache_full, platform::display_path(path) + names::cache +
                                           ": full until the engine has taken the messages"};
    default:
        return {ipc_error::io, path_error(path + names::cache, platform::last_error())};
    }
}

ipc_status training_client::train(const record_batch& batch, bool corrected) {
    const ipc_status appended = append(batch);
    return appended ? hand_over(corrected) : appended;
}

ipc_status training_client::hand_over(bool corrected) {
    if (!m_state->status)
        return m_state->status;
    const bool is_due = training_schedule(m_state->working).is_due(corrected);
    return raise(is_due ? engine_event::train : engine_event::add);
}

void training_client::set_patience(std::uint32_t milliseconds) noexcept {
    m_state->patience = milliseconds;
}

ipc_status training_client::raise(engine_event event, bool start) {
    if (!m_state->status)
        return m_state->status;
    const start_result found = m_state->channel.start_server(start);
    m_state->channel.raise(static_cast<std::uint32_t>(event));
    const platform::locker locker(m_state->learns);
    if (event != engine_event::reset) { // while the engine learns as well
        m_state->remark = m_state->learning.finish();
    } else {
        m_state->learning.forget();
        if (!replace_verdict(m_state->working, nullptr))
            return {ipc_error::io, path_error(verdict_path(m_state->working), platform::last_error()) +
                                       "; what the verdict learned stays"};
    }
    if (start && found == start_result::no_server)
        return {ipc_error::no_engine, "the engine doesn't run, and could not be started"};
    return {};
}

std::string training_client::remark() const {
    const platform::locker locker(m_state->learns);
    return m_state->remark;
}

bool training_client::is_pending(engine_event event) const {
    return m_state->status && m_state->channel.is_pending(static_cast<std::uint32_t>(event));
}

bool training_client::engine_runs() const {
    return platform::find_presence(server_class, server_title).found;
}

} // namespace tvr
