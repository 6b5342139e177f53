// tvrctl status: what the engine does and what it has.

#include <cstdio>
#include <memory>

#include <nlohmann/json.hpp>

#include "client/user_folder.h"
#include "platform/file.h"
#include "platform/process.h"
#include "tools/command.h"
#include "tools/state/engine_status.h"
#include "tools/text.h"

namespace tvr {

namespace {

void print_learned(const learned_status& learned) {
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

void print_text(const engine_view& view, const engine_status& state) {
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

int status(bool as_json) {
    platform::only_look();
    const auto [working, error] = find_user_folder();
    if (working.empty())
        return fail(error);
    const engine_view view(working);
    const engine_status state = look_at(view);
    if (as_json)
        std::printf(
            "%s\n",
            json_of(view, state).dump(2, ' ', false, nlohmann::json::error_handler_t::replace).c_str());
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
