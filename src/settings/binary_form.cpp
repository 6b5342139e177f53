#include "settings/binary_form.h"

#include <cstdint>

#include "common/bytes.h"
#include "settings/field_access.h"

namespace tvr {

namespace {

constexpr std::size_t length_size = 2;

// deliberate: the length has 16 bits, so that of a longer text only the low 16 bits of its length are kept.
std::string_view stored_text(const std::string& text) {
    return std::string_view(text).substr(0, static_cast<std::uint16_t>(text.size()));
}

std::string_view stored_text(const field_descriptor& field) {
    return stored_text(field.type == field_type::path ? *field.raw : text_of(field));
}

template <class T>
void append_le(std::string& bytes, T value) {
    char raw[sizeof value];
    store_le(raw, value);
    bytes.append(raw, sizeof raw);
}

} // namespace

std::size_t binary_size(const field_descriptor& field) {
    switch (field.type) {
    case field_type::string:
    case field_type::path:
        return length_size + stored_text(field).size();
    case field_type::flag:
        return sizeof(std::uint8_t);
    case field_type::real:
        return sizeof(double);
    default:
        return sizeof(std::uint32_t);
    }
}

void append_binary(const field_descriptor& field, std::string& bytes) {
    switch (field.type) {
    case field_type::string:
    case field_type::path: {
        const std::string_view text = stored_text(field);
        append_le(bytes, static_cast<std::uint16_t>(text.size()));
        bytes += text;
        break;
    }
    case field_type::flag:
        append_le(bytes, flag_of(field));
        break;
    case field_type::real:
        append_le(bytes, real_of(field));
        break;
    default:
        append_le(bytes, number_of(field));
        break;
    }
}

std::optional<std::size_t> binary_extent(field_type type, std::string_view bytes) {
    std::size_t size = 0;
    switch (type) {
    case field_type::string:
    case field_type::path:
        if (bytes.size() < length_size)
            return std::nullopt;
        size = length_size + load_le<std::uint16_t>(bytes.data());
        break;
    case field_type::flag:
        size = sizeof(std::uint8_t);
        break;
    case field_type::real:
        size = sizeof(double);
        break;
    default:
        size = sizeof(std::uint32_t);
        break;
    }
    return size <= bytes.size() ? std::optional(size) : std::nullopt;
}

void assign_binary(const field_descriptor& field, std::string_view bytes) {
    switch (field.type) {
    case field_type::string:
        text_of(field) = bytes.substr(length_size, load_le<std::uint16_t>(bytes.data()));
        break;
    case field_type::path:
        *field.raw = bytes.substr(length_size, load_le<std::uint16_t>(bytes.data()));
        expand(field);
        break;
    case field_type::flag:
        flag_of(field) = load_le<std::uint8_t>(bytes.data());
        break;
    case field_type::real:
        real_of(field) = load_le<double>(bytes.data());
        break;
    default:
        number_of(field) = load_le<std::uint32_t>(bytes.data());
        break;
    }
}

} // namespace tvr
