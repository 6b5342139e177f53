// tvrctl watch: learns the mail that comes into folders.

#include <cstdio>
#include <filesystem>
#include <memory>
#include <set>
#include <system_error>

#include "platform/folder_watch.h"
#include "platform/presence.h"
#include "tools/commands/mail_input.h"
#include "tools/watch/watch_session.h"

namespace tvr {

namespace {

constexpr std::string_view presence_class = "Tessivar_watch";
constexpr std::string_view presence_title = "tvrctl watch";

struct watch_options {
    std::vector<std::string> folders;
    std::vector<std::string> spam;
    std::vector<std::string> ham;
    bool all = false;
    bool quiet = false;
};

// Throws what CLI11 shows as a usage error.
std::vector<mail_folder> folders_of(const watch_options& options) {
    std::vector<mail_folder> folders;
    std::set<std::string> paths;
    const auto add = [&](const std::string& path, bool spam) {
        std::error_code error;
        if (!std::filesystem::is_directory(path, error))
            throw CLI::ValidationError(path, error ? error.message() : "not a folder");
        mail_folder folder(path, spam);
        if (!paths.insert(folder.path()).second)
            throw CLI::ValidationError(path, "given twice");
        if (folder.is_maildir()) // a part of it given by itself would be learned twice
            paths.insert(folder.parts().begin(), folder.parts().end());
        folders.push_back(std::move(folder));
    };
    for (const std::string& path : options.folders) {
        const auto spam = verdict_of_folder(path);
        if (!spam)
            throw CLI::ValidationError(
                path, "the name doesn't tell whether it holds spam or ham; use --spam or --ham");
        add(path, *spam);
    }
    for (const std::string& path : options.spam)
        add(path, true);
    for (const std::string& path : options.ham)
        add(path, false);
    return folders;
}

int watch(const watch_options& options) {
    const std::vector<mail_folder> folders = folders_of(options);
    platform::presence alone;
    const platform::presence_info other = platform::find_presence(presence_class, presence_title);
    if (other.found)
        return fail("process " + std::to_string(other.process_id) +
                    " watches already; one process watches all folders of a user");
    if (!alone.create(presence_class, presence_title))
        return fail("another process watches already, or the run-time folder can't be used");
    if (!platform::folder_watch::take_stop_requests())
        return fail("the requests to stop can't be taken");

    const auto told = [&](const std::string& line, bool is_fault) {
        if (is_fault) {
            fail(line);
        } else if (!options.quiet) {
            std::printf("%s\n", line.c_str());
            std::fflush(stdout);
        }
    };
    watch_session session(folders, told);
    if (const std::string why = session.start(options.all); !why.empty())
        return fail(why);
    for (const mail_folder& folder : folders)
        told("watching " + folder.path() + (folder.spam() ? " for spam" : " for ham") +
                 (folder.is_maildir() ? " (Maildir)" : ""),
             false);
    if (const std::string why = session.run(); !why.empty())
        return fail(why);
    told("stopped", false);
    return exit_code::done;
}

} // namespace

void add_watch(CLI::App& program, int& code) {
    auto options = std::make_shared<watch_options>();
    CLI::App* command = program.add_subcommand("watch", "Learn the mail that arrives in folders");
    command
        ->add_option("DIR", options->folders,
                     "Maildirs or folders of message files, without their subfolders; the name gives the "
                     "verdict: Spam, Junk; Ham, Inbox, Maildir")
        ->type_name("");
    command->add_option("--spam", options->spam, "The same, for spam under any name")->type_name("DIR");
    command->add_option("--ham", options->ham, "The same, for good mail")->type_name("DIR");
    command->add_flag("--all", options->all, "Learn also the mail that is there already");
    command->add_flag("-q,--quiet", options->quiet, "Report failures only");
    command->footer(
        "A message is learned once, with the verdict of its folder. If it is moved to a folder of the other\n"
        "verdict, it is corrected: in place while it waits to be trained, later by training it into the "
        "other\n"
        "half. Mail that arrives while no watch runs is learned at the next start. Mail that its owner has\n"
        "deleted (in a Maildir the flags T and D) is left alone. Ctrl-C ends the watch.\n\n"
        "A correction is trained at once, other mail when 50 messages wait, or 4 hours after the last\n"
        "training; \"tvrctl config\" changes these numbers.\n\n"
        "Exit code: 0 stopped; 2 wrong usage; 3 a failure.\n\n"
        "Examples:\n"
        "  tvrctl watch ~/Maildir ~/Maildir/.Spam\n"
        "  tvrctl watch --ham ~/mail/archive --spam ~/mail/rubbish");
    command->callback([options, &code] {
        if (options->folders.empty() && options->spam.empty() && options->ham.empty())
            throw CLI::RequiredError("DIR, --spam DIR or --ham DIR");
        code = watch(*options);
    });
}

} // namespace tvr
