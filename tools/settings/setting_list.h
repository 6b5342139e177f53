// The settings as people see and change them: what the engine will take at its next start, where it takes it
// from, and the lines of those files.
#pragma once

#include <cstdint>
#include <optional>
#include <span>
#include <string>
#include <string_view>
#include <vector>

#include "settings/settings.h"
#include "tools/settings/setting_table.h"

namespace tvr {

enum class setting_group { basic, advanced, common, schedule, verdict };
struct setting_view {
    const setting_facts* facts = nullptr;
    setting_group group = setting_group::basic;
    field_type type = field_type::string;
    std::string value;    // the one in force at the engine's next start
    std::string fallback; // the one without any file
    std::string file;     // where it is read from, as the user writes paths; empty if from none
    std::string obstacle; // why it can't be set; empty if it can
};

// All settings, as they stand when the object is made. Finds the working directory as the engine does.
class setting_list {
public:
    setting_list();

    [[nodiscard]] std::span<const setting_view> all() const noexcept { return m_all; }
    [[nodiscard]] const setting_view* find(std::string_view key) const; // in any case; null if there is none

    // Checks the value and writes it to the setting's file. The reason of a failure, or an empty text.
    [[nodiscard]] std::string set(const setting_view& setting, std::string_view value) const;

private:
    void add_common();
    void add_schedule();
    void add_verdict();
    void add_fields(const std::string& raw_working);

    std::vector<setting_view> m_all;
    std::string m_working; // with a trailing backslash; empty if there is none
    std::string m_root;    // the same
    std::string m_seed;    // the file that the basic settings are read from now; empty if from none
};

[[nodiscard]] std::string limits_text(const setting_view& setting);
// `checked` is the value as the files hold it: flags as 0 or 1. The reason if the setting doesn't take it, or
// an empty text.
[[nodiscard]] std::string check_value(const setting_view& setting, std::string_view value,
                                      std::string& checked);
// Makes `folder` the installation root. The reason of a failure, or an empty text.
[[nodiscard]] std::string register_root(std::string_view folder);

} // namespace tvr
