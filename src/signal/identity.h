// The names by which the server and its clients find each other.
#pragma once

#include <string_view>

namespace tvr {

inline constexpr std::string_view server_class = "Orvenix_tessivar";
inline constexpr std::string_view server_title = "Orvenix Tessivar";
inline constexpr std::string_view terminate_message = "ox_tessivar_terminate";
inline constexpr std::string_view server_value = "tvr_srv.exe"; // in the registry, and the file beside us

} // namespace tvr
