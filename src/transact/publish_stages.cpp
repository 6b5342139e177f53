// The last two stages: put the recalculated halves in place of the main dictionaries, and generate the
// compiled base from them.

#include "common/file_names.h"
#include "common/logger.h"
#include "compiled/dict_pair.h"
#include "dict/dict_folder.h"
#include "platform/clock.h"
#include "transact/file_time.h"
#include "transact/half_stage.h"
#include "transact/transaction.h"

namespace tvr {

bool transaction::__successlearn_stage() {
    if (!reports_ready("__sta_successlearn_stage"))
        return false;
    TVR_LOG(transact_log, "[i] transaction::__successlearn_stage");
    temp_folder& folder = m_holder.folder();
    if (!m_holder._is_success(stage_number::ready_spam) || !m_holder._is_success(stage_number::ready_good)) {
        TVR_LOG(transact_log, "Stage doesn't prepared. Exiting");
        folder.remove(stage_number::ready_spam);
        folder.remove(stage_number::ready_good);
        folder.remove(stage_number::entered);
        return false;
    }
    if (m_holder._is_success(stage_number::sorted))
        folder.remove(stage_number::sorted);
    folder.prepare(stage_number::generate_rgd);
    for (const half_stage& half : {good_half, spam_half}) {
        publish_half(half);
        folder.make_folders_durable(); // or a power cut brings a marker back that has nothing behind it
    }
    m_holder._mark_prepared(stage_number::generate_rgd);
    return true;
}

// deliberate: each file is deleted in the base before its successor is moved there, without a look at what
// a run that was cut off has already moved.
void transaction::publish_half(const half_stage& half) {
    const std::string source = m_holder.folder().path(half.target);
    dict_folder atoms(source, half.dictionary);
    atoms.reload_atoms(true);
    TVR_LOG(transact_log, "%s", half.publish_line);
    for (const char* extension : {names::list_ending, names::index_ending}) {
        const std::string file = std::string(half.dictionary) + extension;
        platform::delete_file(m_holder.main_path(file));
        platform::move_file(source + file, m_holder.main_path(file));
    }
    atoms.replace(m_holder.base());
    bring_to_disk({m_holder.base()});
    m_holder.folder().remove(half.target);
}

bool transaction::__generatergd_stage() {
    if (!reports_ready("__sta_generatergd_stage"))
        return false;
    TVR_LOG(transact_log, "[i] transaction::__generatergd_stage");
    if (!m_holder._is_success(stage_number::generate_rgd)) {
        TVR_LOG(transact_log, "Stage doesn't prepared. Exiting");
        return false;
    }
    TVR_LOG(transact_log, "[i] transaction::transact_action stage S_GENERATERGD");
    {
        temp_folder& folder = m_holder.folder();
        dict_pair dictionaries(m_holder.base());
        const std::string generated = folder.path_of(stage_number::generate_rgd, names::new_base);
        if (dictionaries.generate_base(generated)) {
            TVR_LOG(transact_log, "[i] rgd base successfully generated");
            bring_to_disk({generated, folder.path(stage_number::generate_rgd)});
            const std::string published = m_holder.main_path(names::base);
            platform::delete_file(published);
            platform::move_file(generated, published);
            folder.remove(stage_number::generate_rgd);
        }
        write_file_time(m_holder.main_path(names::base_mark), platform::system_time());
    }
    TVR_LOG(transact_log, "[i] generation of final .rgd file completed");
    return true;
}

} // namespace tvr
