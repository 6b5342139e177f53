// tvrctl verify: whether the user's files are sound.

#include <iostream>

#include "client/user_folder.h"
#include "platform/process.h"
#include "tools/command.h"
#include "tools/state/engine_view.h"
#include "tools/state/state_check.h"

namespace tvr {

namespace {

constexpr int defective = 1;

int verify() {
    platform::only_look();
    const auto [folder, error] = find_user_folder();
    if (folder.empty())
        return fail(error);
    const bool runs = engine_view::process_id() != 0;
    if (runs)
        std::cout << "The engine runs: files may change meanwhile\n";
    const bool sound = tell_state(folder, runs, std::cout);
    if (!std::cout.flush())
        return fail("standard output can't be written");
    return sound ? exit_code::done : defective;
}

} // namespace

void add_verify(CLI::App& program, int& code) {
    CLI::App* command = program.add_subcommand("verify", "Check the engine's files");
    command->footer("Exit code: 1 if there is a defect.\n\nExample:\n  tvrctl verify");
    command->callback([&code] { code = verify(); });
}

} // namespace tvr
