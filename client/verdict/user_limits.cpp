#include "client/verdict/user_limits.h"

#include <algorithm>

#include "common/file_names.h"
#include "platform/profile.h"
#include "settings/common_settings.h"

namespace tvr {

namespace {

constexpr std::string_view section = "Verdict";

} // namespace

namespace false_positives {

std::string path(std::string_view working_directory) {
    return std::string(working_directory) + names::wishes;
}

std::uint32_t get(std::string_view working_directory) {
    const std::int32_t value = platform::profile_int(section, key, usual, path(working_directory));
    return std::min(static_cast<std::uint32_t>(std::max(value, 0)), all);
}

bool set(std::string_view working_directory, std::uint32_t allowed) {
    return platform::write_profile_string(section, key, std::to_string(allowed), path(working_directory));
}

} // namespace false_positives

spam_limits limits_of_user(std::string_view working_directory) {
    return {.spam_threshold = static_cast<double>(common_settings::get_value(common_value::spam_threshold)),
            .false_positives = false_positives::get(working_directory) * 100.0 / false_positives::all};
}

} // namespace tvr
