#include "platform/presence.h"

#include "platform/ascii.h"
#include "platform/error.h"
#include "platform/fnv.h"
#include "platform/posix/errors.h"
#include "platform/posix/futex.h"
#include "platform/posix/paths.h"
#include "platform/posix/shared_page.h"
#include "platform/process.h"

#include <algorithm>
#include <array>
#include <atomic>
#include <dirent.h>
#include <mutex>
#include <string>
#include <vector>

namespace tvr::platform {

using posix::futex_scope;
using posix::shared_page;

namespace {

constexpr std::uint32_t first_message = 0xC000; // up to 0xFFFF
constexpr std::uint32_t message_count = 0x4000;
constexpr std::string_view file_prefix = "presence.";
constexpr std::size_t max_file_name = 200;
constexpr std::uint32_t death_check = 50;     // milliseconds
constexpr std::uint32_t orphan_check = 5'000; // milliseconds

// What an owner shares with the others. It means something only while the owner holds the present lock.
struct presence_page {
    std::atomic<std::uint32_t> generation; // counts the requests; owner and closers sleep on it
    std::atomic<std::uint32_t> owner;      // number of the owner since the file was made, never 0
    std::atomic<std::uint32_t> process_id;
    std::atomic<std::uint32_t> visible;
    // The number of the owner that is to close: a late request can't hit the next owner.
    std::atomic<std::uint32_t> close_request;
    // One bit for each private message, so that no message hides another.
    std::array<std::atomic<std::uint32_t>, message_count / 32> messages;

    void wake() {
        generation.fetch_add(1);
        posix::futex_wake_all(generation, futex_scope::shared);
    }
};
static_assert(sizeof(presence_page) == 20 + 2048);

// The owner takes `owning` first, prepares the page, and then takes `present`, which is what the others
// look at. Both go in one step, by its hand or by its death.
constexpr off_t owning = 0x10000;
constexpr off_t present = 0x10001;

bool is_message(std::uint32_t number) {
    return number >= first_message && number < first_message + message_count;
}

std::atomic<std::uint32_t>& message_word(presence_page& page, std::uint32_t number) {
    return page.messages[(number - first_message) / 32];
}

std::uint32_t message_bit(std::uint32_t number) {
    return 1U << number % 32;
}

void append_safe(std::string& out, std::string_view text) {
    constexpr std::string_view digits = "0123456789abcdef";
    for (const char c : text) {
        const auto byte = static_cast<unsigned char>(c);
        if (is_letter(c) || is_digit(c)) {
            out += c;
        } else {
            out += '_';
            out += digits[byte >> 4];
            out += digits[byte & 15];
        }
    }
}

// Different names give different files. Empty if the name is too long.
std::string file_name(std::string_view class_name, std::string_view title) {
    std::string name(file_prefix);
    append_safe(name, class_name);
    name += '.';
    append_safe(name, title);
    return name.size() <= max_file_name ? name : std::string();
}

// Also empty if there is no run-time folder.
std::string presence_file(std::string_view class_name, std::string_view title) {
    const std::string name = file_name(class_name, title);
    return name.empty() ? name : posix::runtime_file(name);
}

// The present owner's page, if there is an owner.
class other_presence {
public:
    explicit other_presence(const std::string& path) {
        if (!path.empty() && m_page.open(path, false) && alive() && m_page.map(sizeof(presence_page)))
            m_data = static_cast<presence_page*>(m_page.data());
    }
    [[nodiscard]] bool found() const { return m_data != nullptr; }
    [[nodiscard]] bool alive() const {
        return m_page.locked_by_other(shared_page::lock_kind::shared, present);
    }
    presence_page* operator->() const { return m_data; }
    presence_page& operator*() const { return *m_data; }

private:
    shared_page m_page;
    presence_page* m_data = nullptr;
};

} // namespace

std::uint32_t register_private_message(std::string_view name) noexcept {
    if (name.empty())
        return 0;
    const std::uint32_t hash = fnv_32(name);
    return first_message + (hash ^ hash >> 14 ^ hash >> 28) % message_count;
}

void prepare_controls() noexcept {}

// --- the owner ---

namespace {

// What post_quit() reaches of a window; its address stands for the window.
struct window_loop {
    presence_page* page = nullptr;
    std::atomic<bool> told_to_quit{false};
};

// The windows of this process, so that a late request for one that is gone finds nothing. Never destroyed:
// other threads may still ask while the process ends.
constinit std::mutex windows_guard;
std::vector<window_loop*>& windows() {
    static auto* const list = new std::vector<window_loop*>;
    return *list;
}

} // namespace

struct presence::state {
    shared_page page;
    // Where the run-time folder is one of a session: its namesake in the lasting folder, locked too. So the
    // owner stays the only one when the session ends, and until it has noticed.
    shared_page guard;
    std::uint32_t owner = 0;
    std::uint32_t private_message = 0;
    std::uint32_t previous_process = 0;
    window_loop loop;

    state() = default;
    state(const state&) = delete;
    state& operator=(const state&) = delete;
    ~state() {
        {
            const std::lock_guard hold(windows_guard);
            std::erase(windows(), &loop);
        }
        if (owner == 0)
            return;
        page.unlock(owning, 2);
        shared().wake();
    }

    [[nodiscard]] presence_page& shared() const { return *static_cast<presence_page*>(page.data()); }

    bool take(const std::string& name) {
        const std::string path = name.empty() ? name : posix::runtime_file(name);
        if (path.empty() || !page.open(path, true))
            return false;
        const std::string lasting = posix::native_lasting_runtime_folder() + "/" + name;
        if (lasting != path && guard.open(lasting, true) &&
            !guard.try_lock(shared_page::lock_kind::exclusive, owning))
            return posix::fail(error::already_exists);
        if (!page.try_lock(shared_page::lock_kind::exclusive, owning))
            return posix::fail(error::already_exists);
        if (!page.reserve(sizeof(presence_page)) || !page.map(sizeof(presence_page)))
            return false;
        std::uint32_t number = shared().owner.load() + 1;
        number += number == 0;
        shared().owner.store(number);
        previous_process = shared().process_id.exchange(current_process_id());
        shared().visible.store(0);
        shared().close_request.store(0);
        for (auto& word : shared().messages)
            word.store(0);
        if (!page.try_lock(shared_page::lock_kind::exclusive, present))
            return false;
        owner = number;
        const std::lock_guard hold(windows_guard);
        loop.page = &shared();
        windows().push_back(&loop);
        return true;
    }

    [[nodiscard]] bool told_to_exit() const {
        return is_message(private_message) &&
               (message_word(shared(), private_message).load() & message_bit(private_message)) != 0;
    }
};

presence::presence() noexcept = default;
presence::~presence() = default;

bool presence::create(std::string_view class_name, std::string_view title) {
    auto fresh = std::make_unique<state>();
    if (!fresh->take(file_name(class_name, title)))
        return false;
    m_state = std::move(fresh);
    return true;
}

void presence::set_private_message(std::uint32_t number) noexcept {
    if (m_state)
        m_state->private_message = number;
}

void presence::set_visible(bool visible) noexcept {
    if (m_state)
        m_state->shared().visible.store(visible ? 1 : 0);
}

std::uint32_t presence::previous_process() const noexcept {
    return m_state ? m_state->previous_process : 0;
}

window_handle presence::window() const noexcept {
    return m_state ? reinterpret_cast<window_handle>(&m_state->loop) : 0;
}

void post_quit(window_handle window) noexcept {
    const std::lock_guard hold(windows_guard);
    const auto found = std::ranges::find(windows(), reinterpret_cast<window_loop*>(window));
    if (found == windows().end())
        return;
    (*found)->told_to_quit.store(true);
    (*found)->page->wake();
}

void presence::run() {
    if (!m_state)
        return;
    presence_page& shared = m_state->shared();
    for (;;) {
        const std::uint32_t seen = shared.generation.load();
        if (m_state->told_to_exit())
            exit_process(-1);
        // With the folder of a session that has ended nobody finds this owner any more, but for a next one.
        if (m_state->loop.told_to_quit.load() || shared.close_request.load() == m_state->owner ||
            m_state->page.is_orphan())
            break;
        const timespec until = posix::monotonic_after(orphan_check);
        posix::futex_wait(shared.generation, seen, futex_scope::shared, &until);
    }
    m_state.reset();
}

// --- the others ---

presence_info find_presence(std::string_view class_name, std::string_view title) {
    const other_presence other(presence_file(class_name, title));
    if (!other.found())
        return {};
    return {true, other->visible.load() != 0, other->process_id.load()};
}

void close_presence(std::string_view class_name, std::string_view title) {
    const other_presence other(presence_file(class_name, title));
    if (!other.found())
        return;
    const std::uint32_t owner = other->owner.load();
    for (bool asked = false; other.alive() && other->owner.load() == owner; asked = true) {
        // Asked again if the request was overwritten by one for an earlier owner.
        const std::uint32_t seen = other->generation.load();
        if (other->close_request.exchange(owner) != owner || !asked) {
            other->wake();
            continue;
        }
        const timespec until = posix::monotonic_after(death_check);
        posix::futex_wait(other->generation, seen, futex_scope::shared, &until);
    }
}

void broadcast_private_message(std::uint32_t number) {
    const std::string folder = posix::native_runtime_folder();
    if (!is_message(number) || folder.empty())
        return;
    const std::unique_ptr<DIR, int (*)(DIR*)> list(opendir(folder.c_str()), closedir);
    if (!list)
        return;
    while (const dirent* entry = readdir(list.get())) {
        const std::string_view name = entry->d_name;
        if (!name.starts_with(file_prefix))
            continue;
        const other_presence other(posix::runtime_file(name));
        if (!other.found())
            continue;
        message_word(*other, number).fetch_or(message_bit(number));
        other->wake();
    }
}

} // namespace tvr::platform
