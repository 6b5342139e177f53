// The sorting stage: turns a batch of messages into two plans of change, filed under the atoms of each
// half. It reads record heads only.

#include <algorithm>

#include "common/file_names.h"
#include "common/file_stream.h"
#include "common/logger.h"
#include "common/path.h"
#include "dict/message_record.h"
#include "dict/ring.h"
#include "platform/clock.h"
#include "platform/error.h"
#include "settings/settings.h"
#include "stat/statistic.h"
#include "transact/file_time.h"
#include "transact/training_plan.h"
#include "transact/transaction.h"

namespace tvr {

namespace {

int printable(std::uint32_t value) {
    return static_cast<int>(value);
}

// How large the atoms of this batch are to be.
struct part_sizes {
    std::uint32_t good_final = 0;
    std::uint32_t spam_final = 0;
    std::uint32_t atom = 0; // messages; 0 for the default size
    std::uint32_t optimized = 0;
};

// deliberate: "optimal one dict size" 0 is a division by zero; nothing guards it.
part_sizes work_out_sizes(const trainingplan& good_plan, const bye_ring& good_ring,
                          const trainingplan& spam_plan, const bye_ring& spam_ring) {
    const settings& set = *current_settings();
    const std::uint32_t base_size = set.optimal_base_size_per_half;
    const std::uint32_t dict_size = set.optimal_one_dict_size;
    const std::uint32_t min_size = set.min_optimal_one_dict_size;
    const std::uint32_t good_was = good_ring.messages_total();
    const std::uint32_t spam_was = spam_ring.messages_total();

    part_sizes sizes;
    sizes.good_final = good_plan.delta() + good_was;
    sizes.spam_final = spam_plan.delta() + spam_was;
    const std::uint32_t least = std::min(sizes.good_final, sizes.spam_final);
    if (least < base_size) {
        sizes.atom = static_cast<std::uint32_t>(std::uint64_t{least} * dict_size / base_size);
        sizes.atom = std::max(sizes.atom, min_size);
    }
    sizes.optimized = min_size * (base_size / dict_size);
    bye_ring::atom_size = dict_size;
    bye_ring::base_limit = base_size;

    TVR_LOG(transact_log, "[i]     Spam part: was %d, changed by %d, finally will be %d messages",
            printable(spam_was), printable(spam_plan.delta()), printable(sizes.spam_final));
    TVR_LOG(transact_log, "[i] Non-Spam part: was %d, changed by %d, finally will be %d messages",
            printable(good_was), printable(good_plan.delta()), printable(sizes.good_final));
    TVR_LOG(transact_log, "[i] The minimal of two is %d messages", printable(least));
    if (sizes.atom != 0)
        TVR_LOG(transact_log, "[i] Atom dictionary will be decreased to %d (minimal is %d)",
                printable(sizes.atom), printable(min_size));
    else
        TVR_LOG(transact_log, "[i] Atom dictionary will be default (%d)", printable(dict_size));
    TVR_LOG(transact_log, "[i] Calculated optimized size is %d messages", printable(sizes.optimized));
    return sizes;
}

// Reads every record head of the batch and enters the message in its plan.
void plan_messages(file_stream& batch, trainingplan& spam_plan, trainingplan& good_plan) {
    statistic* counters = statistic::current();
    if (counters && !counters->has_file_name())
        counters = nullptr;
    const statistic::batch counting(counters);
    message_head record;
    for (std::uint32_t number = 1; record.read(batch); ++number) {
        TVR_LOG(transact_log, "Processing message %d", printable(number));
        if (record.flags & message_flag::deleted) {
            TVR_LOG(transact_log, "  Deleted");
            continue;
        }
        const bool is_spam = (record.flags & message_flag::spam) != 0;
        TVR_LOG(transact_log, "isSpam=%d", is_spam ? 1 : 0);
        trainingplan& same = is_spam ? spam_plan : good_plan;
        trainingplan& opposite = is_spam ? good_plan : spam_plan;
        if (same.msids().lookup(record.msid) != 0) {
            TVR_LOG(transact_log, "  Is a dupe (skipped)");
            continue;
        }
        const bool is_correction = opposite.found_in(record);
        if (is_correction) {
            TVR_LOG(transact_log, "  Is a correction (deleted from opposite)");
            opposite.remove(record);
        }
        if (counters)
            counters->add_message({record.flags, record.size, record.time}, is_correction, is_spam);
        same.add(record);
        TVR_LOG(transact_log, "  Included");
    }
}

// Files one half's changes under its atoms, drops what has grown too old, and saves the plan.
void file_half(trainingplan& plan, bye_ring& ring, std::uint32_t final_count, const part_sizes& sizes) {
    const std::uint32_t usual = final_count >= sizes.optimized ? final_count - sizes.optimized : 0;
    TVR_LOG(transact_log, "[i] %d messages will be saved with usual atom size (rest - with calculated)",
            printable(usual));
    plan.add_to(ring, usual, sizes.atom);
    aged_out_list ranges;
    ranges.reserve(10);
    ring.forget_oldest(ranges);
    // deliberate: the handle was never opened, so this opens an unnamed map, and the purge finds
    // nothing there.
    plan.msids().reopen();
    plan.msids().purge(ranges);
    ring.save_col(stage_number::sorted);
}

} // namespace

bool transaction::__sorting_stage() {
    if (!reports_ready("__sorting_stage"))
        return false;
    TVR_LOG(transact_log, "[i] transaction::__sorting_stage");
    if (!m_holder._is_success(stage_number::entered)) {
        TVR_LOG(transact_log, "Stage doesn't prepared. Exiting");
        return false;
    }
    temp_folder& folder = m_holder.folder();
    std::string batch_path;
    folder.find_first(stage_number::entered, &batch_path, names::entered_prefix);
    {
        file_stream batch;
        if (!batch.open_to_read(batch_path) || batch.size().value_or(0) == 0) {
            const std::uint32_t code = platform::last_error();
            TVR_LOG(transact_log, "[-] something wrong with file (%d) %s", printable(code),
                    batch_path.c_str());
            return false;
        }
        if (!sort_batch(batch)) {
            batch.close();
            finish_without_changes();
            return false;
        }
    }
    // The batch and the marker follow at once, and their names come to the disk together: without the marker
    // nobody would look for the batch there.
    folder.make_durable(stage_number::sorted);
    const std::string sorted_path = folder.path_of(stage_number::sorted, names::sorted_messages);
    if (!platform::move_file(batch_path, sorted_path)) {
        const std::uint32_t code = platform::last_error();
        TVR_LOG(transact_log, "[-] Stage S_SORTED failed to move data file (0x%08X)", code);
        return false;
    }
    TVR_LOG(transact_log, "[i] Stage S_SORTED is prepared.");
    m_holder._mark_prepared(stage_number::sorted);
    if (!m_holder._is_success(stage_number::sorted)) {
        // The batch goes only after the marker: the stage runs again.
        const std::uint32_t code = platform::last_error();
        TVR_LOG(transact_log, "[-] Stage S_SORTED can't be marked (%d)", printable(code));
        platform::move_file(sorted_path, batch_path);
        return false;
    }
    folder.remove(stage_number::entered);
    folder.make_folders_durable();
    if (logger::enabled())
        keep_batch_copy();
    if (statistic* counters = statistic::current())
        counters->save_transaction();
    return true;
}

// Plans the whole batch. False if it changes nothing.
bool transaction::sort_batch(file_stream& batch) {
    if (statistic* counters = statistic::current())
        counters->clear_transaction();
    m_holder.folder().prepare(stage_number::sorted);
    trainingplan spam_plan(stage_number::sorted, m_holder.base(), names::spam_half);
    trainingplan good_plan(stage_number::sorted, m_holder.base(), names::good_half);
    std::uint32_t count = 0;
    batch.read_u32(count);
    TVR_LOG(transact_log, "[i] There are %d messages in the cache", printable(count));
    plan_messages(batch, spam_plan, good_plan);

    bye_ring good_ring;
    good_ring.open(m_holder.base(), names::good_half, stage_number::sorted);
    bye_ring spam_ring;
    spam_ring.open(m_holder.base(), names::spam_half, stage_number::sorted);
    const part_sizes sizes = work_out_sizes(good_plan, good_ring, spam_plan, spam_ring);
    if (good_plan.changed()) {
        TVR_LOG(transact_log, "No-spam changed with %d messages", printable(good_plan.delta()));
        file_half(good_plan, good_ring, sizes.good_final, sizes);
    }
    if (spam_plan.changed()) {
        TVR_LOG(transact_log, "Spam changed with %d messages", printable(spam_plan.delta()));
        file_half(spam_plan, spam_ring, sizes.spam_final, sizes);
    }
    return good_plan.changed() || spam_plan.changed();
}

void transaction::finish_without_changes() {
    TVR_LOG(transact_log, "[i] No changes, finishing training");
    m_holder.folder().remove(stage_number::sorted);
    m_holder.folder().remove(stage_number::entered);
    const std::string compiled = m_holder.main_path(names::base);
    if (!file_exists(compiled))
        return;
    TVR_LOG(transact_log, "[i] Refreshing timestamp of the .rgd to now");
    const std::uint64_t now = platform::system_time();
    platform::file base;
    if (base.open(compiled, platform::access::write, platform::share::read,
                  platform::creation::open_existing))
        base.set_last_write_time(now);
    base.close();
    write_file_time(m_holder.main_path(names::base_mark), now);
}

// Keeps the sorted stage as an archive, for later study, beside the one before it.
void transaction::keep_batch_copy() {
    std::string archive;
    m_holder.folder().pack(archive, stage_number::sorted);
    const std::string newest = m_holder.main_path(names::archive);
    const std::string older = m_holder.main_path(names::old_archive);
    platform::delete_file(older);
    platform::move_file(newest, older);
    platform::move_file(archive, newest);
}

} // namespace tvr
