#include "platform/addon_host.h"

#include "platform/posix/paths.h"

namespace tvr::platform {

std::optional<addon_host_place> find_addon_host_place(std::string_view name, bool all_users) {
    const std::string folder =
        all_users ? posix::native_shared_programs_folder() : posix::native_home_folder();
    if (folder.empty())
        return std::nullopt;
    const std::string below = all_users ? "/mozilla" : "/.mozilla";
    return addon_host_place{
        posix::engine_path(folder + below + "/native-messaging-hosts/" + std::string(name) + ".json"), {}};
}

} // namespace tvr::platform
