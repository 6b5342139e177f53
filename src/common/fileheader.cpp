#include "common/fileheader.h"

#include "common/bytes.h"
#include "common/file_stream.h"
#include "common/logger.h"

namespace tvr {

fileheader& fileheader::add(std::uint32_t& member, std::uint32_t value) {
    if (m_count >= limit) {
        TVR_LOG(default_log, "[-] fileheader overloaded!");
        return *this;
    }
    m_refs[m_count] = &member;
    m_defaults[m_count] = value;
    ++m_count;
    member = value;
    return *this;
}

bool fileheader::read(file_stream& file, std::uint32_t hint) {
    // deliberate: how much a read delivered is not looked at. At the end of the file the words keep what
    // they held, which fits neither signature nor hint unless the caller left it so.
    std::size_t got = 0;
    if (!file.read(&m_filecount, 4, got))
        return false;
    if (m_filecount == signature) {
        if (!file.read(&m_filecount, 4, got))
            return false;
    } else if (hint == 0 || m_filecount != hint) {
        file.seek(-4, platform::origin::current);
        return false;
    }
    if (m_filecount > limit)
        return false;
    auto values = m_defaults;
    if (!file.read(values.data(), std::size_t{m_filecount} * 4, got))
        return false;
    for (std::uint32_t i = 0; i < m_count; ++i)
        *m_refs[i] = values[i];
    return true;
}

bool fileheader::readheader_s(file_stream& file, std::uint32_t foreign_signature) {
    const std::uint32_t own = signature;
    signature = foreign_signature;
    const bool result = read(file);
    signature = own;
    return result;
}

bool fileheader::write(file_stream& file) const {
    std::array<std::uint8_t, 8 + 4 * std::size_t{limit}> bytes;
    std::size_t end = 0;
    return write(bytes, end) && file.write(bytes.data(), end);
}

bool fileheader::read(std::span<const std::uint8_t> memory, std::size_t& position) {
    if (position > memory.size() || memory.size() - position < 8)
        return false;
    const std::uint8_t* head = memory.data() + position;
    if (load_u32(head) != signature)
        return false;
    m_filecount = load_u32(head + 4);
    if (m_filecount > limit || (memory.size() - position - 8) / 4 < m_filecount)
        return false;
    for (std::uint32_t i = 0; i < m_count && i < m_filecount; ++i)
        *m_refs[i] = load_u32(head + 8 + 4 * std::size_t{i});
    position += 8 + 4 * std::size_t{m_filecount};
    return true;
}

bool fileheader::write(std::span<std::uint8_t> memory, std::size_t& position) const {
    if (position > memory.size() || memory.size() - position < size())
        return false;
    std::uint8_t* head = memory.data() + position;
    store_u32(head, signature);
    store_u32(head + 4, m_count);
    for (std::uint32_t i = 0; i < m_count; ++i)
        store_u32(head + 8 + 4 * std::size_t{i}, *m_refs[i]);
    position += size();
    return true;
}

} // namespace tvr
