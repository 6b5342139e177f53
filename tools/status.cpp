// tvrctl status: what the engine does and what it has.

#include <cstdio>
#include <memory>

#include <nlohmann/json.hpp>

#include "client/user_folder.h"
#include "client/verdict/exact_math.h"
#include "client/verdict/user_limits.h"
#include "platform/file.h"
#include "platform/process.h"
#include "tools/command.h"
#include "tools/engine_view.h"

namespace tvr {

namespace {

struct learned_view {
    verdict_file_result file = verdict_file_result::missing;
    std::uint64_t judged = 0; // messages
    std::uint64_t kept = 0;   // of them, that the weights are learned from
    double spam_from = 0;     // percent
};

struct status_view {
    std::uint32_t process = 0;
    const char* stage = nullptr;
    std::uint64_t waiting = 0;
    std::uint64_t cache_size = 0;
    std::string room_fault;
    half_view spam, ham;
    std::optional<base_view> base;
    std::string base_fault;
    learned_view learned;
};

learned_view learned_by(const std::string& working) {
    verdict_state state;
    learned_view view;
    view.file = load_verdict(verdict_path(working), state);
    view.judged = state.judged;
    view.kept = state.messages.size();
    view.spam_from = 100 * exact_logistic(spam_logit(state, limits_of_user(working)));
    return view;
}

bool is_broken(const learned_view& learned) {
    return learned.file == verdict_file_result::damaged || learned.file == verdict_file_result::failed;
}

void print_learned(const learned_view& learned) {
    if (is_broken(learned))
        std::printf("Verdict verdict.bin is %s; the built-in weights stand in for it",
                    learned.file == verdict_file_result::damaged ? "damaged, or of another version"
                                                                 : "there, but can't be read");
    else if (learned.judged == 0)
        std::printf("Verdict rests on the built-in weights");
    else
        std::printf("Verdict rests on %s messages that you judged, %s of them kept",
                    grouped(learned.judged).c_str(), grouped(learned.kept).c_str());
    std::printf("; spam from %.1f %% on\n", learned.spam_from);
}

void print_half(const char* name, const half_view& half) {
    std::printf("%-8s%s messages in %u atoms, %s to %s\n", name, grouped(half.messages).c_str(), half.atoms,
                date_text(half.oldest).c_str(), date_text(half.newest).c_str());
}

void print_text(const engine_view& view, const status_view& state) {
    if (state.process != 0)
        std::printf("Engine  runs as process %u; %s\n", state.process, state.stage ? state.stage : "idle");
    else if (state.stage)
        std::printf("Engine  doesn't run; a training waits to go on: %s\n", state.stage);
    else
        std::printf("Engine  doesn't run\n");
    std::printf("Folder  %s\n", platform::display_path(view.working_directory()).c_str());
    std::printf("Cache   %s messages wait, %s bytes\n", grouped(state.waiting).c_str(),
                grouped(state.cache_size).c_str());
    if (!state.room_fault.empty())
        std::printf("        They wait: %s\n", state.room_fault.c_str());
    print_half("Spam", state.spam);
    print_half("Ham", state.ham);
    if (!state.base_fault.empty())
        std::printf("Base    %s\n", state.base_fault.c_str());
    else if (state.base)
        std::printf("Base    %s graded tokens, %s bytes, published %s\n", grouped(state.base->tokens).c_str(),
                    grouped(state.base->bytes).c_str(),
                    state.base->published != 0 ? time_text(state.base->published).c_str()
                                               : "at an unknown time");
    else
        std::printf("Base    none\n");
    print_learned(state.learned);
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

void print_json(const engine_view& view, const status_view& state) {
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
    std::printf("%s\n", json.dump(2, ' ', false, nlohmann::json::error_handler_t::replace).c_str());
}

int status(bool as_json) {
    platform::only_look();
    const auto [working, error] = find_user_folder();
    if (working.empty())
        return fail(error);
    const engine_view view(working);
    status_view state;
    state.process = engine_view::process_id();
    state.stage = view.stage();
    state.waiting = view.waiting();
    state.cache_size = view.cache_size();
    state.room_fault = view.room_fault();
    state.spam = view.half("spamdict");
    state.ham = view.half("nspamdict");
    state.base = view.base();
    state.base_fault = view.base_fault();
    state.learned = learned_by(working);
    if (as_json)
        print_json(view, state);
    else
        print_text(view, state);
    return state.room_fault.empty() && state.base_fault.empty() ? exit_code::done : exit_code::failed;
}

} // namespace

void add_status(CLI::App& program, int& code) {
    auto as_json = std::make_shared<bool>(false);
    CLI::App* command =
        program.add_subcommand("status", "Show the engine, the waiting messages and the base");
    command->add_flag("--json", *as_json, "Print one JSON object");
    command->footer(
        "Exit code 0; 3 if the base is damaged, a training has no room on the disk, or an error.\n\n"
        "Examples:\n  tvrctl status\n  tvrctl status --json");
    command->callback([as_json, &code] { code = status(*as_json); });
}

} // namespace tvr
