// Temporary files and the current folder.
#include "platform/file.h"

#include <cerrno>
#include <fcntl.h>
#include <limits.h>
#include <sys/random.h>
#include <sys/stat.h>
#include <unistd.h>

#include "platform/error.h"
#include "platform/posix/descriptor.h"
#include "platform/posix/errors.h"
#include "platform/posix/paths.h"

namespace tvr::platform {

namespace {

constexpr std::size_t longest_prefix = 3;
constexpr int most_tries = 100;

std::string random_name(std::string_view prefix) {
    constexpr char digits[] = "0123456789ABCDEF";
    unsigned char bytes[4] = {};
    if (getrandom(bytes, sizeof bytes, 0) != sizeof bytes)
        return {};
    std::string name(prefix.substr(0, longest_prefix));
    for (const unsigned byte : bytes) {
        name += digits[byte >> 4];
        name += digits[byte & 15];
    }
    return name += ".tmp";
}

} // namespace

std::optional<std::string> make_temp_file(std::string_view folder, std::string_view prefix) {
    std::string start(folder);
    if (!start.empty() && start.back() != '\\')
        start += '\\';
    const std::string native = posix::native_path(start);
    struct stat info {};
    if (native.empty() || stat(native.c_str(), &info) != 0 || !S_ISDIR(info.st_mode)) {
        posix::fail(error::directory);
        return std::nullopt;
    }
    for (int tries = 0; tries < most_tries; ++tries) {
        const std::string name = random_name(prefix);
        if (name.empty())
            break;
        const std::string full = native + name;
        if (::access(full.c_str(), F_OK) == 0)
            continue;
        std::string answer = start + name;
        if (!posix::may_change(change::create_file, answer))
            return std::nullopt;
        const posix::descriptor made(
            ::open(full.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC | O_NOFOLLOW, 0600));
        if (made.is_open())
            return answer;
        if (errno != EEXIST) {
            posix::fail_path(full);
            return std::nullopt;
        }
    }
    posix::fail(error::file_exists);
    return std::nullopt;
}

std::string temp_folder_path() {
    const std::string native = posix::native_temp_folder();
    return native.empty() ? native : posix::engine_path(native) + "\\";
}

std::string current_directory() {
    char buffer[PATH_MAX];
    if (getcwd(buffer, sizeof buffer) == nullptr) {
        posix::fail_errno();
        return {};
    }
    return posix::engine_path(buffer);
}

bool set_current_directory(std::string_view path) {
    const std::string native = posix::native_path(path);
    return chdir(native.c_str()) == 0 || posix::fail_path(native);
}

} // namespace tvr::platform
