// What is known of each setting beside its value.
#pragma once

#include <array>
#include <string_view>

#include "client/training_schedule.h"

namespace tvr {

inline constexpr std::string_view table_key = "spam transliteration table";
inline constexpr std::string_view folder_key = "working directory";

// `client`: mail programs that keep settings in the same files.
enum class setting_reader { engine, score, client };

struct setting_facts {
    const char* key;
    setting_reader reader;
    double least = 0; // of numbers and reals
    double most = 0;
    const char* meaning;
};

[[nodiscard]] const setting_facts*
facts_of(std::string_view key);                         // of the engine's fields; null if there is none
extern const std::array<setting_facts, 5> common_facts; // in the order of common_value
extern const std::array<setting_facts, training_schedule::values> schedule_facts;
extern const setting_facts verdict_facts;

} // namespace tvr
