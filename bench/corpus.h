// Tokens and messages as mail has them: few words are frequent, most are rare. Always the same ones.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "client/record_batch.h"

namespace tvr::bench {

// `count` tokens of a vocabulary of `words`, each of 4 to 20 bytes, by a 1/rank distribution.
std::vector<std::string> tokens(std::size_t count, std::size_t words, unsigned seed = 1);
// `count` different message IDs.
std::vector<std::string> message_ids(std::size_t count);
// Messages of about 250 different tokens, in turn spam and ham, a minute apart; `first` numbers them.
void add_messages(record_batch& batch, std::size_t first, std::size_t count);

} // namespace tvr::bench
