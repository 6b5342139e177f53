#include "tools/state/engine_status.h"

#include <nlohmann/json.hpp>

#include "client/verdict/exact_math.h"
#include "client/verdict/user_limits.h"
#include "common/file_names.h"
#include "platform/file.h"
#include "tools/text.h"

namespace tvr {

namespace {

learned_status learned_by(const std::string& working) {
    verdict_state state;
    learned_status learned;
    learned.file = load_verdict(verdict_path(working), state);
    learned.judged = state.judged;
    learned.kept = state.messages.size();
    learned.spam_from = 100 * exact_logistic(spam_logit(state, limits_of_user(working)));
    return learned;
}

// null in place of what there isn't.
template <class Value>
nlohmann::json json_if(bool known, const Value& value) {
    return known ? nlohmann::json(value) : nlohmann::json();
}

nlohmann::json json_of(const half_view& half) {
    return {{"atoms", half.atoms},
            {"messages", half.messages},
            {"oldest", json_if(half.oldest != 0, date_text(half.oldest))},
            {"newest", json_if(half.newest != 0, date_text(half.newest))}};
}

nlohmann::json json_of(const base_view& base) {
    return {{"bytes", base.bytes},
            {"tokens", base.tokens},
            {"spam_messages", base.spam_messages},
            {"ham_messages", base.ham_messages},
            {"published", json_if(base.published != 0, iso_time(base.published))}};
}

} // namespace

bool is_broken(const learned_status& learned) {
    return learned.file == verdict_file_result::damaged || learned.file == verdict_file_result::failed;
}

engine_status look_at(const engine_view& view) {
    engine_status state;
    state.process = engine_view::process_id();
    state.stage = view.stage();
    state.waiting = view.waiting();
    state.cache_size = view.cache_size();
    state.room_fault = view.room_fault();
    state.spam = view.half(names::spam_half);
    state.ham = view.half(names::good_half);
    state.base = view.base();
    state.base_fault = view.base_fault();
    state.learned = learned_by(view.working_directory());
    return state;
}

nlohmann::json json_of(const engine_view& view, const engine_status& state) {
    nlohmann::json json = {
        {"engine",
         {{"running", state.process != 0},
          {"pid", json_if(state.process != 0, state.process)},
          {"stage", json_if(state.stage != nullptr, std::string(state.stage ? state.stage : ""))}}},
        {"folder", platform::display_path(view.working_directory())},
        {"cache",
         {{"messages", state.waiting},
          {"bytes", state.cache_size},
          {"held_back", json_if(!state.room_fault.empty(), state.room_fault)}}},
        {"spam", json_of(state.spam)},
        {"ham", json_of(state.ham)},
        {"base", state.base ? json_of(*state.base) : nlohmann::json()},
        {"base_damaged", json_if(!state.base_fault.empty(), state.base_fault)},
    };
    json["verdict"] = {{"messages", state.learned.judged},
                       {"kept", state.learned.kept},
                       {"spam_from", state.learned.spam_from},
                       {"damaged", is_broken(state.learned)}};
    return json;
}

} // namespace tvr
