// The parameters of a Content-Type or Content-Disposition field.
#pragma once

#include <cstddef>
#include <initializer_list>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace tvr {

// Keeps those that it was made for, and its memory from one field to the next.
class parameter_set {
public:
    static constexpr std::size_t most_pieces = 64; // of all texts of a field

    // The names in lower case; they must stay.
    parameter_set(std::initializer_list<std::string_view> names);

    void clear() noexcept;
    // Reads what follows the value proper, from its first ";" on. Of several parameters with a name the
    // first counts. Texts in pieces ("name*0=a; name*1=b") are put together, and "%" escapes and charsets as
    // of RFC 2231 are decoded to UTF-8.
    void parse(std::string_view text);
    // By the place of the name in the list; absent if the field has no such parameter.
    [[nodiscard]] std::optional<std::string_view> text(std::size_t which) const noexcept;

private:
    struct parameter {
        std::string_view name;
        std::string text;
        bool found = false;
    };
    // One "name*1*=text" or "name=text".
    struct piece {
        std::size_t which = 0;
        unsigned number = 0;
        bool whole = false;   // it has no number
        bool escaped = false; // with "%" escapes
        std::string_view text;
        bool quoted = false;
    };

    bool name_piece(std::string_view name, piece& found) const;
    void assemble(std::size_t which);

    std::vector<parameter> m_parameters;
    std::vector<piece> m_pieces;
    std::string m_bytes, m_room;
};

} // namespace tvr
