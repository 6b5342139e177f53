// The finalize stages: read the tokens of the batch and write the atoms of one half anew, beside the main
// dictionaries.

#include "common/file_names.h"
#include "common/logger.h"
#include "common/path.h"
#include "dict/ring.h"
#include "msid/msid_access.h"
#include "transact/half_stage.h"
#include "transact/transaction.h"

namespace tvr {

const transaction::half_stage transaction::spam_half = {
    .dictionary = names::spam_half,
    .target = stage_number::ready_spam,
    .entry_line = "[i] transaction::__finalizespam_stage",
    .stage_line = "[i] transaction::transact_action stage S_READYSPAM",
    .end_line = "[i] recalculation of 'spam' completed",
    .publish_line = "Refreshing main 'spam' dictionary with recalculated one.",
};
const transaction::half_stage transaction::good_half = {
    .dictionary = names::good_half,
    .target = stage_number::ready_good,
    .entry_line = "[i] transaction::__finalizegood_stage",
    .stage_line = "[i] transaction::transact_action stage S_READYGOOD",
    .end_line = "[i] recalculation of 'non-spam' completed",
    .publish_line = "Refreshing main 'non-spam' dictionary with recalculated one.",
};

bool transaction::__finalizespam_stage() {
    return reports_ready("__sta_finalizespam_stage") && finalize_half(spam_half);
}

bool transaction::__finalizegood_stage() {
    return reports_ready("__sta_finalizegood_stage") && finalize_half(good_half);
}

bool transaction::finalize_half(const half_stage& half) {
    TVR_LOG(transact_log, "%s", half.entry_line);
    if (!m_holder._is_success(stage_number::sorted)) {
        TVR_LOG(transact_log, "Stage doesn't prepared. Exiting");
        return false;
    }
    if (half.target == stage_number::ready_spam && m_holder._is_success(stage_number::ready_spam))
        return __finalizegood_stage();
    TVR_LOG(transact_log, "%s", half.stage_line);
    temp_folder& folder = m_holder.folder();
    folder.prepare(half.target);
    const std::string name(half.dictionary);
    const std::string sorted_folder = folder.path(stage_number::sorted);
    msid_access msids;
    msids.open(m_holder.base(), sorted_folder, name);
    bye_ring ring;
    ring.open(m_holder.base(), name, stage_number::sorted);
    ring.load_col(stage_number::sorted);
    ring.finalize(half.target, sorted_folder + names::sorted_messages, msids);

    // deliberate: the map holds its index open, so that the second rename fails; the index is made anew from
    // the list at the next opening.
    const std::string target_folder = folder.path(half.target);
    for (const char* extension : {names::list_ending, names::index_ending}) {
        platform::delete_file(target_folder + name + extension);
        platform::move_file(sorted_folder + name + extension, target_folder + name + extension);
    }
    TVR_LOG(transact_log, "%s", half.end_line);
    folder.make_durable(half.target);
    m_holder._mark_prepared(half.target);
    return true;
}

} // namespace tvr
