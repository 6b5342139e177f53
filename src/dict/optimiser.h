// Which atoms of the two halves take part in a compiled base.
#pragma once

#include <cstdint>
#include <memory>
#include <string>
#include <string_view>
#include <vector>

#include "dict/atom.h"

namespace tvr {

class dict_folder;

// What is known of an atom from its head.
struct atom_info : atom_head {
    std::string name; // of its file, without folder
};

using atom_info_list = std::vector<std::unique_ptr<atom_info>>;

// Reads the heads of all files of `atoms` in `folder` into `list`, sorted as atom_is_before() says. Returns
// the sum of messages. An atom that can't be opened has all values 0.
std::uint32_t load_atom_infos(const dict_folder& atoms, atom_info_list& list, std::string_view folder);
// Takes atoms out of the list, ordinal ones first, then from the oldest, until `total` messages come as near
// to `target` as the atoms allow. Leaves at least one.
void prune_atoms(std::uint32_t target, std::uint32_t total, atom_info_list& list);
// Reduces the file lists of both halves so that they weigh about the same number of messages, and neither far
// more than "optimal base size per half". Nothing changes on disk.
void balance_halves(dict_folder& nspam_folder, dict_folder& spam_folder);

} // namespace tvr
