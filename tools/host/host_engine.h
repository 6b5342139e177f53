// What the host does for its client, by the engine of this user.
#pragma once

#include <map>
#include <memory>
#include <optional>
#include <string>

#include "client/known_messages.h"
#include "client/tokenizer.h"
#include "client/tvr_ipc.h"
#include "tools/host/host_session.h"
#include "tools/state/engine_view.h"
#include "tools/state/published_base.h"

namespace tvr {

// Belongs to one thread.
class host_engine final : public host_service {
public:
    host_engine();

    message_score grade(std::string_view raw, bool explain) override;
    host_training train(const host_mail& mail, bool spam) override;
    void collect(const host_mail& mail, bool spam, folder_sum& sum) override;
    void finish(folder_sum& sum) override;
    std::uint32_t forget(const host_mail& mail) override;
    nlohmann::json status() override;
    nlohmann::json settings(const nlohmann::json& changes) override;

private:
    void need_folder() const;
    void refresh();
    void settle(folder_sum& sum);

    training_client m_client;
    engine_view m_view;
    std::string m_cache;
    known_messages m_known;
    tokenizer m_cut;

    std::unique_ptr<published_base> m_base; // null until there is one
    std::optional<std::uint64_t> m_stamp;   // of that base; nothing if it is to be looked at again

    // The messages of a folder that aren't handed over yet, by their IDs in the cache.
    std::map<std::string, record_batch> m_collected;
    std::size_t m_collected_bytes = 0;
    bool m_collects_spam = false;
    bool m_looked = false; // whether m_known was read for this folder
};

} // namespace tvr
