// A table of many places in the bytes of a file. Who needs few of them keeps no more.
#pragma once

#include <algorithm>
#include <cstddef>
#include <span>
#include <utility>
#include <vector>

namespace tvr {

// One thread. A place that isn't kept reads as T{}.
template <class T, std::size_t places>
class place_table {
public:
    using few = std::vector<std::pair<std::size_t, T>>;

    [[nodiscard]] const T& at(std::size_t place) const noexcept {
        static constexpr T nothing{};
        if (!m_all.empty())
            return m_all[place];
        const auto found = std::ranges::lower_bound(m_few, place, {}, &few::value_type::first);
        return found != m_few.end() && found->first == place ? found->second : nothing;
    }
    [[nodiscard]] std::span<const T> all() const noexcept { return m_all; } // none, unless they were made
    [[nodiscard]] std::span<T> make_all() {
        m_all.resize(places);
        return m_all;
    }
    // These and no others: rising, each once.
    void keep(few kept) { m_few = std::move(kept); }

private:
    std::vector<T> m_all;
    few m_few;
};

} // namespace tvr
