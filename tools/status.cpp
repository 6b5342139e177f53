// tvrctl status: what the engine does and what it has.

#include <cstdio>
#include <memory>

#include <nlohmann/json.hpp>

#include "platform/file.h"
#include "settings/common_settings.h"
#include "tools/command.h"
#include "tools/engine_status.h"
#include "tools/text.h"

namespace tvr {

namespace {

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
    if (state.waiting)
        std::printf("Cache   %s messages wait, %s bytes\n", grouped(*state.waiting).c_str(),
                    grouped(state.cache_size).c_str());
    else
        std::printf("Cache   in use; %s bytes\n", grouped(state.cache_size).c_str());
    print_half("Spam", state.spam);
    print_half("Ham", state.ham);
    if (state.base)
        std::printf("Base    %s graded tokens, %s bytes, published %s\n", grouped(state.base->tokens).c_str(),
                    grouped(state.base->bytes).c_str(),
                    state.base->published != 0 ? time_text(state.base->published).c_str()
                                               : "at an unknown time");
    else
        std::printf("Base    none\n");
}

int status(bool as_json) {
    const std::string working = common_settings::working_directory();
    if (working.empty())
        return fail("the user's folder can't be found or made");
    const engine_view view(working);
    const engine_status state = look_at(view);
    if (as_json)
        std::printf(
            "%s\n",
            json_of(view, state).dump(2, ' ', false, nlohmann::json::error_handler_t::replace).c_str());
    else
        print_text(view, state);
    return exit_code::done;
}

} // namespace

void add_status(CLI::App& program, int& code) {
    auto as_json = std::make_shared<bool>(false);
    CLI::App* command =
        program.add_subcommand("status", "Show the engine, the waiting messages and the base");
    command->add_flag("--json", *as_json, "Print one JSON object");
    command->footer("Examples:\n  tvrctl status\n  tvrctl status --json");
    command->callback([as_json, &code] { code = status(*as_json); });
}

} // namespace tvr
