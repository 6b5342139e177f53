#include "dict/dict_folder.h"

#include <cstdio>

#include "common/file_stream.h"
#include "common/files.h"
#include "common/logger.h"
#include "common/path.h"
#include "dict/atom.h"
#include "platform/file.h"

namespace tvr {

namespace {

constexpr std::size_t long_name = 19; // characters

std::string atom_name(const std::string& dictionary, std::uint32_t number) {
    char digits[16];
    std::snprintf(digits, sizeof digits, "%04X.bye", number);
    return dictionary + digits;
}

} // namespace

dict_folder::dict_folder(std::string_view path, std::string_view name) : m_path(path), m_name(name) {}

void dict_folder::enumerate(std::string_view pattern) {
    platform::directory_search search;
    platform::directory_entry entry;
    for (bool found = search.first(join_path(m_path, pattern), entry); found; found = search.next(entry))
        if (!(entry.attributes & platform::attribute::directory))
            m_files.push_back(entry.name);
}

void dict_folder::enumerate_if_empty() {
    if (m_files.empty())
        enumerate(atom_pattern());
}

void dict_folder::reload(std::string_view path, bool flag) {
    m_path = path;
    m_files.clear();
    reload_atoms(flag);
}

std::string dict_folder::new_file(std::uint32_t index) {
    std::uint32_t number = index;
    std::string name = atom_name(m_name, number);
    while (file_exists(join_path(m_path, name)))
        name = atom_name(m_name, ++number);
    std::string path = join_path(m_path, name);
    if (name.size() >= long_name)
        TVR_LOG(transact_log, "[i] too long name created by createnewfile (%s)", path.c_str());
    file_stream file;
    const atom_head empty;
    if (file.create_to_write(path))
        empty.header.write(file);
    return path;
}

void dict_folder::copy_all(std::string_view target, bool fail_if_exists) {
    enumerate_if_empty();
    for (const std::string& file : m_files)
        link_or_copy(join_path(m_path, file), join_path(target, file), fail_if_exists);
}

void dict_folder::delete_all() {
    enumerate_if_empty();
    for (const std::string& file : m_files)
        platform::delete_file(join_path(m_path, file));
}

void dict_folder::move_all(std::string_view target) {
    enumerate_if_empty();
    for (const std::string& file : m_files)
        platform::move_file(join_path(m_path, file), join_path(target, file));
}

void dict_folder::replace(std::string_view target) {
    const std::string source = m_path;
    m_path = target;
    enumerate(atom_pattern());
    for (const std::string& file : m_files)
        platform::delete_file(join_path(m_path, file));
    m_path = source;
    m_files.clear();
    enumerate(atom_pattern());
    for (const std::string& file : m_files)
        platform::move_file(join_path(m_path, file), join_path(target, file));
}

} // namespace tvr
