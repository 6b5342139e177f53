#include "common/file_names.h"
#include "common/logger.h"
#include "common/path.h"
#include "platform/file.h"
#include "stage/temp_folder.h"

namespace tvr {

bool tmpfld_holder::init(std::string_view base) {
    const platform::locker locker(m_lock);
    m_folder = std::make_unique<temp_folder>(join_path(base, names::transact_folder));
    m_base = base;
    m_initialized = true;
    return true;
}

std::string tmpfld_holder::main_path(std::string_view name) const {
    return join_path(m_base, name);
}

bool tmpfld_holder::reports_ready(const char* operation) const {
    if (!m_initialized)
        TVR_LOG(default_log, "[-] tmpfld_holder::%s - object NOT initialized", operation);
    return m_initialized;
}

void tmpfld_holder::_mark_prepared(std::uint32_t stage) {
    if (!reports_ready("_mark_prepared"))
        return;
    platform::file marker;
    if (marker.open(m_folder->path_of(stage, names::stage_marker), platform::access::write,
                    platform::share::read, platform::creation::create_always))
        marker.write(stage_marker_text.data(), stage_marker_text.size());
    marker.close();
    bring_to_disk({m_folder->path(stage)}); // the name is all that counts
}

void tmpfld_holder::_mark_unsuccess(std::uint32_t stage) {
    if (reports_ready("_mark_unsuccess"))
        platform::delete_file(m_folder->path_of(stage, names::stage_marker));
}

bool tmpfld_holder::_is_success(std::uint32_t stage) {
    return reports_ready("_is_success") && file_exists(m_folder->path_of(stage, names::stage_marker));
}

} // namespace tvr
