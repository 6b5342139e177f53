// What an onlooker can see of the engine: its process, its cache, its dictionaries and its published base.
#pragma once

#include <cstdint>
#include <functional>
#include <optional>
#include <string>
#include <vector>

#include "common/file_names.h"

namespace tvr {

struct half_view {
    std::uint32_t atoms = 0;
    std::uint64_t messages = 0;
    std::uint64_t tokens = 0; // a token in three atoms counts three times
    std::uint32_t oldest = 0; // minutes since 1601; 0 if there is no message
    std::uint32_t newest = 0;
};

struct base_view {
    std::uint64_t bytes = 0;
    std::uint32_t tokens = 0;
    std::uint32_t spam_messages = 0;
    std::uint32_t ham_messages = 0;
    std::uint64_t published = 0; // 100 ns units since 1601; 0 if the time mark is missing
};

// Nothing here changes or holds a file that the engine works on.
class engine_view {
public:
    // Milliseconds until an engine that was started is there and listens; a laden machine may need long.
    static constexpr std::uint32_t start_patience = 30000;

    explicit engine_view(std::string working_directory); // with a trailing backslash

    // The engine's process id, or 0.
    [[nodiscard]] static std::uint32_t process_id();
    // Asks every 10 milliseconds until the answer is yes. False if it isn't within `patience` milliseconds.
    static bool wait_until(std::uint32_t patience, const std::function<bool()>& condition);
    // Waits until a process that was the engine has ended: one that nobody finds any more still works for a
    // second. False if it doesn't within half a minute.
    static bool wait_for_end(std::uint32_t process);

    [[nodiscard]] std::uint64_t waiting() const;    // messages of the cache that weren't taken back
    [[nodiscard]] std::uint64_t cache_size() const; // bytes; 0 if there is none
    [[nodiscard]] bool snapshot_exists() const;     // messages taken, but not yet in a stage
    // What a transaction does next, in words, or null if none is under way.
    [[nodiscard]] const char* stage() const;
    // What the engine still has to do, for a person; empty if nothing waits and no training is under way.
    // Exact while the caller holds the cache's lock.
    [[nodiscard]] std::string work_left() const;
    // When the engine, this process, was last seen busy: 100 ns units since 1601. It has begun, published a
    // base, or something in the cache was changed.
    [[nodiscard]] std::uint64_t last_busy(std::uint32_t process) const;

    [[nodiscard]] half_view half(const std::string& name) const; // "spamdict" or "nspamdict"
    [[nodiscard]] std::optional<base_view> base() const;
    // What is wrong with the published base; empty if there is none, or it is whole.
    [[nodiscard]] std::string base_fault() const;
    // Why the engine doesn't begin with what waits, for a person; empty if nothing hinders it.
    [[nodiscard]] std::string room_fault() const;
    [[nodiscard]] std::uint64_t stamp() const; // of the published base; 0 if there is none
    [[nodiscard]] std::string base_path() const { return m_base + names::base; }

    [[nodiscard]] const std::string& working_directory() const noexcept { return m_working; }

private:
    [[nodiscard]] bool has_marker(std::uint32_t stage) const;

    std::string m_working;
    std::string m_base;
    std::string m_transact;
};

} // namespace tvr
