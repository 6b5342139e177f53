// Where a user's data lies, and the few values that all components share.
#pragma once

#include <cstdint>
#include <optional>
#include <string>

namespace tvr {

enum class common_value : std::uint32_t {
    spam_threshold = 0,   // 85
    unsure_threshold = 1, // 75
    enable_outlook = 2,   // 1, as the two below
    enable_express = 3,
    enable_thebat = 4,
};

// The registry remembers the folder; the values stand in tessivar.ini, in the folder of all users.
class common_settings {
public:
    // The raw path of the user's settings folder (it may hold %name% references), with a trailing backslash.
    // Makes the default folder where the remembered one can't be used. Empty on failure.
    static std::string getsettingsfolder();
    // The same expanded: the working directory of the user. Empty on failure.
    static std::string working_directory();

    // The raw path for onlookers, whether it can be used or not: makes nothing, and remembers nothing.
    static std::string known_settingsfolder();

    static std::int32_t get_value(common_value index);
    static std::int32_t default_value(common_value index);
    static bool set_value(std::uint32_t value, common_value index); // false if the folder can't be used

    static std::optional<std::string> _get_common_appdata(); // without a trailing backslash
    static std::optional<std::string> common_folder();       // with one
};

} // namespace tvr
