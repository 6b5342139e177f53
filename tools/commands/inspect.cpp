// tvrctl inspect: what a file of the engine holds.

#include <iostream>
#include <memory>

#include "client/user_folder.h"
#include "platform/file.h"
#include "platform/process.h"
#include "tools/command.h"
#include "tools/formats/inspection.h"

namespace tvr {

namespace {

constexpr int damaged = 1;

// A name that isn't here may be one among the user's data.
std::string found(const std::string& path) {
    if (platform::get_attributes(platform::from_display_path(path)))
        return path;
    const std::string beside = find_user_folder().path + platform::from_display_path(path);
    return platform::get_attributes(beside) ? platform::display_path(beside) : path;
}

int inspect(const std::vector<std::string>& paths, const inspect_options& options) {
    platform::only_look();
    int code = exit_code::done;
    for (const std::string& path : paths)
        if (!inspect_file(found(path), options, std::cout, std::cerr))
            code = damaged;
    if (!std::cout.flush())
        return fail("standard output can't be written");
    return code;
}

} // namespace

void add_inspect(CLI::App& program, int& code) {
    auto paths = std::make_shared<std::vector<std::string>>();
    auto options = std::make_shared<inspect_options>();
    CLI::App* command = program.add_subcommand("inspect", "Show what a file of the engine holds");
    command
        ->add_option("FILE", *paths,
                     "Files of the engine; one that isn't here is searched for among the user's data")
        ->required();
    command->add_flag("--all", options->all, "Show every entry");
    command->add_flag("--json", options->json, "Print one JSON object for each file");
    command->footer("Exit code: 1 if a file is damaged or unknown.\n\n"
                    "Examples:\n"
                    "  tvrctl inspect base/cashe.rgd\n"
                    "  tvrctl inspect --all --json base/spamdict0000.bye");
    command->callback([paths, options, &code] { code = inspect(*paths, *options); });
}

} // namespace tvr
