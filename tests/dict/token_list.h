// Maps of tokens as tests write them down.
#pragma once

#include <cstdint>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "common/bytes.h"
#include "dict/hashmap.h"

namespace tvr {

using token_list = std::vector<std::pair<const char*, std::uint32_t>>;

inline void put_in(dword_map& map, const token_list& tokens) {
    for (const auto& [token, count] : tokens)
        store_u32(map.get_or_add(token), count);
}

// "token=count " of each in the order of the map; counts have a sign.
inline std::string listed(hashmap_impl& map) {
    std::string all;
    std::string_view token;
    std::uint8_t* value = nullptr;
    for (map.rewind(); map.next(token, value);)
        all.append(token).append("=" + std::to_string(static_cast<std::int32_t>(load_u32(value))) + " ");
    return all;
}

} // namespace tvr
