// The commands of tvrctl.
#pragma once

#include <cstdint>
#include <string>

#include <CLI/CLI.hpp>

namespace tvr {

// What the process answers.
namespace exit_code {
constexpr int done = 0;
constexpr int nothing_taken = 1; // of the input that was given
constexpr int usage = 2;
constexpr int failed = 3; // the engine or its files
} // namespace exit_code

// Each adds a command with its options to the program; running it sets `code`.
void add_train(CLI::App& program, int& code);
void add_status(CLI::App& program, int& code);
void add_engine_commands(CLI::App& program, int& code); // start, stop, force, purge
void add_log(CLI::App& program, int& code);

// Writes "tvrctl: text" to standard error; answers exit_code::failed.
int fail(const std::string& text);

std::string grouped(std::uint64_t number);      // 1,234,567
std::string date_text(std::uint32_t minutes);   // of minutes since 1601: 2002-08-22; "-" for none
std::string time_text(std::uint64_t file_time); // of 100 ns units since 1601: 2002-08-22 18:30:05 UTC

} // namespace tvr
