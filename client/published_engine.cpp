#include "client/published_engine.h"

#include <array>
#include <exception>
#include <memory>

#include "client/base_check.h"
#include "client/tvr_ipc_export.h"
#include "client/user_folder.h"
#include "common/bytes.h"
#include "common/file_names.h"
#include "platform/file.h"

namespace tvr {

published_engine::published_engine() {
    const std::string working = find_user_folder().path;
    if (!working.empty())
        m_folder = working + names::base_folder;
}

std::int32_t published_engine::query_interface(const interface_id& id, void** object) {
    if (!object)
        return engine_answer::bad_pointer;
    *object = nullptr;
    if (id != component_id && id != score_engine_id)
        return engine_answer::no_interface;
    add_reference();
    *object = static_cast<score_engine*>(this);
    return engine_answer::known;
}

std::uint32_t published_engine::add_reference() {
    return ++m_references;
}

std::uint32_t published_engine::release() {
    const std::uint32_t left = --m_references;
    if (left == 0)
        const std::unique_ptr<published_engine> owner(this);
    return left;
}

std::int32_t published_engine::lookup(const char* token, float* score) {
    if (!token || !score)
        return engine_answer::bad_pointer;
    try {
        const platform::locker locker(m_base.lock);
        refresh();
        if (!m_loaded)
            return engine_answer::failure;
        *score = static_cast<float>(m_base.grade(token));
        return *score == 0 ? engine_answer::unknown : engine_answer::known;
    } catch (const std::exception&) {
        return engine_answer::failure;
    }
}

std::optional<std::uint64_t> published_engine::read_stamp() const {
    std::array<std::uint8_t, 8> bytes{};
    const auto got = platform::peek_file(m_folder + names::base_mark, 0, bytes.data(), bytes.size());
    return got == bytes.size() ? std::optional(load_le<std::uint64_t>(bytes.data())) : std::nullopt;
}

// The stamp is written after the base, and so is read before it.
void published_engine::refresh() {
    if (m_folder.empty())
        return;
    const auto stamp = read_stamp();
    if (m_looked && stamp == m_stamp)
        return;
    m_looked = true;
    m_stamp = stamp;
    const std::string path = m_folder + names::base;
    if (!m_loaded || m_base.is_file_fresher(path))
        m_loaded = m_base.load(path) && base_defect(path).empty();
}

} // namespace tvr

extern "C" {

TVR_IPC_EXPORT std::int32_t GetEngine(tvr::component** engine) {
    if (!engine)
        return tvr::engine_answer::bad_pointer;
    *engine = nullptr;
    try {
        *engine = std::make_unique<tvr::published_engine>().release(); // goes with its last reference
        return tvr::engine_answer::known;
    } catch (const std::exception&) {
        return tvr::engine_answer::failure;
    }
}

// The export number 1.
TVR_IPC_EXPORT std::int32_t tvr_export_1(tvr::component** engine) {
    return GetEngine(engine);
}

} // extern "C"
