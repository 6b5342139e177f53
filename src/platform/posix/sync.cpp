#include "platform/sync.h"

#include "platform/error.h"
#include "platform/posix/errors.h"
#include "platform/posix/futex.h"
#include "platform/posix/shared_page.h"

#include <algorithm>
#include <array>
#include <bit>
#include <cstring>
#include <optional>
#include <system_error>
#include <thread>

namespace tvr::platform {

using posix::futex_scope;
using posix::shared_page;

std::uint32_t current_thread_id() noexcept {
    return static_cast<std::uint32_t>(::gettid());
}

// --- threads ---

struct thread::state {
    std::atomic<std::uint32_t> ended{0};
};

bool thread::start(std::function<std::uint32_t()> body) {
    auto fresh = std::make_shared<state>();
    try {
        std::thread([fresh, body = std::move(body)] {
            body();
            fresh->ended.store(1);
            posix::futex_wake_all(fresh->ended, futex_scope::process);
        }).detach();
    } catch (const std::system_error&) {
        set_last_error(error::not_enough_memory);
        return false;
    }
    m_state = std::move(fresh);
    return true;
}

bool thread::running() const noexcept {
    return m_state && m_state->ended.load() == 0;
}

void thread::join() {
    const std::shared_ptr<state> joined = m_state;
    while (joined && joined->ended.load() == 0)
        posix::futex_wait(joined->ended, 0, futex_scope::process, nullptr);
}

// --- the table of named events ---

namespace {

constexpr std::size_t slot_count = 64;
constexpr std::size_t max_name = 100;
constexpr std::uint32_t table_magic = 0x31564554;
constexpr std::uint32_t allocation_patience = 10'000; // milliseconds

// One file for all named events of the user. Set, reset and wait work on the two atomic words without a
// lock, so a process may die in any of them and leaves a valid table; names are touched only under the
// allocation lock. A slot counts only while somebody holds its lock: the rest of its bytes may be
// anything.
struct event_table {
    std::uint32_t magic;
    std::atomic<std::uint32_t> generation; // counts the raises; waiters sleep on it
    std::atomic<std::uint64_t> signalled;  // bit n: the event in slot n
    struct {
        std::uint32_t length;
        std::array<char, max_name> name;
    } slots[slot_count];
};
static_assert(std::atomic<std::uint64_t>::is_always_lock_free && sizeof(event_table) == 16 + 64 * 104);

constexpr off_t allocation_byte = 0x10000;
constexpr off_t slot_byte(std::size_t slot) {
    return 0x10100 + static_cast<off_t>(slot);
}

class allocation_lock {
public:
    explicit allocation_lock(const shared_page& page) : m_page(page) {
        // The lock is held for microseconds, but its holder may have been stopped: no endless wait.
        const timespec until = posix::monotonic_after(allocation_patience);
        timespec pause{0, 20'000};
        while (!(m_taken = page.try_lock(shared_page::lock_kind::exclusive, allocation_byte)) &&
               !posix::monotonic_passed(until)) {
            nanosleep(&pause, nullptr);
            pause.tv_nsec = std::min(pause.tv_nsec * 2, 2'000'000L);
        }
    }
    ~allocation_lock() {
        if (m_taken)
            m_page.unlock(allocation_byte);
    }
    allocation_lock(const allocation_lock&) = delete;
    allocation_lock& operator=(const allocation_lock&) = delete;
    [[nodiscard]] bool taken() const { return m_taken; }

private:
    const shared_page& m_page;
    bool m_taken = false;
};

bool held_by_other(const shared_page& page, std::size_t slot) {
    return page.locked_by_other(shared_page::lock_kind::exclusive, slot_byte(slot));
}

// Makes an empty table of a new or damaged file, but never under the feet of a holder.
bool prepare_table(const shared_page& page, event_table& table) {
    if (table.magic == table_magic)
        return true;
    for (std::size_t slot = 0; slot < slot_count; ++slot)
        if (held_by_other(page, slot))
            return false;
    for (auto& slot : table.slots)
        slot = {};
    table.signalled.store(0);
    table.magic = table_magic;
    return true;
}

// Finds the slot that somebody holds under this name, or makes one of a slot that nobody holds.
std::optional<std::size_t> find_or_claim(const shared_page& page, event_table& table, std::string_view name) {
    for (std::size_t slot = 0; slot < slot_count; ++slot) {
        const auto& entry = table.slots[slot];
        if (entry.length == name.size() && std::memcmp(entry.name.data(), name.data(), name.size()) == 0 &&
            held_by_other(page, slot))
            return slot;
    }
    for (std::size_t slot = 0; slot < slot_count; ++slot) {
        if (held_by_other(page, slot))
            continue;
        auto& entry = table.slots[slot];
        entry.length = static_cast<std::uint32_t>(name.size());
        std::copy(name.begin(), name.end(), entry.name.begin());
        table.signalled.fetch_and(~(std::uint64_t{1} << slot));
        return slot;
    }
    return std::nullopt;
}

// Guards the unnamed events, and every event's pointer to its state. Trivial to destroy, as is the
// generation: threads may still wait when the process ends.
constinit std::mutex event_guard;
constinit std::atomic<std::uint32_t> unnamed_generation{0};
// Orders a raise before its wait between threads of one process that map the table twice.
constinit std::atomic<std::uint32_t> named_order{0};

} // namespace

// --- events ---

struct event::state {
    bool named = false;
    // unnamed, under event_guard
    bool manual = false;
    bool signalled = false;
    // named
    shared_page page;
    std::uint64_t bit = 0;

    [[nodiscard]] event_table& table() const { return *static_cast<event_table*>(page.data()); }

    bool open_slot(std::string_view name) {
        const std::string path = posix::runtime_file("events");
        if (path.empty() || !page.open(path, true))
            return false;
        const allocation_lock allocation(page);
        if (!allocation.taken())
            return posix::fail(error::lock_violation);
        if (!page.reserve(sizeof(event_table)) || !page.map(sizeof(event_table)))
            return false;
        if (!prepare_table(page, table()))
            return posix::fail(error::file_invalid);
        const auto slot = find_or_claim(page, table(), name);
        if (!slot || !page.try_lock(shared_page::lock_kind::shared, slot_byte(*slot)))
            return posix::fail(error::no_system_resources);
        named = true;
        bit = std::uint64_t{1} << *slot;
        return true;
    }
};

event::event() noexcept = default;
event::~event() {
    close();
}

bool event::create(bool manual_reset) {
    auto fresh = std::make_shared<state>();
    fresh->manual = manual_reset;
    const std::lock_guard hold(event_guard);
    m_state.swap(fresh);
    return true;
}

bool event::create_named(std::string_view name) {
    close();
    if (name.empty() || name.size() > max_name)
        return posix::fail(name.empty() ? error::invalid_name : error::name_too_long);
    auto fresh = std::make_shared<state>();
    if (!fresh->open_slot(name))
        return false;
    const std::lock_guard hold(event_guard);
    m_state = std::move(fresh);
    return true;
}

void event::close() noexcept {
    std::shared_ptr<state> closed;
    const std::lock_guard hold(event_guard);
    m_state.swap(closed);
}

bool event::is_open() const noexcept {
    const std::lock_guard hold(event_guard);
    return m_state != nullptr;
}

void event::set() noexcept {
    std::shared_ptr<state> held;
    {
        const std::lock_guard hold(event_guard);
        held = m_state;
        if (!held)
            return;
        if (!held->named) {
            held->signalled = true;
            unnamed_generation.fetch_add(1);
        }
    }
    if (!held->named) {
        posix::futex_wake_all(unnamed_generation, futex_scope::process);
        return;
    }
    event_table& table = held->table();
    named_order.fetch_add(1);
    table.signalled.fetch_or(held->bit);
    // deliberate: also when it was signalled already. Who signalled it, or was woken for it, may have been
    // killed before the next step.
    table.generation.fetch_add(1);
    posix::futex_wake_all(table.generation, futex_scope::shared);
}

void event::reset() noexcept {
    std::shared_ptr<state> held;
    const std::lock_guard hold(event_guard);
    held = m_state;
    if (held && held->named)
        held->table().signalled.fetch_and(~held->bit);
    else if (held)
        held->signalled = false;
}

bool event::is_signalled() const noexcept {
    std::shared_ptr<state> held;
    const std::lock_guard hold(event_guard);
    held = m_state;
    return held && (held->named ? (held->table().signalled.load() & held->bit) != 0 : held->signalled);
}

bool event::wait(std::uint32_t milliseconds) {
    event* const self = this;
    return wait_any({&self, 1}, milliseconds) == 0;
}

namespace {

using held_states = std::span<const std::shared_ptr<event::state>>;

// Takes the first signalled event and returns its index, or wait_timeout if there is none. One exchange
// decides over all of them, so that an event raised first is never passed over.
std::uint32_t take_named(held_states states) {
    event_table& table = states[0]->table();
    std::uint64_t seen = table.signalled.load();
    for (;;) {
        const auto first =
            std::find_if(states.begin(), states.end(), [&](const auto& state) { return seen & state->bit; });
        if (first == states.end())
            return wait_timeout;
        if (table.signalled.compare_exchange_weak(seen, seen & ~(*first)->bit)) {
            named_order.load();
            return static_cast<std::uint32_t>(first - states.begin());
        }
    }
}

std::uint32_t take_unnamed(held_states states) {
    const std::lock_guard hold(event_guard);
    const auto first =
        std::find_if(states.begin(), states.end(), [](const auto& state) { return state->signalled; });
    if (first == states.end())
        return wait_timeout;
    if (!(*first)->manual)
        (*first)->signalled = false;
    return static_cast<std::uint32_t>(first - states.begin());
}

bool fit_together(held_states states) {
    const event::state& head = *states[0];
    return std::all_of(states.begin(), states.end(), [&](const auto& state) {
        return state->named == head.named && (!head.named || state->page.same_file(head.page));
    });
}

std::uint32_t failed_wait(std::uint32_t number) {
    set_last_error(number);
    return wait_failed;
}

} // namespace

std::uint32_t wait_any(std::span<event* const> events, std::uint32_t milliseconds) {
    // The states stay alive here whatever happens to the events.
    std::array<std::shared_ptr<event::state>, 64> copies;
    if (events.empty() || events.size() > copies.size())
        return failed_wait(error::invalid_parameter);
    {
        const std::lock_guard hold(event_guard);
        std::transform(events.begin(), events.end(), copies.begin(),
                       [](const event* e) { return e->m_state; });
    }
    const held_states states(copies.data(), events.size());
    if (std::find(states.begin(), states.end(), nullptr) != states.end())
        return failed_wait(error::invalid_handle);
    if (!fit_together(states))
        return failed_wait(error::invalid_parameter);

    const bool named = states[0]->named;
    std::atomic<std::uint32_t>& generation = named ? states[0]->table().generation : unnamed_generation;
    const timespec until = posix::monotonic_after(milliseconds);
    for (;;) {
        // The generation is read first: a raise that the look misses has changed it before the sleep.
        const std::uint32_t seen = generation.load();
        const std::uint32_t taken = named ? take_named(states) : take_unnamed(states);
        if (taken != wait_timeout)
            return taken;
        if (milliseconds != infinite && (milliseconds == 0 || posix::monotonic_passed(until)))
            return wait_timeout;
        posix::futex_wait(generation, seen, named ? futex_scope::shared : futex_scope::process,
                          milliseconds == infinite ? nullptr : &until);
    }
}

} // namespace tvr::platform
