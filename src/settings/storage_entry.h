// What hangs in a storage: typed values, and the sections that hold them.
//
// Plain objects without a lock of their own; the storage that owns the tree guards them.
#pragma once

#include <cstddef>
#include <cstdint>
#include <list>
#include <memory>
#include <span>

namespace tvr {

// The tag of an entry in memory and in the file. Other numbers come in from damaged files only.
enum class entry_tag : std::uint8_t {
    section = 0,
    byte = 1,
    octet = 2, // as byte, under a tag of its own
    word = 3,  // 2 bytes
    dword = 4,
    qword = 5,
    block16 = 6,
    string = 7,
    wide_string = 8, // 16-bit characters
    blob = 9,
};

class storage_entry {
public:
    [[nodiscard]] virtual entry_tag type() const noexcept = 0;
    virtual ~storage_entry() = default;
};

// Bytes under a tag; what they mean is the business of those who put them there.
class storage_value : public storage_entry {
public:
    [[nodiscard]] virtual std::size_t size() const noexcept = 0; // bytes
    // Die with the entry and at the next set().
    [[nodiscard]] virtual const std::uint8_t* data() const noexcept = 0;
    // Replaces the bytes; none empties a string or blob. A wide string leaves an odd last byte out. False,
    // with the value as it was, if an entry of fixed size is given any other size.
    virtual bool set(std::span<const std::uint8_t> bytes) = 0;
};

// The bytes of an entry of fixed size, or 0 for all other tags.
[[nodiscard]] std::size_t fixed_size(entry_tag tag) noexcept;
[[nodiscard]] bool is_value(entry_tag tag) noexcept; // one of the nine
// A new entry, zero or empty; null for an unknown tag.
[[nodiscard]] std::shared_ptr<storage_entry> make_entry(entry_tag tag);

// Children in the order of insertion; several may have one id. Depth of nesting costs no stack.
class storage_section final : public storage_entry {
public:
    struct child {
        std::uint16_t id = 0;
        std::shared_ptr<storage_entry> entry;
    };
    using position = std::list<child>::const_iterator;

    storage_section() = default;
    storage_section(const storage_section&) = delete;
    storage_section& operator=(const storage_section&) = delete;

    [[nodiscard]] entry_tag type() const noexcept override { return entry_tag::section; }
    ~storage_section() override;
    [[nodiscard]] virtual std::size_t count() const noexcept; // of children
    // Writes the section in its file form at buffer + used and moves `used` past it; with a null buffer it
    // only does the latter. False if the section has more children, or a value more bytes, than 32 bits hold.
    virtual bool save(std::uint8_t* buffer, std::size_t& used) const;
    // Takes the section from the front of `rest` and moves past it. False for bytes of another tag and
    // for damage, with some of the children loaded. Memory: at most about 40 bytes for each byte read.
    virtual bool load(std::span<const std::uint8_t>& rest);
    // The same without the header of the section itself.
    virtual bool save_children(std::uint8_t* buffer, std::size_t& used) const;
    virtual bool load_children(std::span<const std::uint8_t>& rest, std::uint32_t count);

    position append(std::uint16_t id, std::shared_ptr<storage_entry> entry);
    void clear() noexcept;
    [[nodiscard]] position begin() const noexcept { return m_children.begin(); }
    [[nodiscard]] position end() const noexcept { return m_children.end(); }
    // Changes with each clear(): a position is good as long as this is what it was.
    [[nodiscard]] std::uint64_t generation() const noexcept { return m_generation; }

private:
    std::list<child> m_children;
    std::uint64_t m_generation = 0;
};

} // namespace tvr
