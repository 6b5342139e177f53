// Folders in which files come and go, the wait for that, and the request that ends such a wait.
#pragma once

#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace tvr::platform {

enum class folder_event {
    appeared,  // a name came into being; its file may still be written
    completed, // a file that was open for writing was closed, or a file was moved to this name
    gone,      // the name was taken away
    lost,      // the folder itself went or was moved: it isn't watched any more
    overflow,  // events were dropped: anything may have happened in any folder
};

struct folder_change {
    folder_event what = folder_event::overflow;
    int folder = -1;  // as add() returned; -1 for overflow
    std::string name; // within the folder; empty for lost and overflow
};

enum class folder_wait { changed, timed_out, stopped, failed };

// One thread, but for stop_requested(). Failures return false or nothing, with the reason in last_error().
class folder_watch {
public:
    folder_watch() noexcept;
    ~folder_watch();
    folder_watch(const folder_watch&) = delete;
    folder_watch& operator=(const folder_watch&) = delete;

    bool open();
    // Watches the files of a folder, without the folders below it, and returns a number for it; or, without
    // `files`, only tells when it is lost. The folder that is watched under this path already keeps its
    // number; another one in its place gets a new one. 1450 if the system allows no more of them.
    std::optional<int> add(std::string_view path, bool files = true);
    // Late changes of a folder may still come in.
    void remove(int folder) noexcept;
    // Waits at most `milliseconds`, and appends what has happened since the last call, some thousand changes
    // at once. A rename within the watched folders is `gone` and then `completed`.
    folder_wait wait(std::uint32_t milliseconds, std::vector<folder_change>& changes);

    // From now on the first request to end this process (Ctrl-C, a closed terminal, a shutdown) makes every
    // wait() return `stopped` at once, now and later. The second one ends the process. Programs that are
    // started from here aren't affected.
    static bool take_stop_requests();
    [[nodiscard]] static bool stop_requested() noexcept;

private:
    struct state;
    std::unique_ptr<state> m_state;
};

// True while any process has the file open for writing; nothing if that can't be told: the file is
// missing, another user's, or on a file system that doesn't know.
std::optional<bool> is_being_written(std::string_view path);

} // namespace tvr::platform
