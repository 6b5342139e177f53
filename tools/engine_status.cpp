#include "tools/engine_status.h"

#include <nlohmann/json.hpp>

#include "platform/file.h"
#include "tools/text.h"

namespace tvr {

namespace {

nlohmann::json json_of(const half_view& half) {
    return {{"atoms", half.atoms},
            {"messages", half.messages},
            {"oldest", date_text(half.oldest)},
            {"newest", date_text(half.newest)}};
}

} // namespace

engine_status look_at(const engine_view& view) {
    engine_status state;
    state.process = engine_view::process_id();
    state.stage = view.stage();
    state.waiting = view.waiting();
    state.cache_size = view.cache_size();
    state.spam = view.half("spamdict");
    state.ham = view.half("nspamdict");
    state.base = view.base();
    return state;
}

nlohmann::json json_of(const engine_view& view, const engine_status& state) {
    nlohmann::json json = {
        {"engine", {{"running", state.process != 0}, {"pid", state.process}}},
        {"folder", platform::display_path(view.working_directory())},
        {"cache", {{"bytes", state.cache_size}}},
        {"spam", json_of(state.spam)},
        {"ham", json_of(state.ham)},
    };
    json["engine"]["stage"] = state.stage ? nlohmann::json(state.stage) : nlohmann::json();
    json["cache"]["messages"] = state.waiting ? nlohmann::json(*state.waiting) : nlohmann::json();
    if (state.base)
        json["base"] = {{"bytes", state.base->bytes},
                        {"tokens", state.base->tokens},
                        {"spam_messages", state.base->spam_messages},
                        {"ham_messages", state.base->ham_messages},
                        {"published", state.base->published != 0 ? time_text(state.base->published) : ""}};
    else
        json["base"] = nullptr;
    return json;
}

} // namespace tvr
