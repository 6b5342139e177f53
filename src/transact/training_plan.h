// The list of changes that one batch makes to one half of the base.
#pragma once

#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

#include "dict/message_record.h"
#include "dict/ring.h"
#include "msid/msid_access.h"
#include "stage/temp_folder.h"

namespace tvr {

// 1949-12-31 17:00 UTC, in minutes: up to here the time of a message is wrong, and it is filed at another
// one.
inline constexpr std::uint32_t last_wrong_time = 183554940;

// Filled record by record, then handed once to the half's ring. One thread.
class trainingplan {
public:
    trainingplan(std::uint32_t stage, std::string_view base, std::string_view name);
    virtual ~trainingplan() = default;
    trainingplan(const trainingplan&) = delete;
    trainingplan& operator=(const trainingplan&) = delete;

    // Records that the message goes into the half. False if its ID is known already.
    bool add(const message_head& record);
    // Records that the message leaves the half. False if its ID isn't known.
    bool remove(const message_head& record);
    // Looks the ID up; if it is known, the record gets the time found.
    bool found_in(message_head& record);
    // Repairs the times that can't be believed, and files every change under an atom of the ring: first
    // the atoms that cover its time, then by time alone. `usual` messages go by the usual atom size, the
    // others by `atom` (0: all by the usual one).
    void add_to(bye_ring& ring, std::uint32_t usual, std::uint32_t atom);

    [[nodiscard]] bool changed() const noexcept { return m_changed; }
    // Messages added less messages removed; wraps below 0.
    [[nodiscard]] std::uint32_t delta() const noexcept { return m_delta; }
    [[nodiscard]] msid_access& msids() noexcept { return m_msids; }

private:
    struct element {
        std::uint32_t time = 0; // minutes since 1601
        std::uint64_t position = 0;
        bool add = false;
        bool processed = false;
    };

    void record_change(const message_head& record, bool add);
    void sort_elements();
    void repair_times();

    tmpfld_holder m_holder;
    msid_access m_msids;
    bool m_changed = false;
    std::uint32_t m_delta = 0;
    std::vector<element> m_elements; // the unused ones at the end have zero fields
    std::uint32_t m_count = 0;
};

} // namespace tvr
