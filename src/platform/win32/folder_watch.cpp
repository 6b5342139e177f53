#include "platform/folder_watch.h"

#include <algorithm>
#include <array>
#include <atomic>
#include <map>
#include <set>
#include <utility>

#include "platform/error.h"
#include "platform/win32/errors.h"
#include "platform/win32/handle.h"
#include "platform/win32/paths.h"

namespace tvr::platform {

using namespace win32;

namespace {

constexpr std::size_t most_changes = 4096; // of one wait
// Nobody tells when a folder itself is moved, or a file is closed: both are looked at so often.
constexpr std::uint32_t look_interval = 500;
constexpr unsigned most_waits_for_end = 50;

std::atomic<bool> stop_seen = false;
std::atomic<HANDLE> stop_event = nullptr;

BOOL WINAPI on_stop(DWORD reason) {
    if (stop_seen.exchange(true))
        return FALSE; // its usual effect
    SetEvent(stop_event.load());
    if (reason != CTRL_C_EVENT && reason != CTRL_BREAK_EVENT)
        Sleep(look_interval * 8); // the system ends the process as soon as this returns
    return TRUE;
}

using folder_id = std::array<DWORD, 3>;

std::optional<folder_id> id_of(HANDLE folder) {
    BY_HANDLE_FILE_INFORMATION found;
    if (!succeeded(GetFileInformationByHandle(folder, &found)))
        return std::nullopt;
    return folder_id{found.dwVolumeSerialNumber, found.nFileIndexHigh, found.nFileIndexLow};
}

handle open_folder(const std::string& native) {
    return handle(CreateFileA(native.c_str(), FILE_LIST_DIRECTORY,
                              FILE_SHARE_READ | FILE_SHARE_WRITE | FILE_SHARE_DELETE, nullptr, OPEN_EXISTING,
                              FILE_FLAG_BACKUP_SEMANTICS | FILE_FLAG_OVERLAPPED, nullptr));
}

std::string name_of(const FILE_NOTIFY_INFORMATION& change) {
    const int units = static_cast<int>(change.FileNameLength / sizeof(WCHAR));
    std::string name(static_cast<std::size_t>(units) * 4, '\0');
    const int size = WideCharToMultiByte(CP_ACP, 0, change.FileName, units, name.data(),
                                         static_cast<int>(name.size()), nullptr, nullptr);
    name.resize(static_cast<std::size_t>(std::max(size, 0)));
    return name;
}

} // namespace

struct folder_watch::state {
    struct watch {
        state* owner = nullptr;
        int number = 0;
        std::string path; // native
        handle folder;
        folder_id id{};
        bool files = false;
        bool pending = false; // a request is under way, which writes to `room`
        bool ended = false;
        OVERLAPPED request{};
        alignas(DWORD) std::array<char, 32768> room;
    };

    std::map<int, std::unique_ptr<watch>> watches;
    std::set<std::pair<int, std::string>> open_files; // that are still being written
    std::vector<folder_change> found;
    int next_number = 1;

    ~state() {
        for (const auto& [number, one] : watches)
            end(*one);
        for (unsigned waits = 0; is_pending() && waits < most_waits_for_end; ++waits)
            SleepEx(look_interval, TRUE);
        // What the system may still write to must stay.
        for (auto& [number, one] : watches)
            if (one->pending)
                static_cast<void>(one.release());
    }

    [[nodiscard]] bool is_pending() const {
        return std::any_of(watches.begin(), watches.end(),
                           [](const auto& one) { return one.second->pending; });
    }

    static void end(watch& one) {
        one.ended = true;
        if (one.pending)
            CancelIo(one.folder.get());
    }

    static void CALLBACK on_change(DWORD code, DWORD size, OVERLAPPED* request) {
        watch& one = *static_cast<watch*>(request->hEvent);
        one.pending = false;
        if (one.ended)
            return;
        if (code == ERROR_SUCCESS && size == 0)
            one.owner->found.push_back({});
        else if (code == ERROR_SUCCESS)
            one.owner->take(one);
        if (!ask(one))
            one.owner->lose(one);
    }

    static bool ask(watch& one) {
        if (!one.files)
            return true;
        one.request = {};
        one.request.hEvent = &one; // free for the caller's use, as there is a routine to call
        one.pending = succeeded(ReadDirectoryChangesW(
            one.folder.get(), one.room.data(), static_cast<DWORD>(one.room.size()), FALSE,
            FILE_NOTIFY_CHANGE_FILE_NAME | FILE_NOTIFY_CHANGE_SIZE | FILE_NOTIFY_CHANGE_LAST_WRITE, nullptr,
            &one.request, on_change));
        return one.pending;
    }

    void lose(watch& one) {
        if (!one.ended)
            found.push_back({folder_event::lost, one.number, ""});
        end(one);
    }

    void take(const watch& one) {
        for (std::size_t at = 0;;) {
            const auto& change = *reinterpret_cast<const FILE_NOTIFY_INFORMATION*>(one.room.data() + at);
            take(one, change.Action, name_of(change));
            if (change.NextEntryOffset == 0)
                return;
            at += change.NextEntryOffset;
        }
    }

    void take(const watch& one, DWORD action, const std::string& name) {
        const std::string path = one.path + "\\" + name;
        const auto tell = [&](folder_event what) { found.push_back({what, one.number, name}); };
        if (action == FILE_ACTION_REMOVED || action == FILE_ACTION_RENAMED_OLD_NAME) {
            open_files.erase({one.number, name});
            tell(folder_event::gone);
            return;
        }
        const DWORD attributes = GetFileAttributesA(path.c_str());
        if (attributes != INVALID_FILE_ATTRIBUTES && attributes & FILE_ATTRIBUTE_DIRECTORY)
            return;
        if (action == FILE_ACTION_RENAMED_NEW_NAME || is_being_written(path) == false) {
            open_files.erase({one.number, name});
            tell(folder_event::completed);
        } else {
            open_files.insert({one.number, name});
            if (action == FILE_ACTION_ADDED)
                tell(folder_event::appeared);
        }
    }

    // Of what nobody tells.
    void look() {
        std::erase_if(open_files, [&](const auto& file) {
            const auto one = watches.find(file.first);
            if (one == watches.end() || one->second->ended)
                return true;
            const auto written = is_being_written(one->second->path + "\\" + file.second);
            if (written == false)
                found.push_back({folder_event::completed, file.first, file.second});
            return written != true;
        });
        for (const auto& [number, one] : watches)
            if (!one->ended && !is_there(*one))
                lose(*one);
        std::erase_if(watches, [](const auto& one) { return one.second->ended && !one.second->pending; });
    }

    static bool is_there(const watch& one) {
        const handle now = open_folder(one.path);
        return now.is_open() && id_of(now.get()) == one.id;
    }
};

folder_watch::folder_watch() noexcept = default;
folder_watch::~folder_watch() = default;

bool folder_watch::open() {
    m_state = std::make_unique<state>();
    return true;
}

std::optional<int> folder_watch::add(std::string_view path, bool files) {
    const std::string native = native_path(path);
    if (!m_state || native.empty()) {
        fail(m_state ? error::path_not_found : error::invalid_handle);
        return std::nullopt;
    }
    auto fresh = std::make_unique<state::watch>();
    fresh->owner = m_state.get();
    fresh->path = native.c_str();
    fresh->folder = open_folder(native);
    const auto id = fresh->folder.is_open() ? id_of(fresh->folder.get()) : std::nullopt;
    if (!id) {
        fail_last();
        return std::nullopt;
    }
    fresh->id = *id;
    fresh->files = files;
    for (const auto& [number, one] : m_state->watches)
        if (!one->ended && one->id == fresh->id && one->path == fresh->path && one->files == files)
            return number;
    if (!state::ask(*fresh))
        return std::nullopt;
    const int number = fresh->number = m_state->next_number++;
    m_state->watches.emplace(number, std::move(fresh));
    return number;
}

void folder_watch::remove(int folder) noexcept {
    if (!m_state)
        return;
    if (const auto one = m_state->watches.find(folder); one != m_state->watches.end())
        state::end(*one->second);
}

folder_wait folder_watch::wait(std::uint32_t milliseconds, std::vector<folder_change>& changes) {
    if (!m_state) {
        fail(error::invalid_handle);
        return folder_wait::failed;
    }
    std::vector<folder_change>& found = m_state->found;
    for (std::uint32_t waited = 0;;) {
        if (stop_requested())
            return folder_wait::stopped;
        m_state->look();
        if (!found.empty()) {
            const auto end =
                found.begin() + static_cast<std::ptrdiff_t>(std::min(found.size(), most_changes));
            changes.insert(changes.end(), found.begin(), end);
            found.erase(found.begin(), end);
            return folder_wait::changed;
        }
        if (waited >= milliseconds)
            return folder_wait::timed_out;
        const std::uint32_t slice = std::min(milliseconds - waited, look_interval);
        const HANDLE stop = stop_event.load();
        const DWORD outcome = stop ? WaitForSingleObjectEx(stop, slice, TRUE) : SleepEx(slice, TRUE);
        if (outcome != WAIT_IO_COMPLETION)
            waited += slice;
    }
}

bool folder_watch::take_stop_requests() {
    if (!stop_event.load()) {
        const HANDLE made = CreateEventA(nullptr, TRUE, FALSE, nullptr);
        if (!made)
            return fail_last();
        stop_event.store(made);
    }
    return succeeded(SetConsoleCtrlHandler(on_stop, TRUE));
}

bool folder_watch::stop_requested() noexcept {
    return stop_seen.load();
}

std::optional<bool> is_being_written(std::string_view path) {
    // Refused while there is a writer. One that comes at this very moment is refused in his turn, and tries
    // again.
    const handle file(CreateFileA(native_path(path).c_str(), GENERIC_READ,
                                  FILE_SHARE_READ | FILE_SHARE_DELETE, nullptr, OPEN_EXISTING, 0, nullptr));
    if (file.is_open())
        return false;
    if (GetLastError() == ERROR_SHARING_VIOLATION)
        return true;
    fail_last();
    return std::nullopt;
}

} // namespace tvr::platform
