#include "transact/training_plan.h"

#include <algorithm>

#include "common/logger.h"
#include "common/minutes.h"

namespace tvr {

namespace {

constexpr std::uint32_t element_step = 100;
constexpr std::uint32_t too_small = 10000; // minutes; logged, and used as it is

} // namespace

// deliberate: the plan's message-ID handle stays closed. Every message of a batch counts as a change, and
// the maps are brought up to date when the atoms are rebuilt.
trainingplan::trainingplan(std::uint32_t, std::string_view base, std::string_view)
    : m_elements(element_step) {
    m_holder.init(base);
}

void trainingplan::record_change(const message_head& record, bool add) {
    if (m_count + 1 >= m_elements.size())
        m_elements.resize(m_count + element_step);
    m_elements[m_count++] = {record.time, record.position, add, false};
    m_changed = true;
    m_delta += add ? 1U : ~0U;
}

bool trainingplan::add(const message_head& record) {
    if (m_msids.lookup(record.msid) != 0)
        return false;
    std::uint32_t time = record.time;
    if (time >= too_small) {
        const std::uint32_t now = now_minutes();
        if (time > now) {
            TVR_LOG(transact_log, "[i] timestamp is from future. Correcting (from %d to %d)",
                    static_cast<int>(time), static_cast<int>(now));
            time = now;
        }
    } else {
        TVR_LOG(transact_log, "[i] timestamp for %s is too small (%d)", record.msid.c_str(),
                static_cast<int>(time));
    }
    m_msids.add(record.msid, time);
    record_change(record, true);
    return true;
}

bool trainingplan::remove(const message_head& record) {
    if (m_msids.lookup(record.msid) == 0)
        return false;
    m_msids.remove(record.msid);
    record_change(record, false);
    return true;
}

bool trainingplan::found_in(message_head& record) {
    const std::uint32_t time = m_msids.lookup(record.msid);
    if (time == 0)
        return false;
    record.time = time;
    return true;
}

// Equal times keep the order of the batch, so that equal input gives equal bytes.
void trainingplan::sort_elements() {
    std::stable_sort(m_elements.begin(), m_elements.begin() + m_count,
                     [](const element& a, const element& b) { return a.time < b.time; });
}

void trainingplan::repair_times() {
    const auto good = std::find_if(m_elements.begin(), m_elements.end(),
                                   [](const element& e) { return e.time > last_wrong_time; });
    const auto wrong = static_cast<std::uint32_t>(good - m_elements.begin());
    if (wrong == 0)
        return;
    std::uint32_t start = 0;
    if (wrong != m_count && wrong != m_elements.size()) {
        TVR_LOG(transact_log, "[i] Some elements (%d) are wrong dated.", static_cast<int>(wrong));
        start = good->time - wrong;
    } else {
        TVR_LOG(transact_log, "[i] All elements (%d) are wrong dated.", static_cast<int>(wrong));
        start = now_minutes() - 10 - wrong;
    }
    // deliberate: with only wrong elements this runs over the unused tail of the vector as well, so that
    // the times depend on the vector's size.
    for (std::uint32_t i = 0; i < wrong; ++i)
        m_elements[i].time = start + i;
}

void trainingplan::add_to(bye_ring& ring, std::uint32_t usual, std::uint32_t atom) {
    TVR_LOG(transact_log, "[i] trainingplan::add_to (%d elements)", static_cast<int>(m_count));
    sort_elements();
    repair_times();
    ring.set_atom_size(usual, atom);
    const std::span used(m_elements.data(), m_count);
    for (element& e : used)
        e.processed = ring.place_in_span(e.position, e.time, e.add);
    for (const element& e : used)
        if (!e.processed)
            ring.place_by_time(e.position, e.time, e.add);
}

} // namespace tvr
