#include "tools/host/host_engine.h"

#include <cstdlib>
#include <utility>

#include <nlohmann/json.hpp>

#include "common/file_names.h"
#include "platform/file.h"
#include "tools/settings/setting_list.h"
#include "tools/state/engine_status.h"
#include "tools/state/waiting_mail.h"

namespace tvr {

namespace {

constexpr std::size_t most_collected = 256; // messages
constexpr std::size_t most_collected_bytes = std::size_t{4} << 20;

void check(const std::string& why) {
    if (!why.empty())
        throw host_refusal{"failed", why};
}

const char* code_of(ipc_error error) {
    switch (error) {
    case ipc_error::cache_full:
        return "cache_full";
    case ipc_error::locked:
        return "busy";
    default:
        return "failed";
    }
}

void check(const ipc_status& status) {
    if (!status)
        throw host_refusal{code_of(status.error), status.text};
}

} // namespace

host_engine::host_engine()
    : m_view(m_client.working_directory()),
      m_cache(m_client.working_directory() + names::transact_path + names::cache),
      m_known(m_client.working_directory()) {}

void host_engine::need_folder() const {
    check(m_client.status());
}

// Takes the published base again when its stamp is another, or the weights of the verdict have changed. One
// that can't be read now, since it is being replaced, leaves the one before in use.
void host_engine::refresh() {
    need_folder();
    const std::uint64_t stamp = m_view.stamp();
    if (m_base && stamp == m_stamp)
        return;
    auto fresh = std::make_unique<published_base>();
    std::string why = fresh->load();
    if (why.empty()) {
        m_base = std::move(fresh);
        m_stamp = stamp;
        return;
    }
    const bool is_gone = !m_view.stage() && !platform::get_attributes(m_view.base_path());
    if (is_gone)
        m_base.reset();
    if (!m_base)
        throw host_refusal{is_gone ? "no_base" : "busy", std::move(why)};
}

message_score host_engine::grade(std::string_view raw, bool explain) {
    refresh();
    m_cut.tokenize(raw);
    return m_base->scorer().score(m_cut.tokens(), explain);
}

host_training host_engine::train(const host_mail& mail, bool spam) {
    need_folder();
    m_cut.tokenize(mail.raw);
    const training_message facts = describe(m_cut.facts(), mail.size, spam, true);
    wanted_verdicts wanted;
    waiting_verdict& found = wanted[std::string(facts.msid)];
    found.spam = spam;
    check(correct_waiting(m_cache, wanted));
    const bool remarked = found.remarked != 0 || found.deleted != 0;
    m_known.load();
    if (!remarked && (found.waiting != 0 || m_known.is_learned(facts.msid, spam, true)))
        return host_training::known;
    record_batch batch;
    if (found.waiting == 0 && !batch.add(facts, m_cut.tokens()))
        throw host_refusal{"too_large", "the message is too large"};
    check(m_client.append(batch));
    m_stamp.reset();
    // A failure to reach the engine loses nothing: the message waits in the cache, and whoever raises next
    // starts it.
    m_client.hand_over(true);
    return remarked ? host_training::remarked : host_training::learned;
}

void host_engine::collect(const host_mail& mail, bool spam, folder_sum& sum) {
    need_folder();
    m_cut.tokenize(mail.raw);
    const training_message facts = describe(m_cut.facts(), mail.size, spam, false);
    record_batch record;
    if (!record.add(facts, m_cut.tokens()))
        throw host_refusal{"too_large", "the message is too large"};
    m_collects_spam = spam;
    const std::size_t size = record.bytes().size();
    if (m_collected.try_emplace(std::string(facts.msid), std::move(record)).second)
        m_collected_bytes += size;
    else
        ++sum.known;
    if (m_collected.size() >= most_collected || m_collected_bytes >= most_collected_bytes)
        settle(sum);
    sum.waiting = m_collected.size();
}

// Hands over what was collected and isn't known.
void host_engine::settle(folder_sum& sum) {
    const auto collected = std::exchange(m_collected, {});
    m_collected_bytes = 0;
    wanted_verdicts wanted;
    for (const auto& [id, record] : collected)
        wanted[id].spam = m_collects_spam;
    check(correct_waiting(m_cache, wanted));
    if (!std::exchange(m_looked, true))
        m_known.load();
    record_batch batch;
    std::uint64_t known = 0;
    for (const auto& [id, record] : collected) {
        if (wanted[id].waiting != 0 || m_known.is_learned(id, m_collects_spam, false))
            ++known;
        else if (!batch.add(record.bytes()))
            throw host_refusal{"too_large", "the messages are too large"};
    }
    check(m_client.append(batch));
    m_stamp.reset();
    for (const auto& [id, record] : collected)
        m_known.note(id, m_collects_spam);
    sum.known += known;
    sum.learned += batch.count();
}

void host_engine::finish(folder_sum& sum) {
    settle(sum);
    m_looked = false;
    sum.waiting = 0;
    if (sum.learned != 0)
        m_client.raise(engine_event::train);
}

std::uint32_t host_engine::forget(const host_mail& mail) {
    need_folder();
    m_cut.tokenize(mail.raw);
    mail_to_forget messages;
    const auto at = messages.try_emplace(forget_key(m_cut.facts().msid)).first;
    check(forget_waiting(m_cache, messages));
    return at->second.marked;
}

nlohmann::json host_engine::status() {
    need_folder();
    return json_of(m_view, look_at(m_view));
}

// Only what is the user's own and concerns the verdict: the rest is no matter of an add-on.
nlohmann::json host_engine::settings(const nlohmann::json& changes) {
    need_folder();
    for (const auto& [key, value] : changes.items()) {
        const setting_list list;
        const setting_view* const setting = list.find(key);
        if (!setting || setting->group != setting_group::verdict || !value.is_number())
            throw host_refusal{"bad_request", "\"" + key.substr(0, 40) + "\" can't be set here"};
        if (std::string why = list.set(*setting, value.dump()); !why.empty())
            throw host_refusal{"bad_request", std::move(why)};
    }
    nlohmann::json values = nlohmann::json::object();
    const setting_list list;
    for (const setting_view& setting : list.all())
        if (setting.group == setting_group::verdict)
            values[setting.facts->key] = std::atof(setting.value.c_str());
    return {{"settings", values}};
}

} // namespace tvr
