#include "msid/page.h"

#include <algorithm>

namespace tvr {

void page_view::move_first_to_end_of(page_view target, unsigned number) noexcept {
    const unsigned here = used();
    const unsigned there = target.used();
    number = std::min({number, here, slots - there});
    std::memcpy(target.slot(there), slot(0), number * slot_size);
    std::memmove(slot(0), slot(number), (here - number) * slot_size);
    clear_from(here - number);
}

void page_view::move_last_to_start_of(page_view target, unsigned number) noexcept {
    const unsigned here = used();
    const unsigned there = target.used();
    number = std::min({number, here, slots - there});
    std::memmove(target.slot(number), target.slot(0), there * slot_size);
    std::memcpy(target.slot(0), slot(here - number), number * slot_size);
    clear_from(here - number);
}

} // namespace tvr
