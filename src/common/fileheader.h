// The versioned head of every binary data file: a signature and a counted list of 32-bit values, each
// bound to a member of the header's owner.
#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <span>

namespace tvr {

class file_stream;

class fileheader {
public:
    static constexpr std::uint32_t limit = 30; // values

    explicit fileheader(std::uint32_t the_signature = 0) noexcept : signature(the_signature) {}

    // Binds the next position to `member` and assigns `value`, its default, at once. The member must live
    // as long as the header. A 31st call logs a line and changes nothing.
    fileheader& add(std::uint32_t& member, std::uint32_t value);

    // Reads at the stream's position and leaves it after the header. With a `hint` that is not 0, a head
    // without a signature but with that value count is taken as well. On a foreign signature: false, the
    // position back at the word, nothing assigned. A value count above 30: false. A file that ends inside
    // the values counts as read: the missing ones get their defaults.
    bool read(file_stream& file, std::uint32_t hint = 0);
    // The same under a foreign signature; this header's own is back afterwards.
    bool readheader_s(file_stream& file, std::uint32_t foreign_signature);
    // Writes signature, count and the members' present values.
    bool write(file_stream& file) const;

    // The same on memory. `position` is advanced past the header on success. Reading assigns only the
    // values that the memory holds; false if it is too short.
    bool read(std::span<const std::uint8_t> memory, std::size_t& position);
    bool write(std::span<std::uint8_t> memory, std::size_t& position) const;

    [[nodiscard]] std::uint32_t count() const noexcept { return m_count; }
    [[nodiscard]] std::uint32_t filecount() const noexcept { return m_filecount; } // of the last read
    [[nodiscard]] std::size_t size() const noexcept { return 8 + 4 * std::size_t{m_count}; } // bytes

    std::uint32_t signature;

private:
    std::uint32_t m_count = 0;
    std::array<std::uint32_t*, limit> m_refs{};
    std::array<std::uint32_t, limit> m_defaults{};
    std::uint32_t m_filecount = 0;
};

} // namespace tvr
