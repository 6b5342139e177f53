// Address ranges: reserved, committed, decommitted, released.
#pragma once

#include <cstddef>

namespace tvr::platform {

std::size_t page_size() noexcept;              // bytes
std::size_t allocation_granularity() noexcept; // bytes, a multiple of the page size

// Reserves addresses without memory behind them. Null on failure. `size` is rounded up to pages.
void* reserve_range(std::size_t size) noexcept;
// Puts zeroed memory behind a part of a reserved range (whole pages around it). Pages already committed
// keep their content. Answers `address`, or null on failure.
void* commit_range(void* address, std::size_t size) noexcept;
// Gives the memory back and keeps the addresses; the pages read as zero when committed again.
void decommit_range(void* address, std::size_t size) noexcept;
// Gives back a whole range; `size` is that of the reservation.
void release_range(void* address, std::size_t size) noexcept;

} // namespace tvr::platform
