#include "torture/file_changes.h"

#include <algorithm>
#include <cerrno>
#include <csignal>
#include <cstdarg>
#include <fcntl.h>
#include <filesystem>
#include <memory>
#include <mutex>
#include <new>
#include <regex>
#include <stdexcept>
#include <sys/mman.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <unistd.h>

#include "platform/change_hook.h"
#include "torture/power_cut.h"

namespace tvr::torture {

namespace {

plan the_plan;
std::string the_root; // with a trailing slash; empty: nothing is watched
thread_local bool is_spared = false;
thread_local bool was_asked = false; // the hook, since the last change of this thread

void put(board::entry& entry, std::string_view what, std::string_view path) {
    entry = {};
    what.copy(entry.what.data(), entry.what.size() - 1);
    path.copy(entry.path.data(), entry.path.size() - 1);
}

[[noreturn]] void die() {
    kill(getpid(), SIGKILL);
    for (;;)
        pause();
}

std::unique_ptr<disk_image> the_disk; // while the power may go
std::mutex disk_lock;

// Before each point. Nothing goes on after a cut.
void count_point() {
    if (shared_board().points++ != the_plan.index || !the_disk)
        return;
    is_spared = true;
    const auto states = the_disk->states();
    for (auto each = states.begin(); each != states.end(); ++each)
        for (const auto& [path, bytes] : each->second) {
            const std::string& variant = each->first;
            if (std::any_of(states.begin(), each,
                            [&](const auto& other) { return other.second == each->second; }))
                break;
            const std::string full = the_plan.states + "/" + variant + "/" + path;
            if (path.ends_with('/'))
                std::filesystem::create_directories(full);
            else
                write_file(full, bytes);
        }
    die();
}

std::unique_lock<std::mutex> hold_disk() {
    return the_disk ? std::unique_lock(disk_lock) : std::unique_lock<std::mutex>();
}

bool watching() {
    return !the_root.empty() && !is_spared;
}

// The path below the root; empty if it lies elsewhere.
std::string_view below_root(std::string_view path) {
    return path.starts_with(the_root) ? path.substr(the_root.size()) : std::string_view();
}

std::string path_of(int file) {
    std::error_code ignored;
    return std::filesystem::read_symlink("/proc/self/fd/" + std::to_string(file), ignored);
}

bool exists(const char* path) {
    std::error_code ignored;
    return std::filesystem::exists(std::filesystem::symlink_status(path, ignored));
}

// Not shared memory, locks, and the folders that all the others lie in.
bool is_data(std::string_view path) {
    return !path.starts_with("run") && !path.ends_with(".lock") && path != "common" && path != "appdata";
}

// `half` does half of the change, if there is such a thing.
template <class Call, class Half>
auto made(std::string_view what, std::string_view full_path, Call call, Half half) {
    const std::string_view path = below_root(full_path);
    if (!watching() || path.empty())
        return call();
    const auto held = hold_disk();
    count_point();
    board& all = shared_board();
    const std::uint32_t number = all.begun++;
    if (!was_asked && is_data(path)) {
        ++all.unseen;
        put(all.hit, what, path);
    }
    was_asked = false;
    const bool is_met = the_plan.change.empty()
                            ? number == the_plan.index
                            : std::string(what).append(" ").append(path) == the_plan.change;
    const bool chosen = is_met && the_plan.what != fate::none && the_plan.what != fate::fail && !the_disk;
    if (chosen) {
        put(all.hit, what, path);
        if (the_plan.what == fate::halt) {
            halt();
        } else if (the_plan.what != fate::die_after) {
            if (the_plan.what == fate::die_within)
                half();
            die();
        }
    }
    const auto answer = call();
    const int code = errno;
    if (answer >= 0) {
        const std::uint32_t place = all.done++;
        if (place < board::most_changes)
            put(all.log[place], what, path);
    }
    if (chosen && the_plan.what == fate::die_after)
        die();
    errno = code;
    return answer;
}

template <class Call>
auto made(std::string_view what, std::string_view full_path, Call call) {
    return made(what, full_path, call, [] {});
}

template <class Call, class... Half>
auto made(std::string_view what, int file, Call call, Half... half) {
    return watching() ? made(what, path_of(file), call, half...) : call();
}

constexpr std::array<const char*, 11> hook_words = {"create", "write",  "cut",  "delete", "rename", "link",
                                                    "make",   "remove", "time", "mode",   "sync"};

std::uint32_t ask(platform::change what, std::string_view path) {
    if (!watching())
        return 0;
    was_asked = what != platform::change::make_durable;
    const std::uint32_t number = shared_board().asked++;
    if (the_plan.what != fate::fail || number != the_plan.index)
        return 0;
    std::string native(path);
    std::replace(native.begin(), native.end(), '\\', '/');
    put(shared_board().hit, hook_words.at(static_cast<std::size_t>(what)), below_root(native));
    was_asked = false;
    return the_plan.error;
}

// The lines that an endless round leaves in the log, over and over.
void look_for_rounds(const void* data, std::size_t size) {
    const std::string_view text(static_cast<const char*>(data), std::min<std::size_t>(size, 400));
    if (text.find("[-] something wrong with file") != std::string_view::npos)
        ++shared_board().no_batch;
    if (text.find("Stage doesn't prepared. Exiting") != std::string_view::npos)
        ++shared_board().no_marker;
}

} // namespace

const char* name_of(fate what) {
    constexpr std::array names = {"none", "before", "within", "after", "fails", "halts", "power cut before"};
    return names.at(static_cast<std::size_t>(what));
}

void board::clear() {
    for (auto* number :
         {&begun, &points, &asked, &unseen, &done, &halted, &resume, &idle, &no_batch, &no_marker, &verdict})
        *number = 0;
    hit = {};
}

std::vector<file_change> board::changes() const {
    if (done > most_changes)
        throw std::runtime_error("more changes than the board has room for");
    std::vector<file_change> all;
    for (std::uint32_t i = 0; i < done; ++i)
        all.push_back({log[i].what.data(), log[i].path.data()});
    return all;
}

file_change board::hit_change() const {
    return {hit.what.data(), hit.path.data()};
}

board& board_of(unsigned number) {
    static board* const all = [] {
        void* const memory =
            mmap(nullptr, 2 * sizeof(board), PROT_READ | PROT_WRITE, MAP_SHARED | MAP_ANONYMOUS, -1, 0);
        if (memory == MAP_FAILED)
            throw std::bad_alloc();
        return new (memory) board[2];
    }();
    return all[number];
}

board& shared_board() {
    return board_of(the_plan.board);
}

void arm(const plan& wanted, const std::string& root) {
    the_plan = wanted;
    the_root = root + "/";
    if (wanted.what == fate::cut_power)
        the_disk = std::make_unique<disk_image>(the_root);
    platform::set_change_hook(ask);
}

void tell_end() {
    const auto held = hold_disk();
    count_point();
}

void halt() {
    board& all = shared_board();
    all.halted = 1;
    while (all.resume == 0)
        usleep(500);
}

void wait_for_halt(const board& of_child) {
    while (of_child.halted == 0 && of_child.verdict == 0)
        usleep(500);
}

void spare(bool yes) {
    is_spared = yes;
}

std::string generic_name(std::string path) {
    static const std::regex temporary("(dis|tmp|msi|nsp|spa|set|bas)[0-9A-F]{8}\\.tmp");
    return std::regex_replace(path, temporary, "$1*.tmp");
}

} // namespace tvr::torture

// The functions themselves, in place of those of the C library.

#define TORTURE_EXPORT extern "C" __attribute__((visibility("default")))

using namespace tvr::torture;

namespace {

template <class Answer = int, class... Arguments>
Answer system_call(long number, Arguments... arguments) {
    return static_cast<Answer>(syscall(number, arguments...));
}

} // namespace

TORTURE_EXPORT int open(const char* path, int flags, ...) {
    mode_t mode = 0;
    if ((flags & (O_CREAT | O_TMPFILE)) != 0) {
        std::va_list rest;
        va_start(rest, flags);
        mode = va_arg(rest, mode_t);
        va_end(rest);
    }
    const auto call = [&] {
        const int made = system_call(SYS_openat, AT_FDCWD, path, flags, mode);
        if (the_disk && watching() && made >= 0 && (flags & O_CREAT) != 0)
            the_disk->created(made);
        return made;
    };
    return (flags & O_CREAT) == 0 || exists(path) ? call() : made("create", path, call);
}

TORTURE_EXPORT ssize_t pwrite(int file, const void* data, size_t size, off_t at) {
    const auto put = [&](size_t bytes) {
        if (the_disk && watching())
            the_disk->written(file, data, bytes, at);
        return system_call<ssize_t>(SYS_pwrite64, file, data, bytes, at);
    };
    if (watching())
        look_for_rounds(data, size);
    return made(
        "write", file, [&] { return put(size); }, [&] { put(size / 2); });
}

TORTURE_EXPORT ssize_t write(int file, const void* data, size_t size) {
    const auto put = [&](size_t bytes) { return system_call<ssize_t>(SYS_write, file, data, bytes); };
    return made(
        "write", file, [&] { return put(size); }, [&] { put(size / 2); });
}

TORTURE_EXPORT ssize_t copy_file_range(int from, off_t* from_at, int to, off_t* to_at, size_t size,
                                       unsigned flags) {
    const auto copy = [&](size_t bytes) {
        return system_call<ssize_t>(SYS_copy_file_range, from, from_at, to, to_at, bytes, flags);
    };
    return made(
        "copy", to, [&] { return copy(size); },
        [&] {
            struct stat info {};
            if (fstat(from, &info) == 0)
                copy(static_cast<size_t>(info.st_size) / 2);
        });
}

// Bringing to the disk is a point between two changes.
TORTURE_EXPORT int fsync(int file) {
    if (watching() && (path_of(file) + "/").starts_with(the_root)) {
        const auto held = hold_disk();
        count_point();
        if (the_disk)
            the_disk->synced(file);
    }
    return 0;
}

TORTURE_EXPORT int fdatasync(int file) {
    return fsync(file);
}

TORTURE_EXPORT int ftruncate(int file, off_t size) noexcept {
    return made("cut", file, [&] { return system_call(SYS_ftruncate, file, size); });
}

TORTURE_EXPORT int fallocate(int file, int mode, off_t from, off_t size) {
    return made("grow", file, [&] { return system_call(SYS_fallocate, file, mode, from, size); });
}

TORTURE_EXPORT int futimens(int file, const timespec* times) noexcept {
    return made("time", file, [&] { return system_call(SYS_utimensat, file, nullptr, times, 0); });
}

TORTURE_EXPORT int unlink(const char* path) noexcept {
    const auto call = [&] { return system_call(SYS_unlinkat, AT_FDCWD, path, 0); };
    return exists(path) ? made("delete", path, call) : call();
}

TORTURE_EXPORT int rmdir(const char* path) noexcept {
    return made("remove", path, [&] { return system_call(SYS_unlinkat, AT_FDCWD, path, AT_REMOVEDIR); });
}

TORTURE_EXPORT int mkdir(const char* path, mode_t mode) noexcept {
    const auto call = [&] { return system_call(SYS_mkdirat, AT_FDCWD, path, mode); };
    return exists(path) ? call() : made("make", path, call);
}

TORTURE_EXPORT int rename(const char* from, const char* to) noexcept {
    return renameat2(AT_FDCWD, from, AT_FDCWD, to, 0);
}

TORTURE_EXPORT int renameat2(int from_folder, const char* from, int to_folder, const char* to,
                             unsigned flags) noexcept {
    return made("rename", to, [&] {
        const int answer = system_call(SYS_renameat2, from_folder, from, to_folder, to, flags);
        if (the_disk && watching() && answer == 0)
            the_disk->renamed(from, to);
        return answer;
    });
}

TORTURE_EXPORT int link(const char* from, const char* to) noexcept {
    return made("link", to, [&] { return system_call(SYS_linkat, AT_FDCWD, from, AT_FDCWD, to, 0); });
}

TORTURE_EXPORT int linkat(int from_folder, const char* from, int to_folder, const char* to,
                          int flags) noexcept {
    return made("link", to, [&] { return system_call(SYS_linkat, from_folder, from, to_folder, to, flags); });
}

TORTURE_EXPORT int chmod(const char* path, mode_t mode) noexcept {
    return made("mode", path, [&] { return system_call(SYS_fchmodat, AT_FDCWD, path, mode); });
}
