#include "settings/storage.h"

#include <algorithm>
#include <cstring>
#include <utility>

#include "common/bytes.h"
#include "platform/clock.h"
#include "platform/sync.h"

namespace tvr {

namespace {

constexpr std::size_t version_offset = 4;
constexpr std::uint8_t version = 1;
constexpr std::size_t head_size = 8;      // bytes
constexpr std::size_t least_name = 3;     // an id and the end of an empty name
constexpr std::uint16_t last_id = 0xFFFE; // of the ids that can be issued

// Splits the first name off a path; `path` is null after the last one.
std::string_view split_name(const char*& path) {
    const std::string_view name(path, std::strcspn(path, "\\/"));
    path = path[name.size()] == '\0' ? nullptr : path + name.size() + 1;
    return name;
}

} // namespace

void storage_lock::lock() noexcept {
    const std::uint32_t self = platform::current_thread_id();
    if (m_owner.load(std::memory_order_relaxed) != self) {
        std::uint32_t nobody = 0;
        while (!m_owner.compare_exchange_weak(nobody, self, std::memory_order_acquire)) {
            platform::sleep_for(1);
            nobody = 0;
        }
    }
    ++m_depth;
}

void storage_lock::unlock() noexcept {
    if (--m_depth == 0)
        m_owner.store(0, std::memory_order_release);
}

storage_object::storage_object() : m_root(std::make_shared<storage_section>()) {}

storage_object::~storage_object() = default;

void storage_object::clear() {
    const guard locker(m_lock);
    m_root->clear();
    m_names.clear();
    m_last_id = 0;
    m_modified = false;
}

storage_handle* storage_object::create_section(const char* path, const storage_handle* parent, bool unique) {
    const guard locker(m_lock);
    arg search;
    search.parent = section_of(parent);
    search.create = true;
    search.unique = unique;
    auto entry = __search(path, search);
    return entry && entry->type() == entry_tag::section ? make_handle(std::move(entry), search) : nullptr;
}

storage_handle* storage_object::find_section(const char* path, const storage_handle* parent) {
    const guard locker(m_lock);
    arg search;
    search.parent = section_of(parent);
    search.any = !path;
    auto entry = __search(path, search);
    return entry ? make_handle(std::move(entry), search) : nullptr;
}

storage_handle* storage_object::next_release(storage_handle* handle, bool any) {
    const guard locker(m_lock);
    storage_handle* const following = next(handle, any);
    release(handle);
    return following;
}

storage_handle* storage_object::next(const storage_handle* handle, bool any) {
    const guard locker(m_lock);
    if (!is_valid(handle))
        return nullptr;
    arg search;
    go_on_behind(*handle, search);
    search.any = any;
    if (any)
        search.id = 0;
    auto entry = __search(nullptr, search);
    return entry ? make_handle(std::move(entry), search) : nullptr;
}

void storage_object::release(storage_handle* handle) {
    const guard locker(m_lock);
    const std::unique_ptr<storage_handle> released(is_valid(handle) ? handle : nullptr);
}

bool storage_object::clear_section(const storage_handle* handle) {
    const guard locker(m_lock);
    if (!is_valid(handle) || handle->entry->type() != entry_tag::section)
        return false;
    static_cast<storage_section&>(*handle->entry).clear();
    return true;
}

bool storage_object::set_at(const storage_handle* handle, std::span<const std::uint8_t> bytes,
                            entry_tag type) {
    const guard locker(m_lock);
    if (!is_valid(handle) || !is_value(type) || handle->entry->type() != type ||
        !static_cast<storage_value&>(*handle->entry).set(bytes))
        return false;
    m_modified = true;
    return true;
}

bool storage_object::set(const char* path, const storage_handle* parent, std::span<const std::uint8_t> bytes,
                         entry_tag type, bool unique) {
    const guard locker(m_lock);
    const std::size_t fixed = fixed_size(type);
    if (!is_value(type) || (fixed != 0 && fixed != bytes.size()))
        return false;
    arg search;
    search.parent = section_of(parent);
    search.create = true;
    search.unique = unique;
    search.type = type;
    const auto entry = __search(path, search);
    if (!entry || entry->type() != type)
        return false;
    static_cast<storage_value&>(*entry).set(bytes);
    m_modified = true;
    return true;
}

bool storage_object::get(const char* path, const storage_handle* parent, void* buffer,
                         std::size_t buffer_size, std::size_t* size_out, entry_tag type,
                         storage_handle** handle_out) {
    const guard locker(m_lock);
    arg search;
    search.parent = section_of(parent);
    if (handle_out && *handle_out) {
        if (!is_valid(*handle_out))
            return false;
        go_on_behind(**handle_out, search);
        release(std::exchange(*handle_out, nullptr));
    }
    auto entry = __search(path, search);
    if (!entry || !is_value(entry->type()) || (type != entry_tag::blob && entry->type() != type))
        return false;
    const auto& value = static_cast<const storage_value&>(*entry);
    if (size_out)
        *size_out = value.size();
    if (buffer) {
        if (value.size() > buffer_size)
            return false;
        if (value.size() != 0)
            std::memcpy(buffer, value.data(), value.size());
    }
    if (handle_out)
        *handle_out = make_handle(std::move(entry), search);
    return true;
}

bool storage_object::load(std::span<const std::uint8_t> bytes) {
    const guard locker(m_lock);
    clear();
    if (bytes.size() < head_size || bytes.size() > max_packed_size || bytes[version_offset] != version ||
        load_u32(bytes.data()) != signature)
        return false;
    std::span<const std::uint8_t> rest = bytes.subspan(head_size);
    if (load_names(rest) && m_root->load(rest) && rest.empty())
        return true;
    clear();
    return false;
}

bool storage_object::is_modified() const {
    const guard locker(m_lock);
    return m_modified;
}

void storage_object::set_modified(bool modified) {
    const guard locker(m_lock);
    m_modified = modified;
}

bool storage_object::pack(std::vector<std::uint8_t>& bytes) const {
    const guard locker(m_lock);
    std::size_t size = head_size;
    save_names(nullptr, size);
    if (!m_root->save(nullptr, size) || size > max_packed_size)
        return false;
    bytes.assign(size, 0);
    store_u32(bytes.data(), signature);
    bytes[version_offset] = version;
    std::size_t used = head_size;
    save_names(bytes.data(), used);
    return m_root->save(bytes.data(), used);
}

bool storage_object::is_valid(const storage_handle* handle) const noexcept {
    return handle && handle->tag == storage_handle::valid_tag && handle->lock.mutex() == &m_lock;
}

std::shared_ptr<storage_section> storage_object::section_of(const storage_handle* parent) const {
    if (!parent)
        return m_root;
    if (!is_valid(parent) || parent->entry->type() != entry_tag::section)
        return nullptr;
    return std::static_pointer_cast<storage_section>(parent->entry);
}

std::shared_ptr<storage_entry> storage_object::__search(const char* path, arg& search) {
    std::shared_ptr<storage_section> section = search.parent;
    while (section) {
        std::uint16_t id = unknown_id;
        bool is_last = false;
        if (!search.create && search.id != 0) {
            id = search.id;
            is_last = true;
        } else if (path) {
            const std::string_view name = split_name(path);
            is_last = !path;
            id = is_last && search.create ? issue(name) : look_up(name);
        } else {
            is_last = !search.create && search.any;
        }
        // deliberate: with an unknown name on the way nothing is made; only the last name can be.
        if (id == unknown_id && (search.create || !search.any))
            return nullptr;

        auto place = section->end();
        if (!is_last || !search.create || !search.unique) {
            if (is_last && search.advance && search.generation != section->generation())
                return nullptr;
            place = is_last && search.advance ? std::next(search.place) : section->begin();
            place = std::find_if(place, section->end(), [&](const storage_section::child& each) {
                return id == unknown_id || each.id == id;
            });
        }
        if (place == section->end()) {
            auto made = is_last && search.create ? make_entry(search.type) : nullptr;
            if (!made)
                return nullptr;
            place = section->append(id, std::move(made));
        }
        if (is_last) {
            search.parent = std::move(section);
            search.generation = search.parent->generation();
            search.place = place;
            search.id = place->id;
            return place->entry;
        }
        // deliberate: the first entry of a name decides, even if a section of the same name stands after it.
        if (place->entry->type() != entry_tag::section)
            return nullptr;
        section = std::static_pointer_cast<storage_section>(place->entry);
    }
    return nullptr;
}

storage_handle* storage_object::make_handle(std::shared_ptr<storage_entry> entry, const arg& found) {
    auto handle = std::make_unique<storage_handle>();
    handle->parent = found.parent;
    handle->entry = std::move(entry);
    handle->place = found.place;
    handle->id = found.id;
    handle->lock = std::unique_lock(m_lock);
    handle->generation = found.generation;
    return handle.release();
}

void storage_object::go_on_behind(const storage_handle& handle, arg& search) {
    search.advance = true;
    search.parent = handle.parent;
    search.place = handle.place;
    search.id = handle.id;
    search.generation = handle.generation;
}

std::uint16_t storage_object::look_up(std::string_view name) const {
    const auto found = m_names.find(name);
    return found == m_names.end() ? unknown_id : found->second;
}

std::uint16_t storage_object::issue(std::string_view name) {
    std::uint16_t id = look_up(name);
    if (id == unknown_id && m_last_id != last_id)
        id = m_names.emplace(name, ++m_last_id).first->second;
    return id;
}

void storage_object::save_names(std::uint8_t* buffer, std::size_t& used) const {
    for (const auto& [name, id] : m_names) {
        if (buffer) {
            store_le(buffer + used, id);
            std::memcpy(buffer + used + sizeof id, name.c_str(), name.size() + 1);
        }
        used += sizeof id + name.size() + 1;
    }
    if (buffer)
        store_le(buffer + used, unknown_id); // and a zero byte
    used += least_name;
}

bool storage_object::load_names(std::span<const std::uint8_t>& rest) {
    while (rest.size() >= least_name) {
        const auto id = load_le<std::uint16_t>(rest.data());
        if (id == unknown_id) {
            rest = rest.subspan(least_name);
            return true;
        }
        const std::span<const std::uint8_t> text = rest.subspan(sizeof id);
        const auto end = std::find(text.begin(), text.end(), std::uint8_t{0});
        if (end == text.end())
            return false;
        m_names.insert_or_assign(std::string(text.begin(), end), id);
        rest = std::span(end + 1, text.end());
        // deliberate: one more than the id, and compared as signed numbers, so that ids of the upper half
        // don't count.
        const auto following = static_cast<std::uint16_t>(id + 1);
        if (static_cast<std::int16_t>(following) > static_cast<std::int16_t>(m_last_id))
            m_last_id = following;
    }
    return false;
}

} // namespace tvr
