#include "stage/temp_folder.h"

#include "common/file_names.h"
#include "common/logger.h"
#include "common/path.h"
#include "platform/clock.h"
#include "platform/error.h"
#include "platform/file.h"

namespace tvr {

namespace {

bool is_folder(const std::string& path) {
    const auto attributes = platform::get_attributes(path);
    return attributes && (*attributes & platform::attribute::directory);
}

bool is_dots(const std::string& name) {
    return name == "." || name == "..";
}

// One more try without the read-only attribute.
void remove_folder(const std::string& path) {
    if (platform::remove_directory(path) || platform::last_error() == platform::error::none)
        return;
    platform::set_attributes(path, platform::attribute::normal);
    platform::remove_directory(path);
}

enum class deletion { done, failed, in_use };

deletion delete_entry(const std::string& path) {
    if (platform::delete_file(path))
        return deletion::done;
    if (platform::last_error() == platform::error::access_denied) {
        platform::set_attributes(path, platform::attribute::normal);
        if (platform::delete_file(path))
            return deletion::done;
    }
    return platform::last_error() == platform::error::sharing_violation ? deletion::in_use : deletion::failed;
}

} // namespace

void bring_to_disk(const std::vector<std::string>& paths) {
    if (platform::make_durable(paths))
        return;
    const std::uint32_t code = platform::last_error();
    TVR_LOG(transact_log, "[-] %s and others can't be brought to the disk (%d)", paths.front().c_str(),
            static_cast<int>(code));
}

temp_folder::temp_folder(std::string_view root) : m_current(join_path(root, "0000")), m_root(root) {
    if (!m_zlib.load("zlib1.dll"))
        m_zlib.load("zlib.dll");
}

const std::string& temp_folder::path(std::uint32_t stage) {
    if (stage != m_stage) {
        const platform::locker locker(m_lock);
        m_stage = stage;
        m_current = join_path(m_root, names::stage_folder(stage));
    }
    return m_current;
}

std::string temp_folder::path_of(std::uint32_t stage, std::string_view name) {
    return join_path(path(stage), name);
}

void temp_folder::prepare(std::uint32_t stage) {
    const platform::locker locker(m_lock);
    create(stage);
    clean(stage);
}

void temp_folder::create(std::uint32_t stage) {
    std::string folder = path(stage);
    if (platform::create_directory(folder) || platform::last_error() != platform::error::already_exists ||
        is_folder(folder))
        return;
    if (folder.ends_with('\\'))
        folder.pop_back();
    platform::delete_file(folder);
    platform::create_directory(folder);
}

void temp_folder::clean(std::uint32_t stage) {
    const platform::locker locker(m_lock);
    empty_folder(path(stage));
}

// The search begins again after every change, so that what was deleted can't disturb it. deliberate: an entry
// that can't be deleted is found again and again; a file in use ends the cleaning.
void temp_folder::empty_folder(const std::string& folder) {
    for (;;) {
        platform::directory_search search;
        platform::directory_entry entry;
        bool found = search.first(join_path(folder, "*.*"), entry);
        while (found && is_dots(entry.name))
            found = search.next(entry);
        if (!found)
            return;
        search.close();
        const std::string path = join_path(folder, entry.name);
        if (entry.attributes & platform::attribute::directory) {
            empty_folder(path);
            remove_folder(path);
            if (platform::get_attributes(path))
                platform::sleep_for(1);
            continue;
        }
        switch (delete_entry(path)) {
        case deletion::done:
            break;
        case deletion::in_use:
            return;
        case deletion::failed:
            platform::sleep_for(1);
            break;
        }
    }
}

void temp_folder::remove(std::uint32_t stage) {
    const platform::locker locker(m_lock);
    clean(stage);
    remove_folder(path(stage));
}

bool temp_folder::find_first(std::uint32_t stage, std::string* out, std::string_view prefix) {
    const platform::locker locker(m_lock);
    platform::directory_search search;
    platform::directory_entry entry;
    for (bool found = search.first(path_of(stage, std::string(prefix) + "*.*"), entry); found;
         found = search.next(entry)) {
        if (entry.attributes & platform::attribute::directory)
            continue;
        if (out)
            *out = path_of(stage, entry.name);
        return true;
    }
    return false;
}

void temp_folder::make_durable(std::uint32_t stage) {
    const platform::locker locker(m_lock);
    const std::string folder = path(stage);
    std::vector<std::string> all = {m_root};
    platform::directory_search search;
    platform::directory_entry entry;
    for (bool found = search.first(folder + "*.*", entry); found; found = search.next(entry))
        if (std::string file = folder + entry.name;
            (entry.attributes & platform::attribute::directory) == 0 && !platform::has_other_names(file))
            all.push_back(std::move(file));
    all.push_back(folder);
    bring_to_disk(all);
}

void temp_folder::make_folders_durable() {
    bring_to_disk({m_root});
}

bool temp_folder::tmp_filename_for_stage(std::uint32_t stage, std::string& out, bool fullpath,
                                         std::string_view prefix) {
    TVR_LOG(transact_log, "[i] temp_folder::tmp_filename_for_stage");
    const auto made = platform::make_temp_file(path(stage), prefix.empty() ? names::entered_prefix : prefix);
    if (!made)
        return false;
    out = fullpath ? *made : std::string(file_part(*made));
    return true;
}

} // namespace tvr
