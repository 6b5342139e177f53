// tvrctl forget: takes back messages that are not learned yet.

#include <cstdio>
#include <memory>

#include "client/user_folder.h"
#include "common/file_names.h"
#include "tools/command.h"
#include "tools/commands/mail_input.h"
#include "tools/formats/file_view.h"
#include "tools/state/waiting_mail.h"
#include "tools/text.h"

namespace tvr {

namespace {

// Of what is named one by one; a folder is summed up.
constexpr std::size_t most_named = 10;

// Empty, with the reason told, if the user has no folder.
std::string cache_path() {
    const auto [folder, error] = make_user_folder();
    if (!folder.empty())
        return folder + names::transact_path + names::cache;
    fail(error);
    return {};
}

int forget_all() {
    const std::string cache = cache_path();
    if (cache.empty())
        return exit_code::failed;
    forgotten_mail sum;
    if (const std::string why = forget_all_waiting(cache, sum); !why.empty())
        return fail(why);
    std::printf("Taken back: %s messages that waited.\n", grouped(sum.marked).c_str());
    return sum.marked != 0 ? exit_code::done : exit_code::nothing_taken;
}

void report(const std::string& name, const forgotten_mail& mail) {
    const char* const what = mail.marked != 0    ? "won't be learned"
                             : mail.already != 0 ? "was taken back already"
                                                 : "doesn't wait to be learned";
    std::printf("%s: %s\n", visible(name).c_str(), what);
}

int forget(const std::string& id, const std::vector<std::string>& files) {
    mail_to_forget messages;
    if (!id.empty())
        messages.try_emplace(forget_key(id));
    if (!files.empty() && !add_message_ids(files, messages))
        return exit_code::failed;
    messages.erase("");
    if (messages.empty())
        return fail("no message is named");
    const std::string cache = cache_path();
    if (cache.empty())
        return exit_code::failed;
    if (const std::string why = forget_waiting(cache, messages); !why.empty())
        return fail(why);
    std::size_t marked = 0;
    std::size_t missing = 0;
    for (const auto& [name, mail] : messages) {
        marked += mail.marked != 0 ? 1 : 0;
        missing += mail.marked + mail.already == 0 ? 1 : 0;
        if (messages.size() <= most_named)
            report(name, mail);
    }
    if (messages.size() > most_named)
        std::printf("Of %s messages %s won't be learned; %s were taken back already, %s don't wait to be "
                    "learned.\n",
                    grouped(messages.size()).c_str(), grouped(marked).c_str(),
                    grouped(messages.size() - marked - missing).c_str(), grouped(missing).c_str());
    if (missing == 0)
        return exit_code::done;
    std::printf(
        "What is learned already can't be taken back one by one: it leaves the base as it ages. Training it\n"
        "into the other half (tvrctl train --ham FILE, or --spam FILE) corrects a wrong verdict.\n");
    return exit_code::nothing_taken;
}

} // namespace

void add_forget(CLI::App& program, int& code) {
    struct forget_options {
        std::string id;
        std::vector<std::string> files;
        bool waiting = false;
    };
    auto options = std::make_shared<forget_options>();
    CLI::App* command = program.add_subcommand("forget", "Take back a message that waits to be learned");
    command->add_option("MSID", options->id, "Its Message-ID, or its ID in the cache");
    command->add_option("--file", options->files, "The message itself; or an mbox, or a folder of messages");
    command->add_flag("--waiting", options->waiting, "All messages that wait");
    command->footer(
        "Exit code 0: all of them waited; 1: one didn't, or none; 2: wrong usage; 3: an error.\n\n"
        "Examples:\n"
        "  tvrctl forget '<20020822183005.1@example.org>'\n"
        "  tvrctl forget --file message.eml\n"
        "  tvrctl forget --waiting");
    command->callback([options, &code] {
        if ((options->id.empty() ? 0 : 1) + (options->files.empty() ? 0 : 1) + (options->waiting ? 1 : 0) !=
            1)
            throw CLI::RequiredError("MSID, --file or --waiting, one of them,");
        code = options->waiting ? forget_all() : forget(options->id, options->files);
    });
}

} // namespace tvr
