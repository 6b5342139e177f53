#include "platform/posix/paths.h"

#include <atomic>
#include <cerrno>
#include <climits>
#include <cstdio>
#include <cstdlib>
#include <fcntl.h>
#include <optional>
#include <pwd.h>
#include <sys/stat.h>
#include <unistd.h>
#include <utility>
#include <vector>

#include "platform/ascii.h"
#include "platform/posix/descriptor.h"

namespace tvr::platform::posix {

namespace {

constexpr mode_t private_folder = 0700;
// Of the administrator; what he writes there is for all to read.
constexpr std::string_view for_all_users = "/etc/tessivar/";
constexpr mode_t permission_bits = 0777;
constexpr mode_t others_may_write = 0022;
// Bytes. The engine's paths have 260 at most, and it needs some 70 below this folder.
constexpr std::size_t longest_appdata = 188;
constexpr std::string_view drive_prefix = "/drive_";

void drop_trailing_slashes(std::string& path) {
    while (path.size() > 1 && path.back() == '/')
        path.pop_back();
}

// The value of a variable that names an absolute folder; other values don't count.
std::optional<std::string> folder_variable(const char* name) {
    const char* value = std::getenv(name);
    if (value == nullptr || *value != '/')
        return std::nullopt;
    std::string path = value;
    drop_trailing_slashes(path);
    return path;
}

std::string working_folder() {
    char buffer[PATH_MAX];
    return getcwd(buffer, sizeof buffer) != nullptr ? buffer : ".";
}

// Once in a process: what follows from it, a missing event or presence, has no words of its own.
void tell_unsafe(const std::string& path, const char* reason) {
    static std::atomic<bool> told{false};
    if (!told.exchange(true))
        std::fprintf(stderr, "tessivar: the folder %s is not used: %s\n", path.c_str(), reason);
}

// Why a folder that exists must not be used; null if it may. `forbidden` are bits of its mode.
const char* unsafe(const struct stat& info, mode_t forbidden) {
    if (S_ISLNK(info.st_mode))
        return "it is a symbolic link";
    if (!S_ISDIR(info.st_mode))
        return "it is no folder";
    if (info.st_uid != geteuid())
        return "it belongs to another user";
    return (info.st_mode & forbidden) != 0 ? "other users may write in it" : nullptr;
}

// Where others can make names they can put their own folders and stores in place of the user's.
const char* unsafe_root(const std::string& path) {
    struct stat info {};
    if (stat(path.c_str(), &info) != 0 || info.st_uid == 0)
        info.st_uid = geteuid();
    return S_ISDIR(info.st_mode) ? unsafe(info, S_IWOTH) : nullptr;
}

constexpr const char* root_variable = "TESSIVAR_ROOT";

std::string absolute_root(const char* value) {
    std::string path = *value == '/' ? value : working_folder() + "/" + value;
    drop_trailing_slashes(path);
    return path;
}

// What a relative root means is settled before anything changes the current folder, for this process and for
// those that it starts.
[[maybe_unused]] const bool root_is_settled = [] {
    const char* value = std::getenv(root_variable);
    return value == nullptr || *value == '\0' || *value == '/' ||
           setenv(root_variable, absolute_root(value).c_str(), 1) == 0;
}();

std::optional<std::string> moved_root() {
    const char* value = std::getenv(root_variable);
    if (value == nullptr || *value == '\0')
        return std::nullopt;
    std::string path = absolute_root(value);
    if (const char* reason = unsafe_root(path)) {
        tell_unsafe(path, reason);
        return "/dev/null"; // nothing can be made below it
    }
    return path;
}

// The home of the account, whatever the environment says; empty if there is none.
std::string account_home() {
    thread_local std::pair<uid_t, std::optional<std::string>> known;
    if (known.second && known.first == geteuid())
        return *known.second;
    std::vector<char> buffer(16384);
    passwd entry{};
    passwd* found = nullptr;
    std::string home;
    if (getpwuid_r(geteuid(), &entry, buffer.data(), buffer.size(), &found) == 0 && found != nullptr &&
        found->pw_dir != nullptr && *found->pw_dir == '/')
        home = found->pw_dir;
    known = {geteuid(), home};
    return home;
}

std::string home_folder() {
    if (auto home = folder_variable("HOME"))
        return *home;
    return account_home();
}

std::string below_home(std::string_view name) {
    std::string path = home_folder();
    return path.empty() ? path : path.append(name);
}

std::string data_root() {
    auto root = moved_root();
    return root ? *root : below_home("/.local/share/tessivar");
}

bool is_ours(const std::string& path, mode_t forbidden) {
    struct stat info {};
    return lstat(path.c_str(), &info) == 0 && unsafe(info, forbidden) == nullptr;
}

// Only the account counts: the variables of a mail server, of a terminal and of a session's services differ,
// and their processes must meet.
std::string lasting_folder_name() {
    std::string home = account_home();
    struct stat info {};
    if (home.empty() || stat(home.c_str(), &info) != 0)
        home = folder_variable("HOME").value_or(std::string());
    return home.empty() ? home : home.append("/.cache/tessivar/run");
}

// True while any process holds a named event of this folder.
bool is_in_use(const std::string& folder) {
    const descriptor events(
        ::open((folder + "/events").c_str(), O_RDWR | O_CLOEXEC | O_NOFOLLOW | O_NONBLOCK | O_NOCTTY));
    struct flock lock {};
    lock.l_type = F_WRLCK;
    lock.l_whence = SEEK_SET;
    return events.is_open() && fcntl(events.get(), F_OFD_GETLK, &lock) == 0 && lock.l_type != F_UNLCK;
}

std::atomic<bool> looks_only{false};

std::string made(std::string path) {
    return path.empty() || looks_only || make_folders(path) ? path : std::string();
}

std::string made_private(std::string path) {
    path = made(std::move(path));
    struct stat info {};
    if (path.empty() || lstat(path.c_str(), &info) != 0)
        return {};
    const char* const reason = unsafe(info, others_may_write);
    if (reason == nullptr)
        return path;
    tell_unsafe(path, reason);
    return {};
}

// One translation after the other asks for the same drive: it is made once.
void need_drive(const std::string& folder) {
    thread_local std::string last;
    if (last != folder && make_folders(folder))
        last = folder;
}

std::string drive_folder(char letter) {
    std::string folder = data_root();
    folder += drive_prefix;
    folder += lower(letter);
    return folder;
}

bool has_drive(std::string_view path) {
    return path.size() >= 2 && path[1] == ':' && is_letter(path[0]);
}

} // namespace

std::string native_path(std::string_view path) {
    if (path.empty() || path.find('\0') != std::string_view::npos)
        return {};
    std::string native;
    if (has_drive(path)) {
        native = drive_folder(path[0]);
        need_drive(native);
        path.remove_prefix(2);
        if (!path.empty() && path[0] != '\\' && path[0] != '/')
            native += '/';
    }
    const std::size_t start = native.size();
    native += path;
    for (std::size_t at = start; at < native.size(); ++at)
        if (native[at] == '\\')
            native[at] = '/';
    return native;
}

std::string engine_path(std::string_view native) {
    std::string path;
    const std::string drives = data_root().append(drive_prefix);
    const std::size_t letter = drives.size();
    if (native.starts_with(drives) && native.size() > letter && is_letter(native[letter]) &&
        (native.size() == letter + 1 || native[letter + 1] == '/')) {
        path = {native[letter], ':'};
        native.remove_prefix(letter + 1);
    }
    path += native;
    for (char& c : path)
        if (c == '/')
            c = '\\';
    return path;
}

std::string parent_folder(std::string_view native) {
    while (native.size() > 1 && native.back() == '/')
        native.remove_suffix(1);
    const std::size_t slash = native.rfind('/');
    if (slash == std::string_view::npos)
        return ".";
    return std::string(native.substr(0, slash == 0 ? 1 : slash));
}

mode_t folder_mode(const std::string& native) {
    return native.starts_with(for_all_users) ? 0755 : private_folder;
}

mode_t file_mode(const std::string& native) {
    return native.starts_with(for_all_users) ? 0644 : 0600;
}

bool make_folders(const std::string& native) {
    struct stat info {};
    if (stat(native.c_str(), &info) == 0)
        return S_ISDIR(info.st_mode);
    const mode_t mode = folder_mode(native);
    for (std::size_t cut = native.find('/', 1); cut != std::string::npos; cut = native.find('/', cut + 1))
        mkdir(native.substr(0, cut).c_str(), mode);
    return mkdir(native.c_str(), mode) == 0 ||
           (errno == EEXIST && stat(native.c_str(), &info) == 0 && S_ISDIR(info.st_mode));
}

std::string native_runtime_folder() {
    if (const auto root = moved_root())
        return made_private(*root + "/run");
    // The folder of the session comes with the first login and goes with the last logout. Whoever comes later
    // joins those who came before it.
    const std::string session = "/run/user/" + std::to_string(geteuid());
    const std::string lasting = lasting_folder_name();
    if (is_ours(session, permission_bits & ~private_folder) && !is_in_use(lasting))
        return made_private(session + "/tessivar");
    return made_private(lasting);
}

std::string native_lasting_runtime_folder() {
    return moved_root() ? native_runtime_folder() : made_private(lasting_folder_name());
}

std::string native_temp_folder() {
    const auto root = moved_root();
    return made_private(root ? *root + "/tmp" : below_home("/.cache/tessivar/tmp"));
}

std::string native_appdata_folder() {
    const auto root = moved_root();
    const auto data = folder_variable("XDG_DATA_HOME");
    const std::string path = root ? *root + "/appdata" : data ? *data : below_home("/.local/share");
    if (path.size() <= longest_appdata)
        return made(path);
    tell_unsafe(path, "its path is too long");
    return {};
}

std::string native_common_folder() {
    if (const auto root = moved_root())
        return made(*root + "/common");
    return std::string(for_all_users) + "common"; // root makes it when it is written
}

std::string native_home_folder() {
    const auto root = moved_root();
    return root ? *root + "/home" : home_folder();
}

std::string native_shared_programs_folder() {
    return moved_root().value_or("/usr") + "/lib";
}

std::string native_user_store() {
    const auto root = moved_root();
    return root ? *root + "/user" : below_home("/.config/tessivar/user");
}

std::string native_machine_store() {
    if (const auto root = moved_root())
        return *root + "/machine";
    return geteuid() == 0 ? "/etc/tessivar/machine" : below_home("/.config/tessivar/machine");
}

std::string native_machine_store_behind() {
    if (moved_root())
        return {};
    return geteuid() == 0 ? below_home("/.config/tessivar/machine") : "/etc/tessivar/machine";
}

} // namespace tvr::platform::posix

namespace tvr::platform {

void only_look() noexcept {
    posix::looks_only = true;
}

} // namespace tvr::platform
