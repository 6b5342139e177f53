// The mail commands of a build that parses no mail.

#include "tools/mail_input.h"

namespace tvr {

namespace {

const char* const no_mail =
    "this build parses no mail: cut it with \"tvrctl tokenize\" of a build that does, and learn that "
    "with \"tvrctl train --records FILE\"";

void add_without_mail(CLI::App& program, int& code, const char* name, const char* what) {
    program.add_subcommand(name, std::string(what) + " (not in this build)")
        ->prefix_command()
        ->callback([&code] { code = fail(no_mail); });
}

} // namespace

void add_score(CLI::App& program, int& code) {
    add_without_mail(program, code, "score", "Tell spam from ham");
}

void add_eval(CLI::App& program, int& code) {
    add_without_mail(program, code, "eval", "Measure how well the filter does on your mail");
}

void add_tokenize(CLI::App& program, int& code) {
    add_without_mail(program, code, "tokenize", "Cut mail into records for another machine to learn");
}

void add_watch(CLI::App& program, int& code) {
    add_without_mail(program, code, "watch", "Learn the mail that comes into folders");
}

void add_host(CLI::App& program, int& code) {
    add_without_mail(program, code, "host", "Serve the add-on for Thunderbird");
}

int run_host() {
    return fail(no_mail);
}

ipc_status take_mail(const train_options&, training_client&, training_sum&) {
    return {ipc_error::no_mail, no_mail};
}

bool add_message_ids(const std::vector<std::string>&, mail_to_forget&) {
    fail(no_mail);
    return false;
}

} // namespace tvr
