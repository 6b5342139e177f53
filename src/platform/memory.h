// Address ranges: reserved, committed, decommitted, released.
#pragma once

#include <bit>
#include <cstddef>
#include <cstdint>

namespace tvr::platform {

std::size_t page_size() noexcept;              // bytes
std::size_t allocation_granularity() noexcept; // bytes, a multiple of the page size

// Reserves addresses without memory behind them. Null on failure. Takes range_room(size) bytes of addresses,
// so that a range can grow where it lies: up to its room, each size will do for what is called below.
void* reserve_range(std::size_t size) noexcept;
constexpr std::size_t range_room(std::size_t size) noexcept {
    return size > SIZE_MAX / 4 ? size : std::bit_ceil(size);
}
// Puts zeroed memory behind a part of a reserved range (whole pages around it). Pages already committed
// keep their content. Returns `address`, or null on failure.
void* commit_range(void* address, std::size_t size) noexcept;
// Gives the memory back and keeps the addresses; the pages read as zero when committed again.
void decommit_range(void* address, std::size_t size) noexcept;
// Gives back a whole range; `size` is that of the reservation, or what it has grown to.
void release_range(void* address, std::size_t size) noexcept;

} // namespace tvr::platform
