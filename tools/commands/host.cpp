// tvrctl host: the other end of the add-on for Thunderbird.

#include <cstdio>
#include <memory>

#include "platform/file.h"
#include "platform/process.h"
#include "tools/command.h"
#include "tools/commands/mail_input.h"
#include "tools/host/host_engine.h"
#include "tools/host/host_manifest.h"
#include "tools/host/host_stream.h"

namespace tvr {

int run_host() {
    host_engine engine;
    host_session session(engine, TVR_VERSION);
    const std::string why = run_host_stream(stdin, stdout, session);
    return why.empty() ? exit_code::done : fail(why);
}

void add_host(CLI::App& program, int& code) {
    struct host_options {
        bool install = false;
        bool uninstall = false;
        bool all_users = false;
    };
    auto options = std::make_shared<host_options>();
    CLI::App* command = program.add_subcommand("host", "Serve the add-on for Thunderbird");
    CLI::Option* install =
        command->add_flag("--install", options->install, "Let Thunderbird find this program");
    CLI::Option* uninstall =
        command->add_flag("--uninstall", options->uninstall, "Undo --install")->excludes(install);
    command->add_flag("--system", options->all_users, "For all users of this machine, as its administrator");
    command->footer("Without an option it reads requests from standard input and writes replies to standard "
                    "output, each\n"
                    "a length of four bytes and JSON. Thunderbird starts it this way.\n\n"
                    "Examples:\n"
                    "  tvrctl host --install\n"
                    "  tvrctl host --install --system");
    command->callback([options, uninstall, install, &code] {
        if (options->all_users && !*install && !*uninstall)
            throw CLI::RequiredError("--install or --uninstall");
        if (!options->install && !options->uninstall) {
            code = run_host();
            return;
        }
        std::string told;
        const std::string why =
            options->install
                ? install_host(platform::display_path(platform::module_path()), options->all_users, told)
                : uninstall_host(options->all_users, told);
        if (!why.empty()) {
            code = fail(why);
            return;
        }
        std::printf("%s\n", told.c_str());
    });
}

} // namespace tvr
