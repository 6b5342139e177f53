// The messages of a batch, fetched with their tokens by position.
#pragma once

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <memory>
#include <string_view>

#include "common/bytes.h"
#include "common/file_stream.h"
#include "dict/message_record.h"

namespace tvr {

// A block of tokens with counts (as dword_map writes it), read in one piece and walked where it lies: for
// those who need each token once and no table.
class token_block {
public:
    // Reads the block at the stream's position, as far as the file has it: an entry that is cut short doesn't
    // count, nor does what follows it. Its memory is kept for the next block.
    void read(file_stream& file) {
        std::uint32_t head[2];
        m_size = 0;
        if (!file.read_exact(head, sizeof head))
            return;
        const std::size_t size = make_room(file, head[1]);
        if (file.read(m_bytes.get(), size, m_size))
            m_size = whole_entries(m_size);
    }

    // Calls action(token, count) in storage order. An empty token is passed over: no map has one.
    template <class Action>
    void for_each(Action&& action) const {
        const std::uint8_t* const end = m_bytes.get() + m_size;
        for (const std::uint8_t* entry = m_bytes.get(); entry != end;) {
            const std::size_t length = *entry;
            const std::uint8_t* const value = entry + 1 + length;
            if (length != 0)
                action(std::string_view(reinterpret_cast<const char*>(entry + 1), length), load_u32(value));
            entry = value + 4;
        }
    }

private:
    // Takes no more memory than the file has bytes, whatever the head says; how much of `wanted` there is
    // room for.
    std::size_t make_room(file_stream& file, std::size_t wanted) {
        if (wanted <= m_room)
            return wanted;
        const std::uint64_t end = file.size().value_or(0);
        const auto size =
            static_cast<std::size_t>(std::min<std::uint64_t>(wanted, end - std::min(end, file.position())));
        if (size > m_room) {
            m_room = 0;
            m_bytes.reset();
            m_bytes = std::make_unique_for_overwrite<std::uint8_t[]>(size);
            m_room = size;
        }
        return size;
    }

    [[nodiscard]] std::size_t whole_entries(std::size_t size) const noexcept {
        std::size_t place = 0;
        while (place < size && std::size_t{m_bytes[place]} + 5 <= size - place)
            place += std::size_t{m_bytes[place]} + 5;
        return place;
    }

    std::unique_ptr<std::uint8_t[]> m_bytes;
    std::size_t m_room = 0; // bytes
    std::size_t m_size = 0; // bytes of entries
};

// A message file and the message read last. One thread.
class message_reader {
public:
    bool open(std::string_view path) { return m_file.open_to_read(path); }

    // Reads the record at an offset. False if there is none. Of a token table that is cut short the whole
    // tokens count.
    bool read(std::uint64_t offset) {
        if (offset > INT64_MAX || !m_file.seek(static_cast<std::int64_t>(offset), platform::origin::begin) ||
            !head.read_head(m_file))
            return false;
        tokens.read(m_file);
        return true;
    }

    message_head head;
    token_block tokens;

private:
    file_stream m_file;
};

} // namespace tvr
