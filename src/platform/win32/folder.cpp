// Operations on names: attributes, delete, move, copy, link, folders.
#include "platform/file.h"

#include "platform/error.h"
#include "platform/win32/errors.h"
#include "platform/win32/file_state.h"
#include "platform/win32/handle.h"
#include "platform/win32/paths.h"

namespace tvr::platform {

namespace {

constexpr DWORD known_attributes =
    attribute::read_only | attribute::directory | attribute::archive | attribute::temporary;
constexpr DWORD folder_link = FILE_ATTRIBUTE_DIRECTORY | FILE_ATTRIBUTE_REPARSE_POINT;

// The attributes with all their bits. False if the path doesn't exist.
bool look(const std::string& native, DWORD& attributes) {
    attributes = GetFileAttributesA(native.c_str());
    return attributes != INVALID_FILE_ATTRIBUTES || win32::fail_last();
}

// Asks about what a copy is going to do.
bool may_copy(const std::string& source, const std::string& target, std::string_view path) {
    WIN32_FILE_ATTRIBUTE_DATA facts{};
    if (!GetFileAttributesExA(source.c_str(), GetFileExInfoStandard, &facts))
        return win32::fail_last();
    const bool empty = facts.nFileSizeLow == 0 && facts.nFileSizeHigh == 0;
    const change first = win32::is_missing(target) ? change::create_file : change::truncate_file;
    return win32::may_change(first, path) && (empty || win32::may_change(change::write_file, path)) &&
           win32::may_change(change::set_time, path);
}

} // namespace

bool make_durable(const std::vector<std::string>& paths) {
    bool done = true;
    for (const std::string& path : paths) {
        const std::string native = win32::native_path(path);
        const DWORD attributes = GetFileAttributesA(native.c_str());
        const bool is_folder =
            attributes != INVALID_FILE_ATTRIBUTES && (attributes & FILE_ATTRIBUTE_DIRECTORY) != 0;
        const win32::handle opened(
            CreateFileA(native.c_str(), GENERIC_WRITE, FILE_SHARE_READ | FILE_SHARE_WRITE | FILE_SHARE_DELETE,
                        nullptr, OPEN_EXISTING, is_folder ? FILE_FLAG_BACKUP_SEMANTICS : 0, nullptr));
        if (!win32::may_change(change::make_durable, path))
            done = false;
        else if ((!opened.is_open() || !FlushFileBuffers(opened.get())) && !is_folder)
            done = win32::fail_last();
    }
    return done;
}

bool has_other_names(std::string_view path) {
    const win32::handle opened(CreateFileA(win32::native_path(path).c_str(), 0,
                                           FILE_SHARE_READ | FILE_SHARE_WRITE | FILE_SHARE_DELETE, nullptr,
                                           OPEN_EXISTING, 0, nullptr));
    BY_HANDLE_FILE_INFORMATION facts{};
    return opened.is_open() && GetFileInformationByHandle(opened.get(), &facts) && facts.nNumberOfLinks > 1;
}

std::optional<std::uint32_t> get_attributes(std::string_view path) {
    DWORD attributes = 0;
    if (!look(win32::native_path(path), attributes))
        return std::nullopt;
    return attributes & known_attributes;
}

bool set_attributes(std::string_view path, std::uint32_t attributes) {
    const std::string native = win32::native_path(path);
    DWORD present = 0;
    if (!look(native, present))
        return false;
    const DWORD wanted = (present & ~DWORD{attribute::read_only}) | (attributes & attribute::read_only);
    if (wanted == present)
        return true;
    return win32::may_change(change::set_attributes, path) &&
           win32::succeeded(SetFileAttributesA(native.c_str(), wanted));
}

bool delete_file(std::string_view path) {
    const std::string native = win32::native_path(path);
    DWORD attributes = 0;
    if (!look(native, attributes))
        return false;
    // A link to a folder counts as a file, and goes without what it leads to.
    if ((attributes & folder_link) == folder_link)
        return win32::may_change(change::delete_file, path) &&
               win32::succeeded(RemoveDirectoryA(native.c_str()));
    return win32::may_change(change::delete_file, path) && win32::succeeded(DeleteFileA(native.c_str()));
}

bool move_file(std::string_view from, std::string_view to) {
    return win32::may_change(change::rename_file, to) &&
           win32::succeeded(MoveFileA(win32::native_path(from).c_str(), win32::native_path(to).c_str()));
}

// A folder as the target is refused by the system, with 5; a read-only file not by every one.
bool replace_file(std::string_view from, std::string_view to) {
    const std::string source = win32::native_path(from);
    const std::string target = win32::native_path(to);
    DWORD attributes = 0;
    if (!look(source, attributes))
        return false;
    const DWORD present = GetFileAttributesA(target.c_str());
    if ((attributes & FILE_ATTRIBUTE_DIRECTORY) != 0 ||
        (present != INVALID_FILE_ATTRIBUTES && (present & FILE_ATTRIBUTE_READONLY) != 0))
        return win32::fail(error::access_denied);
    return win32::may_change(change::rename_file, to) &&
           win32::succeeded(MoveFileExA(source.c_str(), target.c_str(), MOVEFILE_REPLACE_EXISTING));
}

bool copy_file(std::string_view from, std::string_view to, bool fail_if_exists) {
    const std::string source = win32::native_path(from);
    const std::string target = win32::native_path(to);
    if (win32::is_watched() && !may_copy(source, target, to))
        return false;
    return win32::succeeded(CopyFileA(source.c_str(), target.c_str(), fail_if_exists ? TRUE : FALSE));
}

bool create_hard_link(std::string_view link, std::string_view existing) {
    using function = BOOL(WINAPI*)(LPCSTR link, LPCSTR existing, LPSECURITY_ATTRIBUTES);
    static const auto call = reinterpret_cast<function>(
        reinterpret_cast<void*>(GetProcAddress(GetModuleHandleA("kernel32.dll"), "CreateHardLinkA")));
    if (call == nullptr)
        return win32::fail(error::invalid_function);
    return win32::may_change(change::link_file, link) &&
           win32::succeeded(
               call(win32::native_path(link).c_str(), win32::native_path(existing).c_str(), nullptr));
}

bool create_directory(std::string_view path) {
    return win32::may_change(change::create_folder, path) &&
           win32::succeeded(CreateDirectoryA(win32::native_path(path).c_str(), nullptr));
}

bool remove_directory(std::string_view path) {
    return win32::may_change(change::remove_folder, path) &&
           win32::succeeded(RemoveDirectoryA(win32::native_path(path).c_str()));
}

} // namespace tvr::platform
