#include "common/pool.h"

#include <algorithm>
#include <cstdint>
#include <new>
#include <vector>

#include "platform/memory.h"
#include "platform/sync.h"

namespace tvr {

namespace {

constexpr std::size_t chunk_bytes = 4096;
constexpr std::size_t largest_small = 64; // bytes; beyond, the ordinary heap
constexpr std::size_t most_blocks = 255;  // indices of blocks have 8 bits

// Raw memory for blocks of one size; the first byte of a free block is the index of the next free one.
struct chunk {
    std::uint8_t* memory = nullptr;
    std::uint8_t first_free = 0;
    std::uint8_t free_count = 0;
};

class fixed_allocator {
public:
    explicit fixed_allocator(std::size_t size)
        : m_size(size), m_blocks(static_cast<std::uint8_t>(std::min(chunk_bytes / size, most_blocks))) {}

    [[nodiscard]] std::size_t size() const noexcept { return m_size; }

    void* allocate() {
        if (m_allocating >= m_chunks.size() || m_chunks[m_allocating].free_count == 0)
            find_room();
        chunk& c = m_chunks[m_allocating];
        std::uint8_t* block = c.memory + c.first_free * m_size;
        c.first_free = *block;
        --c.free_count;
        return block;
    }

    void release(void* pointer) noexcept {
        auto* block = static_cast<std::uint8_t*>(pointer);
        m_releasing = owner_of(block);
        chunk& c = m_chunks[m_releasing];
        *block = c.first_free;
        c.first_free = static_cast<std::uint8_t>(static_cast<std::size_t>(block - c.memory) / m_size);
        if (++c.free_count == m_blocks)
            give_back_empty();
    }

private:
    [[nodiscard]] std::size_t bytes() const noexcept { return m_size * m_blocks; }
    [[nodiscard]] bool is_empty(const chunk& c) const noexcept { return c.free_count == m_blocks; }

    void find_room() {
        const auto found =
            std::find_if(m_chunks.begin(), m_chunks.end(), [](const chunk& c) { return c.free_count != 0; });
        if (found == m_chunks.end()) {
            add_chunk();
            m_allocating = m_releasing = m_chunks.size() - 1;
        } else {
            m_allocating = static_cast<std::size_t>(found - m_chunks.begin());
        }
    }

    void add_chunk() {
        m_chunks.reserve(m_chunks.size() + 1);
        void* memory = platform::reserve_range(bytes());
        if (!memory || !platform::commit_range(memory, bytes()))
            throw std::bad_alloc();
        chunk c{static_cast<std::uint8_t*>(memory), 0, m_blocks};
        for (std::size_t i = 0; i < m_blocks; ++i)
            c.memory[i * m_size] = static_cast<std::uint8_t>(i + 1);
        m_chunks.push_back(c);
    }

    [[nodiscard]] bool holds(std::size_t index, const std::uint8_t* block) const noexcept {
        const std::uint8_t* memory = m_chunks[index].memory;
        return block >= memory && block < memory + bytes();
    }

    // Searches outward from the chunk released to last.
    [[nodiscard]] std::size_t owner_of(const std::uint8_t* block) const noexcept {
        std::size_t low = m_releasing;
        std::size_t high = m_releasing + 1;
        for (;;) {
            if (low < m_chunks.size() && holds(low, block))
                return low;
            if (high < m_chunks.size() && holds(high, block))
                return high;
            --low; // wraps below 0, beyond every index
            ++high;
        }
    }

    void drop_last() noexcept {
        platform::release_range(m_chunks.back().memory, bytes());
        m_chunks.pop_back();
    }

    // At most one empty chunk stays.
    void give_back_empty() noexcept {
        const std::size_t last = m_chunks.size() - 1;
        if (m_releasing == last) {
            if (last != 0 && is_empty(m_chunks[last - 1])) {
                drop_last();
                m_allocating = m_releasing = last - 1;
            }
        } else if (is_empty(m_chunks[last])) {
            drop_last();
            m_allocating = m_releasing;
        } else {
            std::swap(m_chunks[m_releasing], m_chunks[last]);
            m_allocating = last;
        }
    }

    std::size_t m_size;
    std::uint8_t m_blocks;
    std::vector<chunk> m_chunks;
    std::size_t m_allocating = 0;
    std::size_t m_releasing = 0;
};

class pool {
public:
    void* allocate(std::size_t size) {
        const platform::locker locker(m_lock);
        if (size > largest_small)
            return ::operator new(size);
        if (m_allocating >= m_allocators.size() || m_allocators[m_allocating].size() != size) {
            m_allocating = position_of(size);
            if (m_allocating == m_allocators.size() || m_allocators[m_allocating].size() != size) {
                m_allocators.emplace(m_allocators.begin() + static_cast<std::ptrdiff_t>(m_allocating), size);
                m_releasing = 0;
            }
        }
        return m_allocators[m_allocating].allocate();
    }

    void release(void* pointer, std::size_t size) noexcept {
        const platform::locker locker(m_lock);
        if (size > largest_small) {
            ::operator delete(pointer);
            return;
        }
        if (m_releasing >= m_allocators.size() || m_allocators[m_releasing].size() != size)
            m_releasing = position_of(size);
        m_allocators[m_releasing].release(pointer);
    }

private:
    [[nodiscard]] std::size_t position_of(std::size_t size) const noexcept {
        const auto place =
            std::lower_bound(m_allocators.begin(), m_allocators.end(), size,
                             [](const fixed_allocator& a, std::size_t s) { return a.size() < s; });
        return static_cast<std::size_t>(place - m_allocators.begin());
    }

    platform::critical_section m_lock;
    std::vector<fixed_allocator> m_allocators; // by block size
    std::size_t m_allocating = 0;
    std::size_t m_releasing = 0;
};

// Never destroyed: blocks may be released until the very end of the process.
pool& global_pool() {
    alignas(pool) static std::uint8_t room[sizeof(pool)];
    static pool* const object = new (room) pool;
    return *object;
}

} // namespace

void* pool_allocate(std::size_t size) {
    return size == 0 ? nullptr : global_pool().allocate(size);
}

void pool_release(void* pointer, std::size_t size) noexcept {
    if (pointer && size != 0)
        global_pool().release(pointer, size);
}

} // namespace tvr
