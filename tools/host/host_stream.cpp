#include "tools/host/host_stream.h"

#include <algorithm>
#include <array>
#include <cstdint>
#include <cstring>

namespace tvr {

namespace {

bool pass_over(std::FILE* in, std::size_t size) {
    std::array<char, 65536> room;
    while (size != 0) {
        const std::size_t got = std::fread(room.data(), 1, std::min(size, room.size()), in);
        if (got == 0)
            return false;
        size -= got;
    }
    return true;
}

bool write_frame(std::FILE* out, const std::string& reply) {
    const auto size = static_cast<std::uint32_t>(reply.size());
    return std::fwrite(&size, sizeof size, 1, out) == 1 &&
           std::fwrite(reply.data(), 1, reply.size(), out) == reply.size() && std::fflush(out) == 0;
}

} // namespace

std::string run_host_stream(std::FILE* in, std::FILE* out, host_session& session) {
    const char* const cut_off = "the input ends within a request";
    std::string request;
    for (;;) {
        std::array<char, sizeof(std::uint32_t)> head;
        const std::size_t got = std::fread(head.data(), 1, head.size(), in);
        if (got != head.size())
            return got == 0 ? "" : cut_off;
        std::uint32_t size = 0;
        std::memcpy(&size, head.data(), sizeof size);
        std::string reply;
        if (size > host_session::largest_request) {
            if (!pass_over(in, size))
                return cut_off;
            reply = host_session::too_large();
        } else {
            request.resize(size);
            if (std::fread(request.data(), 1, size, in) != size)
                return cut_off;
            reply = session.answer(request);
        }
        if (!write_frame(out, reply))
            return "a reply can't be written";
    }
}

} // namespace tvr
