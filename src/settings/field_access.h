// The members behind the descriptors of settings.
#pragma once

#include <cstdint>
#include <string>

#include "platform/process.h"
#include "settings/settings.h"

namespace tvr {

inline std::string& text_of(const field_descriptor& field) {
    return *static_cast<std::string*>(field.member);
}
inline std::uint32_t& number_of(const field_descriptor& field) {
    return *static_cast<std::uint32_t*>(field.member);
}
inline std::uint8_t& flag_of(const field_descriptor& field) {
    return *static_cast<std::uint8_t*>(field.member);
}
inline double& real_of(const field_descriptor& field) {
    return *static_cast<double*>(field.member);
}

// Makes the expanded form of a path; does nothing to other fields.
inline void expand(const field_descriptor& field) {
    if (field.type == field_type::path && field.raw)
        text_of(field) = platform::expand_environment(*field.raw);
}

} // namespace tvr
