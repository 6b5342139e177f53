// How much memory this program has from new, which this replaces: for one source file of a program.
#pragma once

#include <atomic>
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <new>

namespace {

std::atomic<std::size_t> bytes_in_use{0}; // bytes that new has given out and not got back
std::atomic<std::size_t> most_bytes{0};

constexpr std::size_t room = alignof(std::max_align_t); // before each piece, for its size

} // namespace

// Not inlined: g++ would take malloc() and free() for the other half of a foreign pair.
[[gnu::noinline]] void* operator new(std::size_t size, const std::nothrow_t&) noexcept {
    char* piece = size < SIZE_MAX - room ? static_cast<char*>(std::malloc(size + room)) : nullptr;
    if (!piece)
        return nullptr;
    std::memcpy(piece, &size, sizeof size);
    const std::size_t now = bytes_in_use += size;
    for (std::size_t most = most_bytes; most < now && !most_bytes.compare_exchange_weak(most, now);)
        continue;
    return piece + room;
}
void* operator new(std::size_t size) {
    void* memory = operator new(size, std::nothrow);
    return memory ? memory : throw std::bad_alloc();
}
[[gnu::noinline]] void operator delete(void* memory) noexcept {
    if (!memory)
        return;
    char* piece = static_cast<char*>(memory) - room;
    std::size_t size = 0;
    std::memcpy(&size, piece, sizeof size);
    bytes_in_use -= size;
    std::free(piece);
}
void operator delete(void* memory, std::size_t) noexcept {
    operator delete(memory);
}
void operator delete(void* memory, const std::nothrow_t&) noexcept {
    operator delete(memory);
}

namespace tvr {

// The most bytes in use at one time since the start of this object, beyond those of its start. One at a time.
class memory_peak {
public:
    memory_peak() : m_start(bytes_in_use) { most_bytes = m_start; }

    [[nodiscard]] std::size_t bytes() const { return most_bytes - m_start; }

private:
    std::size_t m_start;
};

} // namespace tvr
