#include "common/zfile.h"

#include <algorithm>
#include <array>

#include "common/bytes.h"
#include "common/file_stream.h"
#include "common/fileheader.h"
#include "common/filemap.h"
#include "common/logger.h"
#include "common/path.h"

namespace tvr {

namespace {

constexpr std::size_t head_size = 16;
constexpr std::uint64_t most_packing = 1032; // zlib's best ratio; more in a head is damage
constexpr std::uint64_t size_slack = 1024;

struct packed_head {
    std::uint32_t source_size = 0;
    std::uint32_t packed_size = 0;
    fileheader header{packed_signature};
    packed_head() { header.add(source_size, 0).add(packed_size, 0); }
    packed_head(const packed_head&) = delete;
    packed_head& operator=(const packed_head&) = delete;
};

std::uint64_t bytes_left(file_stream& file) {
    const std::uint64_t size = file.size().value_or(0);
    return size - std::min(size, file.position());
}

} // namespace

bool zlib_loader::load(std::string_view name) {
    if (m_library.is_loaded())
        return true;
    if (!m_library.load(name)) {
        const std::string beside = join_path(logger::instance().folder(), file_part(name));
        if (!m_library.load(beside)) {
            TVR_LOG(default_log, "[-] unable to load %s library", std::string(name).c_str());
            return false;
        }
        TVR_LOG(default_log, "[i] Loaded library %s", m_library.path().c_str());
    }
    m_compress = reinterpret_cast<compress_function>(m_library.symbol("compress"));
    m_uncompress = reinterpret_cast<compress_function>(m_library.symbol("uncompress"));
    return true;
}

void zlib_loader::unload() noexcept {
    m_compress = m_uncompress = nullptr;
    m_library.unload();
}

std::uint32_t zlib_loader::bound(std::uint32_t size) noexcept {
    return size + size / 1000 + 396;
}

bool zlib_loader::compress_block(std::span<const std::uint8_t> source, std::uint8_t* destination,
                                 std::uint32_t& size) {
    if (!m_compress || !destination)
        return false;
    TVR_LOG(default_log, "[i] inside compress");
    packed_head head;
    head.source_size = static_cast<std::uint32_t>(source.size());
    const std::span<std::uint8_t> head_room(destination, head_size);
    std::size_t position = 0;
    head.header.write(head_room, position);
    unsigned long room = size;
    const int result =
        m_compress(destination + position, &room, source.data(), static_cast<unsigned long>(source.size()));
    if (result != 0) {
        TVR_LOG(default_log, "[-] calling compress returned %d as the result", result);
        return false;
    }
    head.packed_size = size = static_cast<std::uint32_t>(room);
    position = 0;
    return head.header.write(head_room, position);
}

bool zlib_loader::uncompress_block(std::span<const std::uint8_t> source, std::uint8_t* destination,
                                   std::uint32_t& size) {
    packed_head head;
    std::size_t position = 0;
    if (!m_uncompress || !destination || !head.header.read(source, position))
        return false;
    const std::size_t packed = std::min<std::size_t>(head.packed_size, source.size() - position);
    unsigned long room = size;
    const bool done =
        m_uncompress(destination, &room, source.data() + position, static_cast<unsigned long>(packed)) == 0;
    size = static_cast<std::uint32_t>(room);
    return done;
}

std::uint32_t zlib_loader::unpacked_size(std::span<const std::uint8_t> memory) {
    packed_head head;
    std::size_t position = 0;
    return head.header.read(memory, position) ? head.source_size : 0;
}

// deliberate: the count that compress_block reports leaves out the head, so the last 16 bytes of the stream
// don't reach the file. restore_file is built around that.
bool zlib_loader::WriteZFile(file_stream& file, std::span<const std::uint8_t> source,
                             std::uint32_t* size_out) {
    const auto size = static_cast<std::uint32_t>(source.size());
    const std::uint32_t room = bound(size);
    TVR_LOG(default_log, "WriteZFile (0x%08X, %d bytes, %d for output, %d will be allocated)",
            static_cast<unsigned>(reinterpret_cast<std::uintptr_t>(source.data())), static_cast<int>(size),
            size_out ? static_cast<int>(*size_out) : 0, static_cast<int>(room));
    std::vector<std::uint8_t> buffer(room);
    std::uint32_t packed = room - static_cast<std::uint32_t>(head_size);
    std::uint32_t written = 0;
    bool done = false;
    if (compress_block(source, buffer.data(), packed)) {
        TVR_LOG(default_log, "WriteZFile create compressed output");
        written = packed;
        done = file.write(buffer.data(), packed);
    } else {
        TVR_LOG(default_log, "WriteZFile create usual uncompressed output");
        written = size;
        done = file.write_u32(size) && file.write(source.data(), source.size());
    }
    if (size_out)
        *size_out = done ? written : 0;
    return done;
}

bool zlib_loader::compress_file(std::string_view source_path, file_stream& target) {
    const read_map source(source_path);
    return source.is_valid() && source.size() <= 0xFFFFFFFF && WriteZFile(target, source.bytes(), nullptr);
}

bool zlib_loader::restore_file(file_stream& source, std::string_view target_path) {
    packed_head head;
    const std::uint64_t start = source.position();
    const bool packed = head.header.read(source);
    if (!packed) {
        if (source.position() != start || !source.read_u32(head.source_size))
            return false;
        head.packed_size = head.source_size;
    }
    const std::uint64_t left = bytes_left(source);
    const std::uint64_t most =
        packed ? std::min<std::uint64_t>(head.packed_size, left) * most_packing + size_slack : left;
    if (head.source_size > most || head.packed_size > left + head_size)
        return false;
    std::vector<std::uint8_t> content(head.source_size);
    std::size_t got = 0;
    if (packed) {
        std::vector<std::uint8_t> stream(head.packed_size);
        source.read(stream.data(), stream.size(), got);
        unsigned long room = head.source_size;
        if (got != 0 && m_uncompress)
            m_uncompress(content.data(), &room, stream.data(), head.packed_size);
    } else {
        source.read(content.data(), content.size(), got);
    }
    file_stream target;
    return target.create_to_write(target_path) && target.write(content.data(), content.size()) &&
           target.close();
}

} // namespace tvr
