// The reading side of the compiled base: loads it, and tells the grade of a token.
#pragma once

#include <cstdint>
#include <string>
#include <string_view>

#include "compiled/base_header.h"
#include "dict/hashmap.h"
#include "platform/sync.h"

namespace tvr {

// The class takes no lock by itself: an owner that shares it between threads holds `lock` around load() and
// grade(). Every failure returns false, with one line in the default log.
class hashreg : public float_map {
public:
    hashreg() = default;

    // Replaces the base by that of the file. The result says whether a base is loaded now; after a failure
    // none is. deliberate: an empty path loads nothing and leaves the base, but forgets its time, so that
    // every file counts as fresher.
    bool load(std::string_view path);
    // The spam probability of a token, 0.01 to 0.99; 0.0 if it is unknown, empty, or no base is loaded.
    double grade(std::string_view token);
    // True if the file counts as newer than the loaded base. deliberate: the two halves of the time are
    // compared each by itself, so that an older file can count as newer.
    [[nodiscard]] bool is_file_fresher(std::string_view path) const;
    // Writes the totals of the base to tessivar_stat.ini in the folder of all users.
    void say_status_to_ini() const;
    // deliberate: no caller here.
    void get_loaded_time(std::uint64_t* out) const noexcept; // 100 ns units since 1601; nothing for null

    [[nodiscard]] const base_header& header() const noexcept { return m_header; }

    platform::critical_section lock;

private:
    bool __tryloadcashe(std::string_view path);

    base_header m_header;
    std::uint64_t m_loaded_time = 0;
    bool m_inited = false;
};

} // namespace tvr
