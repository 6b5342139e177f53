#include "platform/sync.h"

#include <algorithm>
#include <array>

#include "platform/error.h"
#include "platform/win32/errors.h"
#include "platform/win32/handle.h"
#include "platform/win32/paths.h"

namespace tvr::platform {

std::uint32_t current_thread_id() noexcept {
    return GetCurrentThreadId();
}

// --- critical sections ---

namespace {

CRITICAL_SECTION* section_in(std::byte* room) {
    return reinterpret_cast<CRITICAL_SECTION*>(room);
}

} // namespace

native_lock::native_lock() noexcept {
    static_assert(sizeof m_section >= sizeof(CRITICAL_SECTION));
    InitializeCriticalSection(section_in(m_section));
}

native_lock::~native_lock() {
    DeleteCriticalSection(section_in(m_section));
}

void native_lock::lock() noexcept {
    EnterCriticalSection(section_in(m_section));
}

void native_lock::unlock() noexcept {
    LeaveCriticalSection(section_in(m_section));
}

// --- threads ---

struct thread::state {
    win32::handle handle;
};

namespace {

using thread_body = std::function<std::uint32_t()>;

DWORD WINAPI run_body(void* argument) {
    const std::unique_ptr<thread_body> body(static_cast<thread_body*>(argument));
    return (*body)();
}

} // namespace

bool thread::start(thread_body body) {
    auto fresh = std::make_shared<state>();
    auto handed_over = std::make_unique<thread_body>(std::move(body));
    fresh->handle = win32::handle(CreateThread(nullptr, 0, run_body, handed_over.get(), 0, nullptr));
    if (!fresh->handle.is_open())
        return win32::fail_last();
    static_cast<void>(handed_over.release());
    m_state = std::move(fresh);
    return true;
}

bool thread::running() const noexcept {
    return m_state && WaitForSingleObject(m_state->handle.get(), 0) == WAIT_TIMEOUT;
}

void thread::join() {
    if (const std::shared_ptr<state> joined = m_state)
        WaitForSingleObject(joined->handle.get(), INFINITE);
}

// --- events ---

namespace {

constexpr std::size_t longest_name = 100;

// Guards every event's pointer to its state.
SRWLOCK event_guard = SRWLOCK_INIT;

class guard_scope {
public:
    guard_scope() noexcept { AcquireSRWLockExclusive(&event_guard); }
    ~guard_scope() { ReleaseSRWLockExclusive(&event_guard); }
    guard_scope(const guard_scope&) = delete;
    guard_scope& operator=(const guard_scope&) = delete;
};

} // namespace

struct event::state {
    win32::handle handle;
    bool named = false;
};

event::event() noexcept = default;
event::~event() {
    close();
}

bool event::create(bool manual_reset) {
    close();
    auto fresh = std::make_shared<state>();
    fresh->handle = win32::handle(CreateEventA(nullptr, manual_reset, FALSE, nullptr));
    if (!fresh->handle.is_open())
        return win32::fail_last();
    const guard_scope hold;
    m_state = std::move(fresh);
    return true;
}

bool event::create_named(std::string_view name) {
    close();
    if (name.empty() || name.size() > longest_name)
        return win32::fail(name.empty() ? error::invalid_name : error::name_too_long);
    auto fresh = std::make_shared<state>();
    const std::string own = std::string(name) + win32::root_mark();
    fresh->handle = win32::handle(CreateEventA(nullptr, FALSE, FALSE, own.c_str()));
    fresh->named = true;
    if (!fresh->handle.is_open())
        return win32::fail_last();
    const guard_scope hold;
    m_state = std::move(fresh);
    return true;
}

void event::close() noexcept {
    std::shared_ptr<state> closed;
    const guard_scope hold;
    m_state.swap(closed);
}

bool event::is_open() const noexcept {
    const guard_scope hold;
    return m_state != nullptr;
}

void event::set() noexcept {
    const guard_scope hold;
    if (m_state)
        SetEvent(m_state->handle.get());
}

void event::reset() noexcept {
    const guard_scope hold;
    if (m_state)
        ResetEvent(m_state->handle.get());
}

bool event::is_signalled() const noexcept {
    // The interface for programs can ask an event only by taking it.
    struct event_facts {
        int kind;
        LONG signalled;
    };
    using function = LONG(WINAPI*)(HANDLE event, int what, void* facts, ULONG size, ULONG* taken);
    static const auto query = reinterpret_cast<function>(
        reinterpret_cast<void*>(GetProcAddress(GetModuleHandleA("ntdll.dll"), "NtQueryEvent")));
    constexpr int basic_facts = 0;
    event_facts facts{};
    const guard_scope hold;
    return m_state && query &&
           query(m_state->handle.get(), basic_facts, &facts, sizeof facts, nullptr) >= 0 &&
           facts.signalled != 0;
}

bool event::wait(std::uint32_t milliseconds) {
    event* const self = this;
    return wait_any({&self, 1}, milliseconds) == 0;
}

namespace {

std::uint32_t failed_wait(std::uint32_t number) {
    win32::fail(number);
    return wait_failed;
}

} // namespace

std::uint32_t wait_any(std::span<event* const> events, std::uint32_t milliseconds) {
    // The states stay alive here whatever happens to the events.
    std::array<std::shared_ptr<event::state>, MAXIMUM_WAIT_OBJECTS> copies;
    std::array<HANDLE, MAXIMUM_WAIT_OBJECTS> handles{};
    if (events.empty() || events.size() > copies.size())
        return failed_wait(error::invalid_parameter);
    {
        const guard_scope hold;
        std::transform(events.begin(), events.end(), copies.begin(),
                       [](const event* e) { return e->m_state; });
    }
    for (std::size_t i = 0; i < events.size(); ++i) {
        if (!copies[i])
            return failed_wait(error::invalid_handle);
        handles[i] = copies[i]->handle.get();
    }
    for (std::size_t i = 0; i < events.size(); ++i)
        if (copies[i]->named != copies[0]->named)
            return failed_wait(error::invalid_parameter);
    const DWORD answer =
        WaitForMultipleObjects(static_cast<DWORD>(events.size()), handles.data(), FALSE, milliseconds);
    if (answer == WAIT_FAILED)
        win32::fail_last();
    return answer;
}

} // namespace tvr::platform
