#include "common/files.h"

#include <array>

#include "common/file_stream.h"
#include "common/path.h"
#include "platform/error.h"
#include "platform/file.h"

namespace tvr {

std::uint32_t file_size(std::string_view path) {
    platform::file probe;
    if (path.empty() ||
        !probe.open(path, platform::access::none, platform::share::read, platform::creation::open_existing))
        return no_file_size;
    const auto size = probe.size();
    return size ? static_cast<std::uint32_t>(*size) : no_file_size;
}

bool read_short_string(file_stream& file, std::string& text) {
    std::uint8_t length = 0;
    if (!file.read_exact(&length, 1))
        return false;
    std::array<char, 256> bytes;
    std::size_t got = 0;
    const bool whole = file.read(bytes.data(), length, got) && got == length;
    text.assign(bytes.data(), got);
    return whole;
}

bool write_short_string(file_stream& file, std::string_view text) {
    const auto length = static_cast<std::uint8_t>(text.size());
    return file.write(&length, 1) && file.write(text.data(), text.size());
}

std::string folder_of(std::string_view path) {
    const std::string_view folder = folder_part(path);
    return std::string(folder.empty() ? ".\\" : folder);
}

bool replace_durably(const std::string& made, const std::string& path) {
    return platform::make_durable({made}) && platform::replace_file(made, path) &&
           platform::make_durable({folder_of(path)});
}

rewritten rewrite_durably(const std::string& path, const std::function<bool(file_stream&)>& write) {
    const std::string beside = tilde_name(path);
    file_stream file;
    const bool written = file.create_to_write(beside) && write(file) && file.close();
    if (written && replace_durably(beside, path))
        return rewritten::done;
    const std::uint32_t code = platform::last_error();
    file.close();
    platform::delete_file(beside); // it takes room that others need
    platform::set_last_error(code);
    return written ? rewritten::not_replaced : rewritten::not_written;
}

bool move_durably(const std::string& from, const std::string& to) {
    return platform::move_file(from, to) && platform::make_durable({folder_of(to), folder_of(from)});
}

bool link_or_copy(std::string_view source, std::string_view target, bool fail_if_exists) {
    if (platform::create_hard_link(target, source))
        return true;
    if (platform::last_error() == platform::error::already_exists && !fail_if_exists) {
        platform::delete_file(target);
        if (platform::create_hard_link(target, source))
            return true;
    }
    return platform::copy_file(source, target, fail_if_exists) &&
           platform::make_durable({std::string(target)});
}

} // namespace tvr
