// The commands of tvrctl.
#pragma once

#include <string>

#include <CLI/CLI.hpp>

#include "tools/text.h"

namespace tvr {

// What the process returns.
namespace exit_code {
constexpr int done = 0;
constexpr int nothing_taken = 1; // of the input that was given
constexpr int usage = 2;
constexpr int failed = 3; // the engine or its files
} // namespace exit_code

// The whole of tvrctl, as main() has it.
int run_tvrctl(int count, char** arguments);

// Each adds a command with its options to the program; running it sets `code`. Those that read mail stand in
// mail_input.h.
void add_train(CLI::App& program, int& code);
void add_status(CLI::App& program, int& code);
void add_inspect(CLI::App& program, int& code);
void add_verify(CLI::App& program, int& code);
void add_repair(CLI::App& program, int& code);
void add_trim(CLI::App& program, int& code);
void add_engine_commands(CLI::App& program, int& code); // start, stop, force, purge
void add_log(CLI::App& program, int& code);
void add_config(CLI::App& program, int& code);
void add_forget(CLI::App& program, int& code);
void add_transfer_commands(CLI::App& program, int& code); // export, import

// Writes "tvrctl: text" to standard error; returns exit_code::failed.
int fail(const std::string& text);

} // namespace tvr
