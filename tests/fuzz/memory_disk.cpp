#include "memory_disk.h"

#include <algorithm>
#include <ctime>
#include <map>
#include <memory>
#include <optional>
#include <set>
#include <utility>

#include "common/text.h"
#include "platform/error.h"
#include "platform/file.h"
#include "platform/mapping.h"
#include "platform/posix/errors.h"

namespace tvr::platform::posix {
std::uint64_t to_file_time(const timespec& time) noexcept;
}

namespace {

using tvr::platform::access;
using tvr::platform::share;

// The bytes of a file, exactly. A view keeps those that it was made of.
struct content {
    explicit content(std::size_t bytes) : data(new std::uint8_t[bytes]()), size(bytes) {}
    std::unique_ptr<std::uint8_t[]> data;
    std::size_t size;
};

struct node {
    std::shared_ptr<content> bytes = std::make_shared<content>(0);
    std::vector<std::pair<access, share>> holders;
    std::uint64_t written = 0; // time
    bool is_folder = false;
    bool read_only = false;

    void resize(std::size_t size) {
        auto larger = std::make_shared<content>(size);
        std::copy_n(bytes->data.get(), std::min(size, bytes->size), larger->data.get());
        bytes = std::move(larger);
    }
};
using node_ptr = std::shared_ptr<node>;

std::map<std::string, node_ptr, std::less<>>& disk() {
    static std::map<std::string, node_ptr, std::less<>> nodes;
    return nodes;
}

constexpr std::size_t largest_file = std::size_t{1} << 28; // bytes; more counts as a full disk

// One backslash between names, none at the end; empty for what can be no path.
std::string key_of(std::string_view path) {
    std::string key;
    if (path.find('\0') != std::string_view::npos)
        return key;
    for (const char c : path)
        if (c != '\\' && c != '/')
            key += c;
        else if (key.empty() || key.back() != '\\')
            key += '\\';
    if (key.size() > 1 && key.back() == '\\')
        key.pop_back();
    return key;
}

std::string parent_of(std::string_view key) {
    const std::size_t cut = key.rfind('\\');
    return std::string(key.substr(0, cut == std::string_view::npos ? 0 : cut));
}

node_ptr find(std::string_view path) {
    const auto found = disk().find(key_of(path));
    return found == disk().end() ? nullptr : found->second;
}

bool has_parent(std::string_view key) {
    const std::string parent = parent_of(key);
    const node_ptr folder = parent.empty() ? nullptr : find(parent);
    return parent.empty() || (folder && folder->is_folder);
}

bool overlap(unsigned a, unsigned b) {
    return (a & b) != 0;
}

// One of two handles has what the other doesn't share.
bool conflicts(access rights, share sharing, const std::pair<access, share>& other) {
    return overlap(static_cast<unsigned>(rights), ~static_cast<unsigned>(other.second)) ||
           overlap(static_cast<unsigned>(other.first), ~static_cast<unsigned>(sharing));
}

// "*" matches any text; all patterns of the system have no other sign.
bool matches(std::string_view pattern, std::string_view name) {
    if (pattern.empty())
        return name.empty();
    if (pattern.front() != '*')
        return !name.empty() && pattern.front() == name.front() && matches(pattern.substr(1), name.substr(1));
    for (std::size_t i = 0; i <= name.size(); ++i)
        if (matches(pattern.substr(1), name.substr(i)))
            return true;
    return false;
}

tvr::fuzz::kept_files* kept = nullptr;

std::uint64_t tick() { // each change has a time of its own
    static std::uint64_t time = 130'000'000'000'000'000;
    return time += 10'000;
}

} // namespace

namespace tvr::fuzz {

void clear_disk() {
    disk().clear();
}

void put_file(std::string_view path, std::span<const std::uint8_t> bytes) {
    const std::string key = key_of(path);
    for (std::string folder = parent_of(key); !folder.empty() && !disk().contains(folder);
         folder = parent_of(folder)) {
        disk()[folder] = std::make_shared<node>();
        disk()[folder]->is_folder = true;
    }
    auto file = std::make_shared<node>();
    file->bytes = std::make_shared<content>(bytes.size());
    std::copy(bytes.begin(), bytes.end(), file->bytes->data.get());
    file->written = tick();
    disk()[key] = std::move(file);
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
    return file ? std::string(reinterpret_cast<const char*>(file->bytes->data.get()), file->bytes->size)
                : std::string();
}

std::vector<std::string> all_files() {
    std::vector<std::string> paths;
    for (const auto& [path, each] : disk())
        if (!each->is_folder)
            paths.push_back(path);
    return paths;
}

std::size_t disk_bytes() {
    std::set<const node*> seen; // a file may have two names
    std::size_t sum = 0;
    for (const auto& [path, each] : disk())
        sum += seen.insert(each.get()).second ? each->bytes->size : 0;
    return sum;
}

void keep_deleted(kept_files* files) {
    kept = files;
}

} // namespace tvr::fuzz

namespace tvr::platform {

using posix::fail;

struct file::state {
    node_ptr place;
    access rights;
    share sharing;
    std::uint64_t position = 0;

    state(node_ptr its, access its_rights, share its_sharing)
        : place(std::move(its)), rights(its_rights), sharing(its_sharing) {
        if (rights != access::none)
            place->holders.emplace_back(rights, sharing);
    }
    ~state() {
        const auto own = std::find(place->holders.begin(), place->holders.end(), std::pair(rights, sharing));
        if (own != place->holders.end())
            place->holders.erase(own);
    }
    state(const state&) = delete;
    state& operator=(const state&) = delete;

    [[nodiscard]] bool may(access wanted) const {
        return (static_cast<unsigned>(rights) & static_cast<unsigned>(wanted)) ==
               static_cast<unsigned>(wanted);
    }
    bool resize(std::uint64_t size) const {
        if (size > largest_file)
            return fail(error::disk_full);
        place->resize(static_cast<std::size_t>(size));
        place->written = tick();
        return true;
    }
};

file::file() noexcept = default;
file::~file() = default;
file::file(file&& other) noexcept = default;
file& file::operator=(file&& other) noexcept = default;

bool file::open(std::string_view path, access rights, share sharing, creation mode,
                std::uint32_t attributes) {
    close();
    const std::string key = key_of(path);
    if (key.empty() || !has_parent(key))
        return fail(error::path_not_found);
    node_ptr place = find(key);
    const bool cuts = mode == creation::create_always || mode == creation::truncate_existing;
    if (place) {
        if (mode == creation::create_new)
            return fail(error::file_exists);
        if (rights != access::none || cuts) {
            const bool writes = cuts || overlap(static_cast<unsigned>(rights), 2);
            if (place->is_folder || (writes && place->read_only))
                return fail(error::access_denied);
            for (const auto& other : place->holders)
                if (conflicts(rights, sharing, other))
                    return fail(error::sharing_violation);
        }
        if (cuts) {
            place->resize(0);
            place->written = tick();
        }
    } else {
        if (mode == creation::open_existing || mode == creation::truncate_existing)
            return fail(error::file_not_found);
        place = std::make_shared<node>();
        place->read_only = (attributes & attribute::read_only) != 0;
        place->written = tick();
        disk()[key] = place;
    }
    m_state = std::make_unique<state>(std::move(place), rights, sharing);
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
        return fail(error::invalid_handle);
    if (!m_state->may(access::read))
        return fail(error::access_denied);
    const content& bytes = *m_state->place->bytes;
    const std::uint64_t start = std::min<std::uint64_t>(m_state->position, bytes.size);
    got = std::min<std::size_t>(size, bytes.size - static_cast<std::size_t>(start));
    std::copy_n(bytes.data.get() + start, got, static_cast<std::uint8_t*>(buffer));
    m_state->position += got;
    return true;
}

bool file::write(const void* data, std::size_t size) {
    if (!m_state)
        return fail(error::invalid_handle);
    if (!m_state->may(access::write))
        return fail(error::access_denied);
    if (size == 0)
        return true;
    const std::uint64_t end = m_state->position + size;
    if (end > m_state->place->bytes->size && !m_state->resize(end))
        return false;
    std::copy_n(static_cast<const std::uint8_t*>(data), size,
                m_state->place->bytes->data.get() + m_state->position);
    m_state->place->written = tick();
    m_state->position = end;
    return true;
}

std::optional<std::uint64_t> file::seek(std::int64_t distance, origin from) {
    if (!m_state) {
        fail(error::invalid_handle);
        return std::nullopt;
    }
    const std::uint64_t start = from == origin::begin     ? 0
                                : from == origin::current ? m_state->position
                                                          : m_state->place->bytes->size;
    std::int64_t place = 0;
    if (__builtin_add_overflow(static_cast<std::int64_t>(start), distance, &place) || place < 0) {
        fail(error::invalid_parameter);
        return std::nullopt;
    }
    return m_state->position = static_cast<std::uint64_t>(place);
}

bool file::set_end() {
    if (!m_state)
        return fail(error::invalid_handle);
    return m_state->may(access::write) ? m_state->resize(m_state->position) : fail(error::access_denied);
}

bool file::flush() {
    return m_state != nullptr;
}

std::optional<std::uint64_t> file::size() const {
    return m_state ? std::optional<std::uint64_t>(m_state->place->bytes->size) : std::nullopt;
}

std::optional<std::uint64_t> file::last_write_time() const {
    return m_state ? std::optional(m_state->place->written) : std::nullopt;
}

bool file::set_last_write_time(std::uint64_t time) {
    if (!m_state || !m_state->may(access::write))
        return fail(error::access_denied);
    m_state->place->written = time;
    return true;
}

std::optional<std::uint32_t> get_attributes(std::string_view path) {
    const node_ptr place = find(path);
    if (!place) {
        fail(error::file_not_found);
        return std::nullopt;
    }
    return (place->is_folder ? attribute::directory : attribute::archive) |
           (place->read_only ? attribute::read_only : 0);
}

bool set_attributes(std::string_view path, std::uint32_t attributes) {
    const node_ptr place = find(path);
    if (!place)
        return fail(error::file_not_found);
    place->read_only = (attributes & attribute::read_only) != 0;
    return true;
}

bool delete_file(std::string_view path) {
    const node_ptr place = find(path);
    if (!place)
        return fail(error::file_not_found);
    if (place->is_folder || place->read_only)
        return fail(error::access_denied);
    if (!place->holders.empty())
        return fail(error::sharing_violation);
    if (kept)
        kept->emplace_back(key_of(path), fuzz::file_bytes(path));
    disk().erase(key_of(path));
    return true;
}

bool move_file(std::string_view from, std::string_view to) {
    const node_ptr place = find(from);
    const std::string key = key_of(to);
    if (!place)
        return fail(error::file_not_found);
    if (!place->holders.empty())
        return fail(error::sharing_violation);
    if (key.empty() || !has_parent(key))
        return fail(error::path_not_found);
    if (disk().contains(key))
        return fail(error::already_exists);
    if (place->is_folder)
        return fail(error::not_supported); // nobody moves a folder
    disk()[key] = place;
    disk().erase(key_of(from));
    return true;
}

bool replace_file(std::string_view from, std::string_view to) {
    return (!disk().contains(key_of(to)) || delete_file(to)) && move_file(from, to);
}

bool copy_file(std::string_view from, std::string_view to, bool fail_if_exists) {
    file source;
    file target;
    if (!source.open(from, access::read, share::read_write, creation::open_existing) ||
        !target.open(to, access::write, share::none,
                     fail_if_exists ? creation::create_new : creation::create_always))
        return false;
    const std::string bytes = fuzz::file_bytes(from);
    return target.write(bytes.data(), bytes.size());
}

bool create_hard_link(std::string_view link, std::string_view existing) {
    const node_ptr place = find(existing);
    const std::string key = key_of(link);
    if (!place)
        return fail(error::file_not_found);
    if (place->is_folder)
        return fail(error::access_denied);
    if (key.empty() || !has_parent(key))
        return fail(error::path_not_found);
    if (disk().contains(key))
        return fail(error::already_exists);
    disk()[key] = place;
    return true;
}

bool create_directory(std::string_view path) {
    const std::string key = key_of(path);
    if (key.empty() || !has_parent(key))
        return fail(error::path_not_found);
    if (disk().contains(key))
        return fail(error::already_exists);
    disk()[key] = std::make_shared<node>();
    disk()[key]->is_folder = true;
    return true;
}

bool remove_directory(std::string_view path) {
    const std::string key = key_of(path);
    const auto place = disk().find(key);
    if (place == disk().end())
        return fail(error::file_not_found);
    if (!place->second->is_folder)
        return fail(error::directory);
    const auto inside = disk().lower_bound(key + "\\");
    if (inside != disk().end() && inside->first.starts_with(key + "\\"))
        return fail(error::directory_not_empty);
    disk().erase(place);
    return true;
}

std::optional<std::string> make_temp_file(std::string_view folder, std::string_view prefix) {
    for (std::uint32_t number = 0;; ++number) {
        std::string path = std::string(folder) + (folder.ends_with('\\') ? "" : "\\") +
                           std::string(prefix.substr(0, 3)) + to_hex(number, 8) + ".tmp";
        file made;
        if (made.open(path, access::write, share::none, creation::create_new))
            return path;
        if (last_error() != error::file_exists)
            return std::nullopt;
    }
}

std::string temp_folder_path() {
    create_directory("\\temp");
    return "\\temp\\";
}

std::string current_directory() {
    return "\\";
}

bool set_current_directory(std::string_view) {
    return fail(error::not_supported);
}

std::optional<std::size_t> peek_file(std::string_view path, std::uint64_t offset, void* buffer,
                                     std::size_t size) {
    const node_ptr place = find(path);
    if (!place || place->is_folder) {
        fail(error::file_not_found);
        return std::nullopt;
    }
    const content& bytes = *place->bytes;
    const std::size_t start = std::min<std::uint64_t>(offset, bytes.size);
    const std::size_t got = std::min(size, bytes.size - start);
    std::copy_n(bytes.data.get() + start, got, static_cast<std::uint8_t*>(buffer));
    return got;
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
    close();
    const std::size_t cut = pattern.rfind('\\') + 1;
    std::string_view name = pattern.substr(cut);
    if (name.ends_with("*.*"))
        name.remove_suffix(2);
    const std::string folder = key_of(pattern.substr(0, cut));
    const node_ptr place = find(folder);
    if (!folder.empty() && (!place || !place->is_folder))
        return fail(error::path_not_found);
    m_state = std::make_unique<state>();
    const std::string start = folder.empty() ? folder : folder + "\\";
    for (auto each = disk().lower_bound(start); each != disk().end() && each->first.starts_with(start);
         ++each) {
        const std::string_view inside = std::string_view(each->first).substr(start.size());
        if (inside.find('\\') == std::string_view::npos && matches(name, inside))
            m_state->found.push_back({std::string(inside), *get_attributes(each->first)});
    }
    if (next(entry))
        return true;
    close();
    return fail(error::file_not_found);
}

bool directory_search::next(directory_entry& entry) {
    if (!m_state)
        return fail(error::invalid_handle);
    if (m_state->next == m_state->found.size())
        return fail(error::no_more_files);
    entry = m_state->found[m_state->next++];
    return true;
}

void directory_search::close() noexcept {
    m_state.reset();
}

namespace {

// Behind the number that a view keeps for its backend.
struct view_state {
    node_ptr place;
    std::shared_ptr<content> bytes;
};

view_state* state_of(std::intptr_t number) {
    return reinterpret_cast<view_state*>(number);
}

} // namespace

mapping::~mapping() {
    close();
}

bool mapping::create(file& target, bool writable, std::uint64_t size) {
    close();
    if (!target.m_state)
        return fail(error::invalid_handle);
    if (!target.m_state->may(writable ? access::read_write : access::read))
        return fail(error::access_denied);
    const std::uint64_t present = target.m_state->place->bytes->size;
    if (size == 0)
        size = present;
    if (size == 0)
        return fail(error::file_invalid);
    if (size > present && !writable)
        return fail(error::not_enough_memory);
    if (size > present && !target.m_state->resize(size))
        return false;
    m_handle = reinterpret_cast<std::intptr_t>(new view_state{target.m_state->place, nullptr});
    m_writable = writable;
    m_size = size;
    return true;
}

bool mapping::map_view() {
    if (m_size == 0)
        return fail(error::invalid_handle);
    state_of(m_handle)->bytes = state_of(m_handle)->place->bytes;
    m_view = state_of(m_handle)->bytes->data.get();
    return true;
}

void mapping::unmap_view() noexcept {
    m_view = nullptr;
    if (m_size != 0)
        state_of(m_handle)->bytes.reset();
}

void mapping::close() noexcept {
    unmap_view();
    if (m_size != 0)
        delete state_of(m_handle);
    m_handle = -1;
    m_size = 0;
}

namespace posix {

// Used by the clock, which stays the platform's.
std::uint64_t to_file_time(const timespec& time) noexcept {
    return (static_cast<std::uint64_t>(time.tv_sec) + 11'644'473'600) * 10'000'000 +
           static_cast<std::uint64_t>(time.tv_nsec) / 100;
}

} // namespace posix

} // namespace tvr::platform
