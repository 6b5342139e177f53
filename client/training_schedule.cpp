#include "client/training_schedule.h"

#include <algorithm>

#include "common/bytes.h"
#include "common/file_names.h"
#include "common/path.h"
#include "platform/clock.h"
#include "platform/file.h"
#include "platform/profile.h"

namespace tvr {

namespace {

constexpr std::string_view section = "Training";
constexpr std::uint64_t ticks_per_hour = std::uint64_t{36'000'000'000}; // of 100 ns

struct keyed_value {
    const char* key;
    std::uint32_t value;
};

const keyed_value& entry(schedule_value index) {
    static constexpr std::array<keyed_value, training_schedule::values> all = {
        {{"train at messages", 50}, {"train after hours", 4}, {"train corrections", 1}}};
    return all.at(static_cast<std::size_t>(index));
}

} // namespace

training_schedule::training_schedule(std::string_view working_directory)
    : m_base(std::string(working_directory) + names::base_folder) {
    for (std::size_t i = 0; i < values; ++i) {
        const keyed_value& wanted = entry(static_cast<schedule_value>(i));
        const std::int32_t value = platform::profile_int(
            section, wanted.key, static_cast<std::int32_t>(wanted.value), path(working_directory));
        m_values.at(i) = static_cast<std::uint32_t>(std::max(value, 0));
    }
}

bool training_schedule::is_due(bool corrected) const {
    std::array<std::uint8_t, 4> head{};
    if (platform::peek_file(m_base + names::transact_folder + names::cache, 0, head.data(), head.size()) !=
        head.size())
        return false;
    const std::uint32_t waiting = load_u32(head.data());
    if (waiting == 0)
        return false;
    if ((corrected && get(schedule_value::corrections) != 0) || waiting >= get(schedule_value::messages))
        return true;
    const std::uint64_t last = last_training();
    return last != 0 && last + get(schedule_value::hours) * ticks_per_hour <= platform::system_time();
}

// In 100 ns units since 1601; 0 if there was none.
std::uint64_t training_schedule::last_training() const {
    std::uint64_t newest = 0;
    for (const char* name : {names::spam_list, names::good_list, names::base_mark}) {
        platform::file probe; // with no rights: hinders nobody
        if (probe.open(m_base + name, platform::access::none, platform::share::read_write,
                       platform::creation::open_existing))
            newest = std::max(newest, probe.last_write_time().value_or(0));
    }
    return newest;
}

std::uint32_t training_schedule::default_value(schedule_value index) {
    return entry(index).value;
}

const char* training_schedule::key(schedule_value index) {
    return entry(index).key;
}

std::string training_schedule::path(std::string_view working_directory) {
    return join_path(working_directory, names::wishes);
}

bool training_schedule::set(std::string_view working_directory, schedule_value index, std::uint32_t value) {
    return platform::write_profile_string(section, key(index), std::to_string(value),
                                          path(working_directory));
}

} // namespace tvr
