#include <cstdio>
#include <exception>

#include "platform/streams.h"
#include "tools/command.h"
#include "tools/host/host_manifest.h"
#include "tools/mail_input.h"

namespace tvr {

int fail(const std::string& text) {
    std::fprintf(stderr, "tvrctl: %s\n", text.c_str());
    return exit_code::failed;
}

int run_tvrctl(int count, char** arguments) try {
    platform::use_binary_streams();
    if (is_host_call(count, arguments))
        return run_host();
    int code = exit_code::done;
    CLI::App program("Trains and watches the Tessivar spam filter engine.\n", "tvrctl");
    program.set_version_flag("--version", "tvrctl " TVR_VERSION, "Print the version and exit");
    program.require_subcommand(1);
    program.allow_windows_style_options(false); // on every platform the same
    program.footer("\"tvrctl COMMAND --help\" tells more, with examples.");
    add_train(program, code);
    add_watch(program, code);
    add_score(program, code);
    add_eval(program, code);
    add_tokenize(program, code);
    add_host(program, code);
    add_status(program, code);
    add_inspect(program, code);
    add_verify(program, code);
    add_repair(program, code);
    add_trim(program, code);
    add_engine_commands(program, code);
    add_log(program, code);
    add_config(program, code);
    add_forget(program, code);
    add_transfer_commands(program, code);
    try {
        program.parse(count, arguments);
    } catch (const CLI::ParseError& error) {
        return program.exit(error) == 0 ? exit_code::done : exit_code::usage;
    }
    return code;
} catch (const std::exception& error) {
    std::fprintf(stderr, "tvrctl: %s\n", error.what());
    return exit_code::failed;
}

} // namespace tvr
