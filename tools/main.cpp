// tvrctl: the command a person uses.

#include <cstdio>
#include <exception>

#include "common/minutes.h"
#include "platform/clock.h"
#include "tools/command.h"

namespace tvr {

int fail(const std::string& text) {
    std::fprintf(stderr, "tvrctl: %s\n", text.c_str());
    return exit_code::failed;
}

std::string grouped(std::uint64_t number) {
    std::string text = std::to_string(number);
    for (std::size_t at = text.size(); at > 3; at -= 3)
        text.insert(at - 3, ",");
    return text;
}

std::string time_text(std::uint64_t file_time) {
    const platform::calendar_time time = platform::to_calendar(file_time);
    char text[64];
    std::snprintf(text, sizeof text, "%04d-%02d-%02d %02d:%02d:%02d UTC", time.year, time.month, time.day,
                  time.hour, time.minute, time.second);
    return text;
}

std::string date_text(std::uint32_t minutes) {
    return minutes == 0 || minutes == no_minutes ? "-" : time_text(minutes * ticks_per_minute).substr(0, 10);
}

} // namespace tvr

int main(int count, char** arguments) try {
    int code = tvr::exit_code::done;
    CLI::App program("Trains and watches the Tessivar spam filter engine.\n", "tvrctl");
    program.require_subcommand(1);
    program.footer("\"tvrctl COMMAND --help\" tells more, with examples.");
    tvr::add_train(program, code);
    tvr::add_status(program, code);
    tvr::add_engine_commands(program, code);
    tvr::add_log(program, code);
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
