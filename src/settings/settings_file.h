// Ties the settings object to its files at the start of the server.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>

#include "settings/settings.h"

namespace tvr {

// Made for one start, on the main thread, before other threads exist. Nothing here stops the start.
class _kwilsfile {
public:
    static constexpr std::uint32_t magic_valid = 0x53504256;    // "VBPS"
    static constexpr std::uint32_t magic_accepted = 0x53504255; // "UBPS"

    void attach(settings* object) noexcept { m_settings = object; }

    // Declares the working directory and takes it from the user's settings folder.
    void find_working_directory();
    // Reads settings.cfg for what has been declared, which at the start is the working directory alone.
    // deliberate: asks for a text file that it doesn't name, so that it always returns false; prepare() is
    // what brings the settings up, and so defaults and seeds win over settings.cfg. The working directory of
    // settings.cfg stands only if the user's settings folder isn't available.
    bool load();
    // Defaults, then the seed tvram.ini, the data folders, and advanced.ini.
    void prepare();
    // Writes settings.cfg and advanced.ini; the failed bits of base_settings::save(), or 0 if the mark is
    // neither valid one.
    std::uint32_t save();
    bool read_seed(std::string_view file);
    // deliberate: no caller here. The text file of group 1, with "training delay" in milliseconds in memory.
    // The engine keeps seconds and never takes this way.
    bool advanced_load(std::string_view file);
    bool advanced_save(std::string_view file);
    [[nodiscard]] std::size_t size() const; // of all fields in one block and 4 bytes; 0 if not attached

    // The paths of settings.cfg and advanced.ini; null without settings, the second also without a root. Each
    // is made once. deliberate: the first is made of the raw working directory, so that settings.cfg is found
    // only where that holds no %name% references.
    const std::string* settingsfile();
    const std::string* advancedfile();

    // Checks the working directory, its base and its base\transact; makes what is missing.
    bool __createdirstructure();

    std::uint32_t magic = 0;

private:
    bool is_attached() const;

    settings* m_settings = nullptr;
    std::string m_settingsfile;
    std::string m_advancedfile;
};

} // namespace tvr
