// When those who hand mail over have it trained.
#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>

#include "client/tvr_ipc_export.h"

namespace tvr {

enum class schedule_value : std::size_t {
    messages = 0,   // so many waiting messages are trained at once
    hours = 1,      // so long after the last training any waiting message is
    corrections = 2 // whether a correction by the user is trained at once; 0 or 1
};

// The engine's own delay begins again with every message and every start, so that a steady trickle would
// never be trained. Whoever hands messages over therefore asks here whether to force a training. The values
// stand in tvrctl.ini of the working directory. Immutable.
class TVR_IPC_EXPORT training_schedule {
public:
    static constexpr std::size_t values = 3;

    explicit training_schedule(std::string_view working_directory); // with a backslash at the end

    [[nodiscard]] std::uint32_t get(schedule_value index) const {
        return m_values.at(static_cast<std::size_t>(index));
    }
    // Whether the messages that wait now are to be trained at once; `corrected`: a correction is among them.
    // False if none waits.
    [[nodiscard]] bool is_due(bool corrected) const;

    [[nodiscard]] static std::uint32_t default_value(schedule_value index);
    [[nodiscard]] static const char* key(schedule_value index);
    // The file of the values.
    [[nodiscard]] static std::string path(std::string_view working_directory);
    // False if the file can't be written.
    static bool set(std::string_view working_directory, schedule_value index, std::uint32_t value);

private:
    [[nodiscard]] std::uint64_t last_training() const;

    std::string m_base; // folder
    std::array<std::uint32_t, values> m_values{};
};

} // namespace tvr
