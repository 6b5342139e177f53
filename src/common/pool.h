// The pool of small blocks: one allocator for each size up to 64 bytes, served from chunks of raw memory.
#pragma once

#include <cstddef>
#include <utility>

namespace tvr {

// Memory for `size` bytes; null for 0. Any thread. Throws std::bad_alloc when there is no memory.
void* pool_allocate(std::size_t size);
// Gives it back; `size` must be that of the allocation. Nothing for null or 0.
void pool_release(void* pointer, std::size_t size) noexcept;

// An object in pool memory, and its end.
template <class T, class... Arguments>
T* pool_new(Arguments&&... arguments) {
    void* memory = pool_allocate(sizeof(T));
    try {
        return new (memory) T(std::forward<Arguments>(arguments)...);
    } catch (...) {
        pool_release(memory, sizeof(T));
        throw;
    }
}

template <class T>
void pool_delete(T* object) noexcept {
    if (object) {
        object->~T();
        pool_release(object, sizeof(T));
    }
}

struct pool_deleter {
    template <class T>
    void operator()(T* object) const noexcept {
        pool_delete(object);
    }
};

} // namespace tvr
