// Files as byte strings, and the pieces that their expected bytes are put together from.
#pragma once

#include <cstdint>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <map>
#include <string>
#include <string_view>
#include <vector>

namespace tvr {

// Little-endian 32-bit numbers.
template <class... Numbers>
std::string le(Numbers... numbers) {
    std::string bytes;
    const auto put = [&](std::uint32_t number) {
        for (int shift = 0; shift < 32; shift += 8)
            bytes += static_cast<char>(number >> shift & 0xFF);
    };
    (put(static_cast<std::uint32_t>(numbers)), ...);
    return bytes;
}

// The little-endian 32-bit number at a place, which must be there.
inline std::uint32_t word_at(std::string_view bytes, std::size_t place) {
    std::uint32_t word = 0;
    for (std::size_t i = 4; i-- > 0;)
        word = word << 8 | static_cast<unsigned char>(bytes.at(place + i));
    return word;
}

// A length byte and the text.
inline std::string pascal(std::string_view text) {
    return std::string(1, static_cast<char>(text.size())).append(text);
}

// A length byte, the text and its number.
inline std::string counted(std::string_view text, std::uint32_t number) {
    return pascal(text) + le(number);
}

inline std::string read_file(const std::filesystem::path& path) {
    std::ifstream file(path, std::ios::binary);
    return {std::istreambuf_iterator<char>(file), {}};
}

using files = std::map<std::string, std::string>; // contents by name

// The files of a folder, without those of the folders in it.
inline files folder_content(const std::filesystem::path& folder) {
    files all;
    for (const auto& entry : std::filesystem::directory_iterator(folder))
        if (entry.is_regular_file())
            all[entry.path().filename().string()] = read_file(entry.path());
    return all;
}

// The names in which two sets of files differ, each with a word.
inline std::vector<std::string> differences(const files& found, const files& expected) {
    std::vector<std::string> lines;
    for (const auto& [name, content] : expected)
        if (!found.contains(name))
            lines.push_back(name + " is missing");
        else if (found.at(name) != content)
            lines.push_back(name + " differs (" + std::to_string(found.at(name).size()) + " bytes for " +
                            std::to_string(content.size()) + ")");
    for (const auto& [name, content] : found)
        if (!expected.contains(name))
            lines.push_back(name + " is too much");
    return lines;
}

inline void write_file(const std::filesystem::path& path, std::string_view bytes) {
    std::filesystem::create_directories(path.parent_path());
    std::ofstream(path, std::ios::binary).write(bytes.data(), static_cast<std::streamsize>(bytes.size()));
}

} // namespace tvr
