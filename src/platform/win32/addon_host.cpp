#include "platform/addon_host.h"

#include "platform/process.h"

namespace tvr::platform {

std::optional<addon_host_place> find_addon_host_place(std::string_view name, bool all_users) {
    const std::string folder = all_users ? common_appdata_folder() : expand_environment("%appdata%");
    if (folder.empty())
        return std::nullopt;
    return addon_host_place{folder + "\\Orvenix\\" + std::string(name) + ".json",
                            "Software\\Mozilla\\NativeMessagingHosts\\" + std::string(name)};
}

} // namespace tvr::platform
