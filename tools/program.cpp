#include <algorithm>
#include <cstdio>
#include <exception>
#include <iostream>
#include <numeric>
#include <string_view>
#include <utility>
#include <vector>

#include "platform/streams.h"
#include "tools/command.h"
#include "tools/commands/mail_input.h"
#include "tools/formats/file_view.h"
#include "tools/host/host_manifest.h"

namespace tvr {

namespace {

constexpr const char* usual_codes = "Exit code 0: done; 2: wrong arguments; 3: an error.\n\n";

// Says of what kind a value is, in words.
class plain_formatter : public CLI::Formatter {
public:
    plain_formatter() { column_width(30); }

    std::string make_option_opts(const CLI::Option* option) const override {
        if (option->get_type_size() == 0)
            return {};
        const std::string type = option->get_type_name(); // "UINT:INT in [0 - 64]"
        const std::string kind = type.substr(0, type.find(':'));
        const bool is_number = kind == "UINT" || kind == "INT" || kind == "FLOAT";
        std::string text = " " + (is_number ? "NUMBER" : type.starts_with("TEXT:") ? type.substr(5) : kind);
        if (option->get_expected_max() > 1)
            text += "...";
        std::string range;
        if (const std::size_t from = type.find('['); is_number && from != std::string::npos) {
            range = type.substr(from + 1, type.find(']') - from - 1);
            range.replace(range.find(" - "), 3, " to ");
        }
        const std::string fallback = option->get_default_str();
        const std::string value = fallback.empty() ? "" : "default " + fallback;
        if (!range.empty() || !value.empty())
            text += " (" + range + (range.empty() || value.empty() ? "" : ", ") + value + ")";
        return text;
    }
};

// Letters to change, add or leave out.
std::size_t distance(const std::string& one, const std::string& other) {
    std::vector<std::size_t> row(other.size() + 1);
    std::iota(row.begin(), row.end(), std::size_t{0});
    for (std::size_t i = 0; i < one.size(); ++i) {
        std::size_t corner = std::exchange(row[0], i + 1);
        for (std::size_t j = 0; j < other.size(); ++j) {
            const std::size_t changed = corner + (one[i] == other[j] ? 0 : 1);
            corner = row[j + 1];
            row[j + 1] = std::min({changed, row[j] + 1, corner + 1});
        }
    }
    return row.back();
}

// What to say if a word that should be a command is none; empty if all of them are.
std::string unknown_command(CLI::App& program, int count, char** arguments) {
    CLI::App* app = &program;
    std::string path;
    for (int i = 1; i < count && arguments[i][0] != '-'; ++i) {
        const auto commands = app->get_subcommands([](CLI::App*) { return true; });
        if (commands.empty())
            return {};
        const auto found = std::ranges::find_if(
            commands, [&](const CLI::App* each) { return each->check_name(arguments[i]); });
        if (found == commands.end()) {
            const CLI::App* const nearest = *std::ranges::min_element(
                commands, {}, [&](const CLI::App* each) { return distance(arguments[i], each->get_name()); });
            const std::string help = "\"tvrctl" + path + " --help\" lists them all";
            const bool is_near = distance(arguments[i], nearest->get_name()) <= 2;
            return "there is no command \"" + path.substr(path.empty() ? 0 : 1) + (path.empty() ? "" : " ") +
                   visible(arguments[i]) + "\"; " +
                   (is_near ? "do you mean \"" + nearest->get_name() + "\"? " : "") + help;
        }
        app = *found;
        path += std::string(" ") + arguments[i];
    }
    return {};
}

// All commands are told in the same way.
void complete_help(CLI::App& app) {
    app.formatter(std::make_shared<plain_formatter>());
    for (CLI::App* command : app.get_subcommands([](CLI::App*) { return true; })) {
        if (const std::string footer = command->get_footer(); footer.find("Exit code") == std::string::npos)
            command->footer(usual_codes + footer);
        complete_help(*command);
    }
}

// The command that is named, or all of them: a mail pipe calls for each message.
void add_commands(CLI::App& program, int& code, std::string_view named) {
    struct command_group {
        std::vector<std::string_view> names;
        void (*add)(CLI::App& program, int& code);
    };
    const std::vector<command_group> groups = {
        {{"train"}, add_train},       {{"watch"}, add_watch},
        {{"score"}, add_score},       {{"eval"}, add_eval},
        {{"tokenize"}, add_tokenize}, {{"host"}, add_host},
        {{"status"}, add_status},     {{"inspect"}, add_inspect},
        {{"verify"}, add_verify},     {{"repair"}, add_repair},
        {{"trim"}, add_trim},         {{"start", "stop", "force", "purge"}, add_engine_commands},
        {{"log"}, add_log},           {{"config"}, add_config},
        {{"forget"}, add_forget},     {{"export", "import"}, add_transfer_commands}};
    const auto is_named = [&](const command_group& group) {
        return std::ranges::find(group.names, named) != group.names.end();
    };
    const bool is_one = std::ranges::any_of(groups, is_named);
    for (const command_group& group : groups)
        if (!is_one || is_named(group))
            group.add(program, code);
}

int run_command(int count, char** arguments) {
    int code = exit_code::done;
    CLI::App program("Trains and watches the Tessivar spam filter engine.\n", "tvrctl");
    program.set_version_flag("--version", "tvrctl " TVR_VERSION, "Print the version and exit");
    program.require_subcommand(1);
    program.allow_windows_style_options(false); // on every platform the same
    add_commands(program, code, count > 1 ? arguments[1] : "");
    complete_help(program);
    program.footer("\"tvrctl COMMAND --help\" shows more, with examples.\n"
                   "Exit code 2: wrong arguments; 3: an error. Each command lists its others.");
    if (const std::string unknown = unknown_command(program, count, arguments); !unknown.empty()) {
        fail(unknown);
        return exit_code::usage;
    }
    try {
        program.parse(count, arguments);
    } catch (const CLI::ParseError& error) {
        return program.exit(error) == 0 ? exit_code::done : exit_code::usage;
    }
    return code;
}

} // namespace

int fail(const std::string& text) {
    std::fprintf(stderr, "tvrctl: %s\n", text.c_str());
    return exit_code::failed;
}

int run_tvrctl(int count, char** arguments) try {
    platform::use_plain_streams();
    const int code = is_host_call(count, arguments) ? run_host() : run_command(count, arguments);
    // Whatever the command returns: its user hasn't got the output.
    const bool written = !std::cout.flush().fail() && std::fflush(stdout) == 0 && std::ferror(stdout) == 0;
    return written ? code : fail("standard output can't be written");
} catch (const std::exception& error) {
    return fail(error.what());
}

} // namespace tvr
