#include "platform/error.h"

#include <cerrno>
#include <sys/stat.h>

#include "platform/posix/errors.h"
#include "platform/posix/paths.h"

namespace tvr::platform::posix {

std::uint32_t number_of(int errno_value) noexcept {
    switch (errno_value) {
    case 0:
        return error::none;
    case ENOENT:
        return error::file_not_found;
    case ENOTDIR:
        return error::path_not_found;
    case EMFILE:
    case ENFILE:
        return error::too_many_open_files;
    case EACCES:
    case EPERM:
    case EISDIR:
    case ELOOP:
    case ENXIO:
    case ETXTBSY:
        return error::access_denied;
    case EROFS:
        return error::write_protected;
    case EBADF:
        return error::invalid_handle;
    case ENOMEM:
        return error::not_enough_memory;
    case EIO:
        return error::general_failure;
    case EBUSY:
        return error::sharing_violation;
    case EAGAIN:
        return error::lock_violation;
    case ENOSYS:
    case EOPNOTSUPP:
        return error::not_supported;
    case EEXIST:
        return error::already_exists;
    case EINVAL:
    case ESRCH:
        return error::invalid_parameter;
    case ENOSPC:
    case EDQUOT:
    case EFBIG:
        return error::disk_full;
    case ENOTEMPTY:
        return error::directory_not_empty;
    case ENAMETOOLONG:
        return error::name_too_long;
    case ENOLCK:
        return error::no_system_resources;
    default:
        return error::general_failure;
    }
}

bool fail_errno() noexcept {
    return fail(number_of(errno));
}

bool fail_path(const std::string& native) noexcept {
    if (errno != ENOENT)
        return fail_errno();
    struct stat info {};
    const bool has_folder = !native.empty() && stat(parent_folder(native).c_str(), &info) == 0;
    return fail(has_folder ? error::file_not_found : error::path_not_found);
}

} // namespace tvr::platform::posix
