#include "settings/storage_entry.h"

#include <array>
#include <cstring>
#include <limits>
#include <string>
#include <utility>
#include <vector>

#include "common/bytes.h"

namespace tvr {

namespace {

template <entry_tag tag, std::size_t width>
class fixed_value final : public storage_value {
public:
    [[nodiscard]] entry_tag type() const noexcept override { return tag; }
    [[nodiscard]] std::size_t size() const noexcept override { return width; }
    [[nodiscard]] const std::uint8_t* data() const noexcept override { return m_bytes.data(); }
    bool set(std::span<const std::uint8_t> bytes) override {
        if (bytes.size() != width)
            return false;
        std::memcpy(m_bytes.data(), bytes.data(), width);
        return true;
    }

private:
    std::array<std::uint8_t, width> m_bytes{};
};

// A string, wide string or blob, by its container.
template <entry_tag tag, class container>
class sized_value final : public storage_value {
public:
    [[nodiscard]] entry_tag type() const noexcept override { return tag; }
    [[nodiscard]] std::size_t size() const noexcept override { return m_content.size() * unit; }
    [[nodiscard]] const std::uint8_t* data() const noexcept override {
        return reinterpret_cast<const std::uint8_t*>(m_content.data());
    }
    bool set(std::span<const std::uint8_t> bytes) override {
        m_content.resize(bytes.size() / unit);
        if (!m_content.empty())
            std::memcpy(m_content.data(), bytes.data(), size());
        return true;
    }

private:
    static constexpr std::size_t unit = sizeof(typename container::value_type);
    container m_content;
};

constexpr std::size_t id_size = 2;
constexpr std::size_t least_child = id_size + 1; // bytes
constexpr std::uint8_t tag_bits = 0x3F;
constexpr unsigned form_shift = 6; // the bits above tell the width of the size

// The header of an entry: its tag, and its bytes or children.
struct size_entry {
    entry_tag tag = entry_tag::section;
    std::uint32_t size = 0;
};

// Writes if there is a buffer; counts either way.
void put(std::uint8_t* buffer, std::size_t& used, const void* bytes, std::size_t size) {
    if (buffer && size != 0)
        std::memcpy(buffer + used, bytes, size);
    used += size;
}

bool save_header(std::uint8_t* buffer, std::size_t& used, entry_tag tag, std::size_t size) {
    if (size > std::numeric_limits<std::uint32_t>::max())
        return false;
    const unsigned form = fixed_size(tag) != 0 ? 0 : size < 0x100 ? 1 : size < 0x10000 ? 2 : 3;
    constexpr std::array<std::size_t, 4> widths = {0, 1, 2, 4};
    std::array<std::uint8_t, 5> bytes{};
    bytes[0] = static_cast<std::uint8_t>(static_cast<unsigned>(tag) | form << form_shift);
    store_u32(&bytes[1], static_cast<std::uint32_t>(size));
    put(buffer, used, bytes.data(), 1 + widths.at(form));
    return true;
}

bool load_header(std::span<const std::uint8_t>& rest, size_entry& entry) {
    if (rest.empty())
        return false;
    entry.tag = static_cast<entry_tag>(rest[0] & tag_bits);
    const unsigned form = rest[0] >> form_shift;
    const std::size_t width = form == 3 ? 4 : form;
    rest = rest.subspan(1);
    if (rest.size() < width)
        return false;
    entry.size = 0;
    std::memcpy(&entry.size, rest.data(), width);
    rest = rest.subspan(width);
    return true;
}

// Null if the bytes left are too few.
std::shared_ptr<storage_entry> load_value(std::span<const std::uint8_t>& rest, const size_entry& header) {
    // deliberate: an entry of fixed size goes by its own size, but a size that is told must be there too.
    if (rest.size() < header.size)
        return nullptr;
    const std::size_t fixed = fixed_size(header.tag);
    const std::size_t size = fixed != 0 ? fixed : header.size;
    if (rest.size() < size)
        return nullptr;
    auto entry = make_entry(header.tag);
    static_cast<storage_value&>(*entry).set(rest.first(size));
    rest = rest.subspan(size);
    return entry;
}

} // namespace

std::size_t fixed_size(entry_tag tag) noexcept {
    constexpr std::array<std::size_t, 7> sizes = {0, 1, 1, 2, 4, 8, 16};
    const auto index = static_cast<std::size_t>(tag);
    return index < sizes.size() ? sizes.at(index) : 0;
}

bool is_value(entry_tag tag) noexcept {
    return tag != entry_tag::section && tag <= entry_tag::blob;
}

std::shared_ptr<storage_entry> make_entry(entry_tag tag) {
    switch (tag) {
    case entry_tag::section:
        return std::make_shared<storage_section>();
    case entry_tag::byte:
        return std::make_shared<fixed_value<entry_tag::byte, 1>>();
    case entry_tag::octet:
        return std::make_shared<fixed_value<entry_tag::octet, 1>>();
    case entry_tag::word:
        return std::make_shared<fixed_value<entry_tag::word, 2>>();
    case entry_tag::dword:
        return std::make_shared<fixed_value<entry_tag::dword, 4>>();
    case entry_tag::qword:
        return std::make_shared<fixed_value<entry_tag::qword, 8>>();
    case entry_tag::block16:
        return std::make_shared<fixed_value<entry_tag::block16, 16>>();
    case entry_tag::string:
        return std::make_shared<sized_value<entry_tag::string, std::string>>();
    case entry_tag::wide_string:
        return std::make_shared<sized_value<entry_tag::wide_string, std::u16string>>();
    case entry_tag::blob:
        return std::make_shared<sized_value<entry_tag::blob, std::vector<std::uint8_t>>>();
    }
    return nullptr;
}

storage_section::~storage_section() {
    clear();
}

std::size_t storage_section::count() const noexcept {
    return m_children.size();
}

bool storage_section::save(std::uint8_t* buffer, std::size_t& used) const {
    return save_header(buffer, used, entry_tag::section, count()) && save_children(buffer, used);
}

bool storage_section::load(std::span<const std::uint8_t>& rest) {
    size_entry header;
    return load_header(rest, header) && header.tag == entry_tag::section && load_children(rest, header.size);
}

bool storage_section::save_children(std::uint8_t* buffer, std::size_t& used) const {
    struct level {
        const storage_section* section;
        position next;
    };
    std::vector<level> open = {{this, begin()}};
    while (!open.empty()) {
        if (open.back().next == open.back().section->end()) {
            open.pop_back();
            continue;
        }
        const child& each = *open.back().next++;
        put(buffer, used, &each.id, id_size);
        if (each.entry->type() == entry_tag::section) {
            const auto& section = static_cast<const storage_section&>(*each.entry);
            if (!save_header(buffer, used, entry_tag::section, section.count()))
                return false;
            open.push_back({&section, section.begin()});
        } else {
            const auto& value = static_cast<const storage_value&>(*each.entry);
            if (!save_header(buffer, used, value.type(), value.size()))
                return false;
            put(buffer, used, value.data(), value.size());
        }
    }
    return true;
}

bool storage_section::load_children(std::span<const std::uint8_t>& rest, std::uint32_t count) {
    struct level {
        storage_section* section;
        std::uint32_t left; // children
    };
    std::vector<level> open = {{this, count}};
    while (!open.empty()) {
        if (open.back().left == 0) {
            open.pop_back();
            continue;
        }
        --open.back().left;
        if (rest.size() < least_child)
            return false;
        const auto id = load_le<std::uint16_t>(rest.data());
        rest = rest.subspan(id_size);
        size_entry header;
        if (!load_header(rest, header))
            return false;
        storage_section& parent = *open.back().section;
        if (header.tag == entry_tag::section) {
            auto section = std::make_shared<storage_section>();
            open.push_back({section.get(), header.size});
            parent.append(id, std::move(section));
        } else if (is_value(header.tag)) {
            auto value = load_value(rest, header);
            if (!value)
                return false;
            parent.append(id, std::move(value));
        }
        // deliberate: an unknown tag is passed over with its header alone, whatever size it tells.
    }
    return true;
}

storage_section::position storage_section::append(std::uint16_t id, std::shared_ptr<storage_entry> entry) {
    return m_children.insert(m_children.end(), {id, std::move(entry)});
}

void storage_section::clear() noexcept {
    ++m_generation;
    std::list<child> doomed = std::move(m_children);
    m_children.clear();
    while (!doomed.empty()) {
        // A section that goes with us hands its children over first, so that deep trees don't fall into the
        // stack.
        const std::shared_ptr<storage_entry>& entry = doomed.front().entry;
        if (entry.use_count() == 1 && entry->type() == entry_tag::section)
            doomed.splice(doomed.end(), static_cast<storage_section&>(*entry).m_children);
        doomed.pop_front();
    }
}

} // namespace tvr
