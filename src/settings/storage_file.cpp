#include <cstdint>
#include <string>
#include <vector>

#include "common/logger.h"
#include "platform/error.h"
#include "platform/file.h"
#include "platform/mapping.h"
#include "settings/storage.h"

namespace tvr {

namespace {

// Writes a line to the default log and returns false.
bool fail(const std::string& text, std::uint32_t level = 1) {
    if (logger::enabled(level))
        logger::instance().log(default_log, "%s", text.c_str());
    return false;
}

std::string in_quotes(const std::string& path) {
    return "\"" + path + "\"";
}

} // namespace

bool storage_file::open(bool report) {
    platform::file file;
    if (!file.open(m_path, platform::access::read, platform::share::read, platform::creation::open_existing))
        return fail("can't open file " + in_quotes(m_path), report ? 1 : 2);
    platform::mapping view;
    if (!view.create(file, false, 0))
        return fail("can't create file mapping from " + in_quotes(m_path));
    if (!view.map_view())
        return fail("can't map file from " + in_quotes(m_path));
    if (!load({view.data(), static_cast<std::size_t>(view.size())}))
        return fail("can't unpack storage from " + in_quotes(m_path));
    return true;
}

bool storage_file::write(bool only_if_modified) {
    if (only_if_modified && !is_modified())
        return true;
    std::vector<std::uint8_t> bytes;
    if (!pack(bytes))
        return fail("can't pack data for " + in_quotes(m_path));
    platform::file file;
    if (!file.open(m_path, platform::access::read_write, platform::share::read,
                   platform::creation::create_always))
        return fail("can't create file " + in_quotes(m_path));
    if (!file.write(bytes.data(), bytes.size())) {
        const std::string number = ", err = " + std::to_string(platform::last_error());
        const std::uint64_t wrote = file.seek(0, platform::origin::current).value_or(0);
        if (wrote == 0)
            return fail("error writing " + in_quotes(m_path) + number);
        return fail("can't write all data to " + in_quotes(m_path) + number + ", wrote " +
                    std::to_string(wrote));
    }
    file.flush(); // the old ones are gone
    set_modified(false);
    return true;
}

} // namespace tvr
