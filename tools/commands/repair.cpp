// tvrctl repair: fixes damaged files and a stuck training, as far as possible.

#include <cstdio>
#include <iostream>
#include <memory>

#include "common/file_names.h"
#include "dict/dictbase.h"
#include "platform/file.h"
#include "platform/process.h"
#include "tools/command.h"
#include "tools/progress.h"
#include "tools/repair/repair_plan.h"
#include "tools/state/engine_pause.h"
#include "tools/state/state_check.h"
#include "tools/state/waiting_mail.h"

namespace tvr {

namespace {

constexpr int defective = 1;
constexpr unsigned most_rounds = 8; // plans that follow each other

struct repair_options {
    bool yes = false;
    bool dry = false;
};

bool is_confirmed() {
    if (!platform::is_terminal(stdin)) {
        std::cout << "Nothing was changed; --yes does it.\n";
        return false;
    }
    std::cout << "Do it? [y/N] " << std::flush;
    std::string answer;
    std::getline(std::cin, answer);
    return answer == "y" || answer == "Y" || answer == "yes";
}

// The reason of a failure, or an empty text.
std::string run_steps(repair_folder& folder) {
    file_lock lock;
    if (std::string why = take_lock(lock, folder.working() + names::transact_path); !why.empty())
        return why;
    std::string why;
    for (unsigned round = 0; round < most_rounds && why.empty(); ++round) {
        const std::vector<repair_step> steps = plan_repair(folder);
        if (steps.empty())
            break;
        progress bar("Repairing", !platform::is_terminal(stderr));
        std::size_t done = 0;
        for (const repair_step& step : steps) {
            bar.show(done++, steps.size(), step.text);
            if (why = step.run(); !why.empty())
                break;
            bar.clear();
            std::cout << "Done: " << step.text << "\n";
        }
    }
    lock.release();
    return why;
}

int repair(const repair_options& options) {
    std::string working;
    engine_pause pause;
    if (const std::string why = pause.begin(working); !why.empty())
        return fail(why);
    repair_folder folder(working);
    std::cout << "Before:\n";
    const bool sound = tell_state(working, false, std::cout, false);
    const std::vector<repair_step> steps = plan_repair(folder);
    if (steps.empty()) {
        std::cout << "There is nothing to do.\n";
        return std::cout.flush() ? (sound ? exit_code::done : defective) : exit_code::failed;
    }
    std::cout << "To be done:\n";
    for (const repair_step& step : steps)
        std::cout << "  " << step.text << "\n";
    if (options.dry || (!options.yes && !is_confirmed()))
        return std::cout.flush() ? defective : exit_code::failed;
    const std::string why = run_steps(folder);
    if (!why.empty())
        fail(why);
    std::cout << "After:\n";
    const bool good = tell_state(working, false, std::cout, false);
    if (!folder.aside().empty())
        std::cout << "What was set aside is in " << platform::display_path(folder.aside()) << "\n";
    if (!std::cout.flush())
        return fail("standard output can't be written");
    return good && why.empty() ? exit_code::done : defective;
}

} // namespace

void add_repair(CLI::App& program, int& code) {
    auto options = std::make_shared<repair_options>();
    CLI::App* command = program.add_subcommand("repair", "Repair the engine's files");
    auto* yes = command->add_flag("-y,--yes", options->yes, "Don't ask");
    command->add_flag("-n,--dry-run", options->dry, "Only show what would be done")->excludes(yes);
    command->footer("The engine must not run. Files that can be made again are made again. All others that "
                    "are damaged are\n"
                    "set aside in the folder \"repair\" among the user's data; nothing is deleted. A "
                    "training that was stuck\n"
                    "continues at the engine's next start.\n\n"
                    "Exit code: 0 if the files are sound, 1 if not (or not yet); 3 an error.\n\n"
                    "Examples:\n"
                    "  tvrctl stop; tvrctl repair\n"
                    "  tvrctl stop; tvrctl repair --dry-run");
    command->callback([options, &code] { code = repair(*options); });
}

} // namespace tvr
