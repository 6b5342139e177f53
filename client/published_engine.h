// The engine that grades tokens by the published base of the user.
#pragma once

#include <atomic>
#include <cstdint>
#include <optional>
#include <string>

#include "common/engine_interface.h"
#include "compiled/hashreg.h"

namespace tvr {

// Any thread. Looks at the stamp of the base at each lookup, and loads the base once the stamp is another
// and the file is fresher.
class published_engine final : public score_engine {
public:
    published_engine();
    published_engine(const published_engine&) = delete;
    published_engine& operator=(const published_engine&) = delete;

    std::int32_t query_interface(const interface_id& id, void** object) override;
    std::uint32_t add_reference() override;
    std::uint32_t release() override;
    std::int32_t lookup(const char* token, float* score) override;

private:
    [[nodiscard]] std::optional<std::uint64_t> read_stamp() const;
    void refresh();

    std::atomic<std::uint32_t> m_references{1};
    std::string m_folder; // with a backslash at the end; empty if there is none
    hashreg m_base;
    bool m_loaded = false;
    bool m_looked = false;                // whether m_stamp holds what was read
    std::optional<std::uint64_t> m_stamp; // of the last look; nothing if there was none, or a part of one
};

} // namespace tvr
