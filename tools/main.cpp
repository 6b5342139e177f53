// tvrctl: the command a person uses.

#include <cstdio>
#include <exception>

#include "platform/streams.h"
#include "tools/command.h"
#include "tools/mail_input.h"

namespace tvr {

int fail(const std::string& text) {
    std::fprintf(stderr, "tvrctl: %s\n", text.c_str());
    return exit_code::failed;
}

} // namespace tvr

int main(int count, char** arguments) try {
    tvr::platform::use_binary_streams();
    int code = tvr::exit_code::done;
    CLI::App program("Trains and watches the Tessivar spam filter engine.\n", "tvrctl");
    program.require_subcommand(1);
    program.allow_windows_style_options(false); // on every platform the same
    program.footer("\"tvrctl COMMAND --help\" tells more, with examples.");
    tvr::add_train(program, code);
    tvr::add_watch(program, code);
    tvr::add_score(program, code);
    tvr::add_eval(program, code);
    tvr::add_tokenize(program, code);
    tvr::add_status(program, code);
    tvr::add_inspect(program, code);
    tvr::add_verify(program, code);
    tvr::add_repair(program, code);
    tvr::add_trim(program, code);
    tvr::add_engine_commands(program, code);
    tvr::add_log(program, code);
    tvr::add_config(program, code);
    tvr::add_forget(program, code);
    tvr::add_transfer_commands(program, code);
    try {
        program.parse(count, arguments);
    } catch (const CLI::ParseError& error) {
        return program.exit(error) == 0 ? tvr::exit_code::done : tvr::exit_code::usage;
    }
    return code;
} catch (const std::exception& error) {
    std::fprintf(stderr, "tvrctl: %s\n", error.what());
    return tvr::exit_code::failed;
}
