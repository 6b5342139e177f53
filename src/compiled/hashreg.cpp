#include "compiled/hashreg.h"

#include <bit>
#include <utility>

#include "common/bytes.h"
#include "common/file_names.h"
#include "common/file_stream.h"
#include "common/logger.h"
#include "platform/error.h"
#include "platform/profile.h"
#include "settings/common_settings.h"

namespace tvr {

namespace {

bool open_base(file_stream& file, std::string_view path) {
    if (file.open_to_read(path))
        return true;
    const std::uint32_t code = platform::last_error();
    TVR_LOG(default_log, "[-] file_read(%s) failed: 0x%s", std::string(path).c_str(),
            pointer_text(code).c_str());
    return false;
}

constexpr std::uint32_t high_word(std::uint64_t time) {
    return static_cast<std::uint32_t>(time >> 32);
}
constexpr std::uint32_t low_word(std::uint64_t time) {
    return static_cast<std::uint32_t>(time);
}

} // namespace

bool hashreg::load(std::string_view path) {
    m_loaded_time = 0;
    if (!path.empty())
        m_inited = __tryloadcashe(path);
    return m_inited;
}

bool hashreg::__tryloadcashe(std::string_view path) {
    TVR_LOG(default_log, "[i] hashreg::__tryloadcashe");
    file_stream file;
    if (!open_base(file, path))
        return false;
    m_loaded_time = file.raw().last_write_time().value_or(0);
    if (!m_header.header.read(file)) {
        TVR_LOG(default_log, "[i] file is not valid. Checking if it is just deprecated...");
        if (!file.seek(0, platform::origin::begin) ||
            !m_header.header.readheader_s(file, base_header::deprecated_signature)) {
            TVR_LOG(default_log, "[-] file is neither valid, nor deprecated. We are failed...");
            return false;
        }
    }
    if (!init_from_file(file)) {
        TVR_LOG(default_log, "[-] init_from_file failed...");
        return false;
    }
    expect_absent_keys();
    return true;
}

double hashreg::grade(std::string_view token) {
    if (!m_inited || token.empty())
        return 0.0;
    const std::uint8_t* const value = _get_value(token);
    return value ? static_cast<double>(std::bit_cast<float>(load_u32(value))) : 0.0;
}

bool hashreg::is_file_fresher(std::string_view path) const {
    file_stream file;
    if (!open_base(file, path))
        return false;
    const std::uint64_t time = file.raw().last_write_time().value_or(0);
    if (high_word(time) <= high_word(m_loaded_time) && low_word(time) <= low_word(m_loaded_time))
        return false;
    TVR_LOG(default_log, "[i] hashreg::is_file_fresher: file IS fresher then our base");
    return true;
}

void hashreg::say_status_to_ini() const {
    if (!m_inited) {
        TVR_LOG(default_log, "[-] hashreg::say_status_to_ini - object NOT initialized");
        return;
    }
    const auto folder = common_settings::common_folder();
    if (!folder)
        return;
    const std::pair<const char*, std::uint32_t> totals[] = {{"NonSpamLetters", m_header.nonspam_messages},
                                                            {"SpamLetters", m_header.spam_messages},
                                                            {"NonSpamWords", m_header.nonspam_tokens},
                                                            {"SpamWords", m_header.spam_tokens}};
    for (const auto& [key, total] : totals)
        platform::write_profile_string("DbStatus", key, std::to_string(static_cast<std::int32_t>(total)),
                                       *folder + names::common_counts);
}

void hashreg::get_loaded_time(std::uint64_t* out) const noexcept {
    if (out)
        *out = m_loaded_time;
}

} // namespace tvr
