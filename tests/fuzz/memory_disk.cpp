#include "memory_disk.h"

#include <algorithm>
#include <fnmatch.h>
#include <map>
#include <memory>
#include <optional>
#include <set>

#include "common/text.h"
#include "platform/error.h"
#include "platform/file.h"
#include "platform/mapping.h"
#include "platform/posix/errors.h"

namespace {

using tvr::platform::fail;
namespace error = tvr::platform::error;

using content = std::vector<std::uint8_t>;                 // never has room for more than its size
constexpr std::size_t largest_file = std::size_t{1} << 28; // bytes; more counts as a full disk

struct node {
    std::shared_ptr<content> bytes = std::make_shared<content>(); // a view keeps those that it was made of
    bool is_folder = false;

    [[nodiscard]] std::uint32_t attributes() const {
        return is_folder ? tvr::platform::attribute::directory : tvr::platform::attribute::archive;
    }
    bool resize(std::uint64_t size) {
        if (size > largest_file)
            return fail(error::disk_full);
        auto other = std::make_shared<content>(size);
        std::copy_n(bytes->begin(), std::min(size, bytes->size()), other->begin());
        bytes = std::move(other);
        return true;
    }
};
using node_ptr = std::shared_ptr<node>;

std::map<std::string, node_ptr, std::less<>> disk;
tvr::fuzz::kept_files* kept = nullptr;

// One backslash between names, none at the end; empty for what can be no path.
std::string key_of(std::string_view path) {
    std::string key(path.find('\0') == std::string_view::npos ? path : std::string_view());
    std::ranges::replace(key, '/', '\\');
    const auto both = [](char a, char b) { return a == '\\' && b == '\\'; };
    key.erase(std::unique(key.begin(), key.end(), both), key.end());
    if (key.size() > 1 && key.back() == '\\')
        key.pop_back();
    return key;
}

node_ptr find(std::string_view path) {
    const auto found = disk.find(key_of(path));
    return found == disk.end() ? nullptr : found->second;
}

bool has_parent(std::string_view key) {
    const std::size_t cut = key.rfind('\\');
    if (cut == std::string_view::npos || cut == 0)
        return !key.empty();
    const node_ptr folder = find(key.substr(0, cut));
    return folder && folder->is_folder;
}

// Gives the node a name that isn't taken.
bool add(std::string_view path, node_ptr place) {
    const std::string key = key_of(path);
    if (!has_parent(key))
        return fail(error::path_not_found);
    return disk.try_emplace(key, std::move(place)).second || fail(error::already_exists);
}

std::size_t copy_from(const node& place, std::uint64_t offset, void* buffer, std::size_t size) {
    const content& bytes = *place.bytes;
    const std::size_t start = std::min<std::uint64_t>(offset, bytes.size());
    const std::size_t got = std::min(size, bytes.size() - start);
    std::copy_n(bytes.data() + start, got, static_cast<std::uint8_t*>(buffer));
    return got;
}

} // namespace

namespace tvr::fuzz {

void clear_disk() {
    disk.clear();
}

void put_file(std::string_view path, std::span<const std::uint8_t> bytes) {
    const std::string key = key_of(path);
    for (std::size_t cut = key.find('\\', 1); cut != std::string::npos; cut = key.find('\\', cut + 1))
        platform::create_directory(key.substr(0, cut));
    auto file = std::make_shared<node>();
    file->bytes = std::make_shared<content>(bytes.begin(), bytes.end());
    disk[key] = std::move(file);
}

void put_file(std::string_view path, std::string_view bytes) {
    put_file(path, {reinterpret_cast<const std::uint8_t*>(bytes.data()), bytes.size()});
}

bool has_file(std::string_view path) {
    const node_ptr file = find(path);
    return file && !file->is_folder;
}

std::string file_bytes(std::string_view path) {
    const node_ptr file = find(path);
    return file ? std::string(reinterpret_cast<const char*>(file->bytes->data()), file->bytes->size())
                : std::string();
}

std::vector<std::string> all_files() {
    std::vector<std::string> paths;
    for (const auto& [path, each] : disk)
        if (!each->is_folder)
            paths.push_back(path);
    return paths;
}

std::size_t disk_bytes() {
    std::set<const node*> seen; // a file may have two names
    std::size_t sum = 0;
    for (const auto& [path, each] : disk)
        sum += seen.insert(each.get()).second ? each->bytes->size() : 0;
    return sum;
}

void keep_deleted(kept_files* files) {
    kept = files;
}

} // namespace tvr::fuzz

namespace tvr::platform {

struct file::state {
    node_ptr place;
    std::uint64_t position = 0;
};

file::file() noexcept = default;
file::~file() = default;
file::file(file&& other) noexcept = default;
file& file::operator=(file&& other) noexcept = default;

// All share all: nobody else is on this disk.
bool file::open(std::string_view path, access, share, creation mode, std::uint32_t) {
    close();
    node_ptr place = find(path);
    if (place) {
        if (mode == creation::create_new)
            return fail(error::file_exists);
        if (place->is_folder)
            return fail(error::access_denied);
        if (mode == creation::create_always)
            place->resize(0);
    } else {
        if (mode == creation::open_existing)
            return fail(has_parent(key_of(path)) ? error::file_not_found : error::path_not_found);
        place = std::make_shared<node>();
        if (!add(path, place))
            return false;
    }
    m_state = std::make_unique<state>(state{std::move(place)});
    return true;
}

void file::close() noexcept {
    m_state.reset();
}

bool file::is_open() const noexcept {
    return m_state != nullptr;
}

bool file::read(void* buffer, std::size_t size, std::size_t& got) {
    got = 0;
    if (!m_state)
        return fail(error::access_denied);
    got = copy_from(*m_state->place, m_state->position, buffer, size);
    m_state->position += got;
    return true;
}

bool file::write(const void* data, std::size_t size) {
    if (!m_state)
        return fail(error::access_denied);
    if (size == 0)
        return true;
    const std::uint64_t end = m_state->position + size;
    if (end > m_state->place->bytes->size() && !m_state->place->resize(end))
        return false;
    std::copy_n(static_cast<const std::uint8_t*>(data), size,
                m_state->place->bytes->data() + m_state->position);
    m_state->position = end;
    return true;
}

std::optional<std::uint64_t> file::seek(std::int64_t distance, origin from) {
    const std::uint64_t start = !m_state || from == origin::begin ? 0
                                : from == origin::current         ? m_state->position
                                                                  : m_state->place->bytes->size();
    std::int64_t place = 0;
    if (!m_state || __builtin_add_overflow(static_cast<std::int64_t>(start), distance, &place) || place < 0) {
        fail(error::invalid_parameter);
        return std::nullopt;
    }
    return m_state->position = static_cast<std::uint64_t>(place);
}

bool file::set_end() {
    if (!m_state)
        return fail(error::access_denied);
    return m_state->place->resize(m_state->position);
}

bool file::flush() {
    return m_state != nullptr;
}

std::optional<std::uint64_t> file::size() const {
    return m_state ? std::optional<std::uint64_t>(m_state->place->bytes->size()) : std::nullopt;
}

std::optional<std::uint64_t> file::last_write_time() const {
    return m_state ? std::optional(std::uint64_t{130'000'000'000'000'000}) : std::nullopt;
}

std::optional<std::uint32_t> get_attributes(std::string_view path) {
    const node_ptr place = find(path);
    if (place)
        return place->attributes();
    fail(error::file_not_found);
    return std::nullopt;
}

bool delete_file(std::string_view path) {
    const node_ptr place = find(path);
    if (!place)
        return fail(error::file_not_found);
    if (place->is_folder)
        return fail(error::access_denied);
    if (kept)
        kept->emplace_back(key_of(path), fuzz::file_bytes(path));
    disk.erase(key_of(path));
    return true;
}

bool move_file(std::string_view from, std::string_view to) {
    return create_hard_link(to, from) && disk.erase(key_of(from)) != 0;
}

bool copy_file(std::string_view from, std::string_view to, bool fail_if_exists) {
    if (!fuzz::has_file(from) || (fail_if_exists && find(to)))
        return fail(find(to) ? error::file_exists : error::file_not_found);
    fuzz::put_file(to, fuzz::file_bytes(from));
    return true;
}

bool create_hard_link(std::string_view link, std::string_view existing) {
    const node_ptr place = find(existing);
    if (!place)
        return fail(error::file_not_found);
    return place->is_folder ? fail(error::access_denied) : add(link, place);
}

bool make_durable(const std::vector<std::string>&) {
    return true;
}

bool has_other_names(std::string_view) {
    return false;
}

bool create_directory(std::string_view path) {
    auto folder = std::make_shared<node>();
    folder->is_folder = true;
    return add(path, std::move(folder));
}

bool remove_directory(std::string_view path) {
    const std::string key = key_of(path);
    const auto place = disk.find(key);
    if (place == disk.end() || !place->second->is_folder)
        return fail(error::file_not_found);
    const auto inside = disk.lower_bound(key + "\\");
    if (inside != disk.end() && inside->first.starts_with(key + "\\"))
        return fail(error::directory_not_empty);
    disk.erase(place);
    return true;
}

std::optional<std::string> make_temp_file(std::string_view folder, std::string_view prefix) {
    for (std::uint32_t number = 0;; ++number) {
        std::string path = std::string(folder) + (folder.ends_with('\\') ? "" : "\\") +
                           std::string(prefix.substr(0, 3)) + to_hex(number, 8) + ".tmp";
        if (add(path, std::make_shared<node>()))
            return path;
        if (last_error() != error::already_exists)
            return std::nullopt;
    }
}

std::string temp_folder_path() {
    create_directory("\\temp");
    return "\\temp\\";
}

std::optional<std::size_t> peek_file(std::string_view path, std::uint64_t offset, void* buffer,
                                     std::size_t size) {
    const node_ptr place = find(path);
    if (place && !place->is_folder)
        return copy_from(*place, offset, buffer, size);
    fail(error::file_not_found);
    return std::nullopt;
}

std::string_view line_end() noexcept {
    return "\n";
}

std::string display_path(std::string_view path) {
    return std::string(path);
}

std::string from_display_path(std::string_view path) {
    return std::string(path);
}

struct directory_search::state {
    std::vector<directory_entry> found;
    std::size_t next = 0;
};

directory_search::directory_search() noexcept = default;
directory_search::~directory_search() = default;

bool directory_search::first(std::string_view pattern, directory_entry& entry) {
    const std::size_t cut = pattern.rfind('\\') + 1;
    std::string name(pattern.substr(cut));
    if (name.ends_with("*.*"))
        name.resize(name.size() - 2);
    const std::string start = key_of(pattern.substr(0, cut)) + "\\";
    m_state = std::make_unique<state>();
    for (auto each = disk.lower_bound(start); each != disk.end() && each->first.starts_with(start); ++each) {
        const std::string_view inside = std::string_view(each->first).substr(start.size());
        if (inside.find('\\') == std::string_view::npos &&
            fnmatch(name.c_str(), inside.data(), FNM_NOESCAPE) == 0)
            m_state->found.push_back({std::string(inside), each->second->attributes()});
    }
    return next(entry) || fail(error::file_not_found);
}

bool directory_search::next(directory_entry& entry) {
    if (!m_state || m_state->next == m_state->found.size())
        return fail(error::no_more_files);
    entry = m_state->found[m_state->next++];
    return true;
}

void directory_search::close() noexcept {
    m_state.reset();
}

mapping::~mapping() {
    close();
}

bool mapping::create(file& target, bool writable, std::uint64_t size) {
    close();
    if (!target.m_state)
        return fail(error::invalid_handle);
    const std::uint64_t present = target.m_state->place->bytes->size();
    if (size == 0)
        size = present;
    if (size == 0)
        return fail(error::file_invalid);
    if (size > present && (!writable || !target.m_state->place->resize(size)))
        return fail(error::not_enough_memory);
    m_handle = reinterpret_cast<std::intptr_t>(new std::shared_ptr(target.m_state->place->bytes));
    m_writable = writable;
    m_size = size;
    return true;
}

bool mapping::map_view() {
    if (m_size == 0)
        return fail(error::invalid_handle);
    m_view = (*reinterpret_cast<std::shared_ptr<content>*>(m_handle))->data();
    return true;
}

void mapping::close() noexcept {
    if (m_size != 0)
        delete reinterpret_cast<std::shared_ptr<content>*>(m_handle);
    m_view = nullptr;
    m_size = 0;
}

// No target comes to these.

bool file::set_last_write_time(std::uint64_t) {
    return fail(error::not_supported);
}

bool set_attributes(std::string_view, std::uint32_t) {
    return fail(error::not_supported);
}

bool replace_file(std::string_view, std::string_view) {
    return fail(error::not_supported);
}

std::string current_directory() {
    return "\\";
}

bool set_current_directory(std::string_view) {
    return fail(error::not_supported);
}

} // namespace tvr::platform
