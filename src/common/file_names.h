// The names of the engine's files and folders. What they hold: docs/formats.md.
#pragma once

#include <cstdint>
#include <string>

#include "common/text.h"

namespace tvr::names {

// Folders of the working directory, with a backslash at the end.
inline constexpr const char* base_folder = "base\\";
inline constexpr const char* transact_folder = "transact\\"; // in the base folder
inline constexpr const char* transact_path = "base\\transact\\";

// In the working directory.
inline constexpr const char* statistic = "stat.bin";
inline constexpr const char* settings = "settings.cfg";
inline constexpr const char* settings_seed = "tvram.ini"; // in the installation root, too
inline constexpr const char* kludges = "kludges.txt";     // in the installation root, too
inline constexpr const char* filter_log = "report.log";
inline constexpr const char* verdict = "verdict.bin";
inline constexpr const char* verdict_lock = "verdict.lck";
inline constexpr const char* wishes = "tvrctl.ini"; // of the user: when to train, the limits of the verdict
inline constexpr const char* watch = "watch.bin";

// In the installation root, and in the folder of all users.
inline constexpr const char* advanced_settings = "advanced.ini";
inline constexpr const char* common_settings = "tessivar.ini";
inline constexpr const char* common_counts = "tessivar_stat.ini";

// In the base folder: each half has atoms, "spamdict0000.bye", and a list of message IDs with its index.
inline constexpr const char* spam_half = "spamdict";
inline constexpr const char* good_half = "nspamdict";
inline constexpr const char* spam_list = "spamdict.lst";
inline constexpr const char* good_list = "nspamdict.lst";
inline constexpr const char* atom_ending = ".bye";
inline constexpr const char* any_atom = "*.bye";
inline constexpr const char* list_ending = ".lst";
inline constexpr const char* index_ending = ".idx";
inline constexpr const char* base = "cashe.rgd";
inline constexpr const char* base_mark = "cashe.mrk";
inline constexpr const char* archive = "data.trr";
inline constexpr const char* old_archive = "data.0";
inline constexpr const char* selective = "selective.txt";

// In the folder of the transaction.
inline constexpr const char* lock = "lock.bin";
inline constexpr const char* signals = "ipc.bin";
inline constexpr const char* cache = "autotrain.bys";
inline constexpr const char* snapshot = "~autotrain.bys";
inline constexpr const char* merged_snapshot = "~~autotrain.bys"; // until it takes the snapshot's place

// Its stage folders, with a backslash at the end, and what is in them.
inline std::string stage_folder(std::uint32_t stage) {
    return to_hex(stage, 4) + "\\";
}
inline constexpr const char* stage_marker = "prepared.txt";
inline constexpr const char* entered_prefix = "dis"; // of the batch that was entered, "dis0.tmp"
inline constexpr const char* sorted_messages = "data.bys";
inline constexpr const char* column_ending = ".col";
inline constexpr const char* new_base = "base.rgd";

// What is written beside a file, to take its place.
inline constexpr const char* new_statistic = "~stat.bin"; // stays: the counts of the training under way
inline constexpr const char* new_selective = "~selective.txt";

} // namespace tvr::names
