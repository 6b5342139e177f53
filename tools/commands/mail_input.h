// What the commands do with mail.
#pragma once

#include <string>
#include <vector>

#include "client/tvr_ipc.h"
#include "tools/command.h"
#include "tools/commands/train.h"
#include "tools/state/waiting_mail.h"

namespace tvr {

void add_score(CLI::App& program, int& code);
void add_eval(CLI::App& program, int& code);
void add_tokenize(CLI::App& program, int& code);
void add_watch(CLI::App& program, int& code);
void add_host(CLI::App& program, int& code);

// Options of several commands: --threads, --rule.
void add_threads(CLI::App& command, unsigned& threads);
void add_rule(CLI::App& command, std::string& rule);

// Serves an add-on on the standard streams. Returns the exit code.
int run_host();

// Appends the mail that the options name to the cache. Returns the failure that ended it.
ipc_status take_mail(const train_options& options, training_client& client, training_sum& sum);

// Adds the message IDs of the mail in these files. False if one of them could not be read, which has
// been reported.
bool add_message_ids(const std::vector<std::string>& files, mail_to_forget& messages);

} // namespace tvr
