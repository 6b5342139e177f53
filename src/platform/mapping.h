// A view of a whole file in memory.
#pragma once

#include <cstddef>
#include <cstdint>

#include "platform/file.h"

namespace tvr::platform {

// One shared mapping and its view. Belongs to one thread; the file stays open beside it. Changes made
// through a writable view are seen by all other views and reads of the file.
class mapping {
public:
    mapping() noexcept = default;
    ~mapping();
    mapping(const mapping&) = delete;
    mapping& operator=(const mapping&) = delete;

    // Makes the mapping object over `size` bytes (0: the present size of the file). A writable mapping
    // larger than the file grows it with zeros. 1006 for an empty file with size 0; 112 if the disk is
    // full; 8 if a read-only mapping is larger than the file. An earlier mapping is closed first.
    bool create(file& target, bool writable, std::uint64_t size);
    // Makes the view of the whole mapping.
    bool map_view();
    void unmap_view() noexcept;
    void close() noexcept; // view and mapping

    [[nodiscard]] bool has_mapping() const noexcept { return m_size != 0; }
    [[nodiscard]] std::uint8_t* data() const noexcept { return m_view; } // null without a view
    [[nodiscard]] std::uint64_t size() const noexcept { return m_size; } // bytes; 0 without a mapping

private:
    std::uint8_t* m_view = nullptr;
    std::uint64_t m_size = 0;
    std::intptr_t m_handle = -1; // the backend's own
    bool m_writable = false;
};

} // namespace tvr::platform
