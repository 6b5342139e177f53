// Undoes the writing of local words with Latin look-alike characters, so that a word has one spelling. For
// the filter side: the engine calls nothing of it. Reads current_settings() unless it is given others;
// without settings none is set.
#pragma once

#include <array>
#include <cstdint>
#include <string>
#include <string_view>

namespace tvr {

class settings;

// Replaces the characters 33 to 127 of the text by their entries in "spam transliteration table", whose first
// entry is that of 32, and returns the text. Only if "use partically translitting" is set, the table has at
// least 96 bytes, and the text holds a character of "local user alphabet"; otherwise the text stays as it is.
// Any thread.
std::string& partial_transliteration(std::string& text);
std::string& partial_transliteration(std::string& text, const settings& set);

// A replacement for each byte value. Any number of threads may translate while none loads.
class xlt_table {
public:
    xlt_table();

    // Reads the table of that name (blanks and tabs around it don't count): the user's registry value
    // "Table", if "use translit tables from registry" is set, or else the file xlt\name.bin in the root or,
    // if there is none, in the working directory. At most 256 bytes; the entries that they don't reach stay.
    // A registry value of more bytes counts as missing. True if the table can be used, and also for an empty
    // name, which takes the name away. deliberate: a table keeps the name of its first success; any other one
    // changes nothing.
    bool load(std::string_view name);
    // Replaces all bytes but those below 32, if the table is loaded.
    void translate(std::string& text) const;

    [[nodiscard]] bool loaded() const noexcept { return m_loaded; }
    [[nodiscard]] const std::string& name() const noexcept { return m_name; }

private:
    bool load_registry(const std::string& name);
    bool load_file(const std::string& name);
    void take(std::string_view bytes);

    std::array<std::uint8_t, 256> m_bytes; // a byte stands for itself until it is loaded
    std::string m_name;
    bool m_loaded = false;
};

} // namespace tvr
