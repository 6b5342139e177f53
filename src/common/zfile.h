// Whole files packed with zlib, where the library is there; plain otherwise.
#pragma once

#include <cstddef>
#include <cstdint>
#include <span>
#include <string_view>
#include <vector>

#include "platform/library.h"
#include "platform/sync.h"

namespace tvr {

class file_stream;

inline constexpr std::uint32_t packed_signature = 0x26072105; // of a packed form's head

class zlib_loader {
public:
    // Loads the library by name, or else beside the logs. True if one is loaded, also from before.
    bool load(std::string_view name);
    void unload() noexcept;

    // The compressed form in memory: a head of 16 bytes and the stream. `size` holds the room for the
    // stream and receives its size alone, without the head.
    bool compress_block(std::span<const std::uint8_t> source, std::uint8_t* destination, std::uint32_t& size);
    // deliberate: this and unpacked_size() have no caller here.
    // The data of a compressed form; `size` holds the room and receives the size of the data.
    bool uncompress_block(std::span<const std::uint8_t> source, std::uint8_t* destination,
                          std::uint32_t& size);
    static std::uint32_t bound(std::uint32_t size) noexcept; // room for a result: size + size / 1000 + 396
    // The size of the data of a compressed form; 0 if it is none.
    static std::uint32_t unpacked_size(std::span<const std::uint8_t> memory);

    // Writes either form to the stream; `size_out` (may be null) receives the bytes of the last write.
    bool WriteZFile(file_stream& file, std::span<const std::uint8_t> source, std::uint32_t* size_out);
    // Packs a whole file to the stream. False if it can't be mapped.
    bool compress_file(std::string_view source_path, file_stream& target);
    // Restores what compress_file wrote at the stream's position into a new file.
    bool restore_file(file_stream& source, std::string_view target_path);

private:
    using compress_function = int (*)(std::uint8_t*, unsigned long*, const std::uint8_t*, unsigned long);

    platform::critical_section m_lock;
    compress_function m_compress = nullptr;
    compress_function m_uncompress = nullptr;
    platform::library m_library;
};

} // namespace tvr
