#include "platform/file.h"

#include <algorithm>

#include "platform/error.h"
#include "platform/win32/errors.h"
#include "platform/win32/file_state.h"
#include "platform/win32/paths.h"

namespace tvr::platform {

namespace win32 {

bool is_missing(const std::string& native) noexcept {
    return GetFileAttributesA(native.c_str()) == INVALID_FILE_ATTRIBUTES;
}

std::uint64_t number_of(const FILETIME& time) noexcept {
    return static_cast<std::uint64_t>(time.dwHighDateTime) << 32 | time.dwLowDateTime;
}

FILETIME file_time_of(std::uint64_t time) noexcept {
    return {static_cast<DWORD>(time), static_cast<DWORD>(time >> 32)};
}

} // namespace win32

namespace {

constexpr std::size_t largest_transfer = std::size_t{1} << 30; // bytes in one call

DWORD system_rights(access rights) {
    const auto bits = static_cast<unsigned>(rights);
    return ((bits & static_cast<unsigned>(access::read)) != 0 ? GENERIC_READ : 0) |
           ((bits & static_cast<unsigned>(access::write)) != 0 ? GENERIC_WRITE : 0);
}

DWORD system_sharing(share sharing) {
    const auto bits = static_cast<unsigned>(sharing);
    return ((bits & static_cast<unsigned>(share::read)) != 0 ? FILE_SHARE_READ : 0) |
           ((bits & static_cast<unsigned>(share::write)) != 0 ? FILE_SHARE_WRITE : 0);
}

// An open call, which may be made more than once.
struct opening {
    std::string native;
    DWORD rights;
    DWORD sharing;
    DWORD attributes;

    [[nodiscard]] win32::handle run(creation mode) const {
        return win32::handle(CreateFileA(native.c_str(), rights, sharing, nullptr, static_cast<DWORD>(mode),
                                         attributes, nullptr));
    }
};

// Asks about the change that an open is going to make, if it makes one.
bool may_open(const opening& call, creation mode, std::string_view path) {
    const bool missing = win32::is_missing(call.native);
    const bool makes = mode != creation::open_existing && mode != creation::truncate_existing;
    if (missing)
        return !makes || win32::may_change(change::create_file, path);
    if (mode != creation::create_always && mode != creation::truncate_existing)
        return true;
    // An open that fails is no change.
    opening trial = call;
    trial.rights |= GENERIC_WRITE;
    return trial.run(creation::open_existing).is_open() ? win32::may_change(change::truncate_file, path)
                                                        : win32::fail_last();
}

bool closed() {
    return win32::fail(error::invalid_handle);
}

} // namespace

file::file() noexcept = default;
file::~file() = default;
file::file(file&& other) noexcept = default;
file& file::operator=(file&& other) noexcept = default;

bool file::open(std::string_view path, access rights, share sharing, creation mode,
                std::uint32_t attributes) {
    close();
    const opening call{win32::native_path(path), system_rights(rights), system_sharing(sharing), attributes};
    if (mode == creation::truncate_existing && (call.rights & GENERIC_WRITE) == 0)
        return win32::fail(error::invalid_parameter);
    if (win32::is_watched() && !may_open(call, mode, path))
        return false;
    win32::handle opened = call.run(mode);
    if (!opened.is_open())
        return win32::fail_last();
    m_state = std::make_unique<state>();
    m_state->handle = std::move(opened);
    m_state->path = path;
    return true;
}

void file::close() noexcept {
    m_state.reset();
}

bool file::is_open() const noexcept {
    return m_state != nullptr;
}

bool file::read(void* buffer, std::size_t size, std::size_t& got) {
    got = 0;
    if (!m_state)
        return closed();
    auto* to = static_cast<std::uint8_t*>(buffer);
    std::size_t arrived = 0;
    do {
        const auto portion = static_cast<DWORD>(std::min(size - arrived, largest_transfer));
        DWORD part = 0;
        if (!ReadFile(m_state->handle.get(), to + arrived, portion, &part, nullptr))
            return win32::fail_last();
        if (part == 0)
            break;
        arrived += part;
    } while (arrived < size);
    got = arrived;
    return true;
}

bool file::write(const void* data, std::size_t size) {
    if (!m_state)
        return closed();
    if (size != 0 && !win32::may_change(change::write_file, m_state->path))
        return false;
    const auto* from = static_cast<const std::uint8_t*>(data);
    do {
        const auto portion = static_cast<DWORD>(std::min(size, largest_transfer));
        DWORD part = 0;
        if (!WriteFile(m_state->handle.get(), from, portion, &part, nullptr))
            return win32::fail_last();
        if (part < portion)
            return win32::fail(error::disk_full);
        from += part;
        size -= part;
    } while (size != 0);
    return true;
}

std::optional<std::uint64_t> file::seek(std::int64_t distance, origin from) {
    LARGE_INTEGER wanted{};
    LARGE_INTEGER place{};
    wanted.QuadPart = distance;
    const DWORD start = from == origin::begin     ? FILE_BEGIN
                        : from == origin::current ? FILE_CURRENT
                                                  : FILE_END;
    if (!m_state)
        closed();
    else if (!SetFilePointerEx(m_state->handle.get(), wanted, &place, start))
        win32::fail_last();
    else
        return static_cast<std::uint64_t>(place.QuadPart);
    return std::nullopt;
}

bool file::set_end() {
    if (!m_state)
        return closed();
    return win32::may_change(change::truncate_file, m_state->path) &&
           win32::succeeded(SetEndOfFile(m_state->handle.get()));
}

bool file::flush() {
    if (!m_state)
        return closed();
    return win32::may_change(change::make_durable, m_state->path) &&
           win32::succeeded(FlushFileBuffers(m_state->handle.get()));
}

std::optional<std::uint64_t> file::size() const {
    LARGE_INTEGER bytes{};
    if (!m_state)
        closed();
    else if (!GetFileSizeEx(m_state->handle.get(), &bytes))
        win32::fail_last();
    else
        return static_cast<std::uint64_t>(bytes.QuadPart);
    return std::nullopt;
}

std::optional<std::uint64_t> file::last_write_time() const {
    FILETIME time{};
    if (!m_state)
        closed();
    else if (!GetFileTime(m_state->handle.get(), nullptr, nullptr, &time))
        win32::fail_last();
    else
        return win32::number_of(time);
    return std::nullopt;
}

bool file::set_last_write_time(std::uint64_t time) {
    if (!m_state)
        return closed();
    const FILETIME moment = win32::file_time_of(time);
    return win32::may_change(change::set_time, m_state->path) &&
           win32::succeeded(SetFileTime(m_state->handle.get(), nullptr, nullptr, &moment));
}

std::optional<std::size_t> peek_file(std::string_view path, std::uint64_t offset, void* buffer,
                                     std::size_t size) {
    const win32::handle opened(CreateFileA(win32::native_path(path).c_str(), GENERIC_READ,
                                           FILE_SHARE_READ | FILE_SHARE_WRITE | FILE_SHARE_DELETE, nullptr,
                                           OPEN_EXISTING, 0, nullptr));
    LARGE_INTEGER place{};
    place.QuadPart = static_cast<LONGLONG>(offset);
    if (!opened.is_open() || !SetFilePointerEx(opened.get(), place, nullptr, FILE_BEGIN)) {
        win32::fail_last();
        return std::nullopt;
    }
    std::size_t got = 0;
    while (got < size) {
        const auto portion = static_cast<DWORD>(std::min(size - got, largest_transfer));
        DWORD part = 0;
        if (!ReadFile(opened.get(), static_cast<char*>(buffer) + got, portion, &part, nullptr)) {
            win32::fail_last();
            return std::nullopt;
        }
        if (part == 0)
            break;
        got += part;
    }
    return got;
}

std::string_view line_end() noexcept {
    return "\r\n";
}

std::string display_path(std::string_view path) {
    return std::string(path);
}

std::string from_display_path(std::string_view path) {
    std::string own(path);
    std::replace(own.begin(), own.end(), '/', '\\');
    return own;
}

} // namespace tvr::platform
