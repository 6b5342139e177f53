// tvrctl forget: takes back a message that is not learned yet.

#include <cstdio>
#include <memory>

#include "client/user_folder.h"
#include "tools/command.h"
#include "tools/file_view.h"
#include "tools/mail_input.h"
#include "tools/text.h"
#include "tools/waiting_mail.h"

namespace tvr {

namespace {

int forget(const std::string& id, const std::vector<std::string>& files) {
    mail_to_forget messages;
    if (!id.empty())
        messages.try_emplace(forget_key(id));
    if (!files.empty() && !add_message_ids(files, messages))
        return exit_code::failed;
    messages.erase("");
    if (messages.empty())
        return fail("no message is named");
    const auto [folder, error] = make_user_folder();
    if (folder.empty())
        return fail(error);
    if (const std::string why = forget_waiting(folder + "base\\transact\\autotrain.bys", messages);
        !why.empty())
        return fail(why);
    std::size_t missing = 0;
    for (const auto& [name, mail] : messages) {
        const char* const what = mail.marked != 0    ? "won't be learned"
                                 : mail.already != 0 ? "was taken back already"
                                                     : "doesn't wait to be learned";
        std::printf("%s: %s\n", visible(name).c_str(), what);
        missing += mail.marked + mail.already == 0 ? 1 : 0;
    }
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
    };
    auto options = std::make_shared<forget_options>();
    CLI::App* command = program.add_subcommand("forget", "Take back a message that waits to be learned");
    command->add_option("MSID", options->id, "Its Message-ID, or its ID in the cache");
    command->add_option("--file", options->files, "The message itself; or an mbox, or a folder of messages");
    command->footer("Exit code: 0 if all of them waited; 1 if one didn't; 3 an error.\n\n"
                    "Examples:\n"
                    "  tvrctl forget '<20020822183005.1@example.org>'\n"
                    "  tvrctl forget --file message.eml");
    command->callback([options, &code] {
        if (options->id.empty() == options->files.empty())
            throw CLI::RequiredError("MSID, or --file alone,");
        code = forget(options->id, options->files);
    });
}

} // namespace tvr
