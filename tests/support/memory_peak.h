// How much memory this program has from new, for the few programs that are built with memory_peak.cpp.
#pragma once

#include <cstddef>

namespace tvr {

// The most bytes in use at one time since the start of this object, beyond those of its start. One at a time.
class memory_peak {
public:
    memory_peak();

    [[nodiscard]] std::size_t bytes() const;

private:
    std::size_t m_start;
};

} // namespace tvr
