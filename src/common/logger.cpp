#include "common/logger.h"

#include <algorithm>
#include <array>
#include <atomic>
#include <cerrno>
#include <cstdio>
#include <cstring>
#include <vector>

#include "common/bytes.h"
#include "common/path.h"
#include "platform/clock.h"
#include "platform/file.h"
#include "platform/process.h"
#include "platform/registry.h"

namespace tvr {

namespace {

// The logger in use, and whether it may be used; read by every log statement.
std::atomic<logger*> current_logger{nullptr};
std::atomic<bool> is_ready{false};

// deliberate: the value's type doesn't matter; a short one replaces the low bytes.
std::uint32_t registry_number(const platform::registry_key& key, const char* name, std::uint32_t fallback) {
    std::array<char, 4> bytes;
    store_u32(bytes.data(), fallback);
    const auto value = key.query(name);
    if (value && value->data.size() <= bytes.size())
        std::copy(value->data.begin(), value->data.end(), bytes.begin());
    return load_u32(bytes.data());
}

std::string cut_last_part(const std::string& path) {
    std::string folder(folder_part(path));
    if (!folder.empty())
        folder.pop_back();
    return folder;
}

// The path with the extension of its file name replaced.
std::string with_extension(const std::string& path, std::string_view extension) {
    const std::size_t dot = path.rfind('.');
    const bool has_extension = dot != std::string::npos && path.find('\\', dot) == std::string::npos;
    return path.substr(0, has_extension ? dot : path.size()) + "." + std::string(extension);
}

// Joins with one backslash, without a leading one of the name.
std::string join_log_path(const std::string& folder, std::string_view name) {
    if (!name.empty() && name.front() == '\\')
        name.remove_prefix(1);
    return join_path(folder, name);
}

std::string stamp(std::uint32_t flags) {
    const platform::calendar_time now = platform::local_time();
    char text[64];
    if (flags & logger::short_stamp)
        std::snprintf(text, sizeof text, "%02d:%02d:%02d   ", now.hour, now.minute, now.second);
    else
        std::snprintf(text, sizeof text, "%d/%02d/%02d %02d:%02d:%02d   ", now.year, now.month, now.day,
                      now.hour, now.minute, now.second);
    return text;
}

std::string build_line(std::uint32_t flags, const char* text) {
    std::string line;
    if (!(flags & logger::raw))
        line = stamp(flags);
    if (flags & logger::thread_id)
        line += std::to_string(platform::current_thread_id()) + ":";
    line += text;
    if (!(flags & logger::raw))
        line += '\n';
    return line;
}

// One open, one write, one close: nothing waits in a buffer.
void append_line(const std::string& path, std::string_view line) {
    platform::file file;
    if (!file.open(path, platform::access::write, platform::share::read, platform::creation::open_always,
                   platform::attribute::archive))
        return;
    file.seek(0, platform::origin::end);
    std::string out;
    out.reserve(line.size() + 8);
    for (const char c : line) {
        if (c == '\n')
            out += '\r';
        if (c != '\r')
            out += c;
    }
    file.write(out.data(), out.size());
}

} // namespace

logger& logger::instance() {
    static logger object;
    return object;
}

void logger::shut_down() noexcept {
    is_ready = false;
}

bool logger::enabled() noexcept {
    return enabled(1);
}

bool logger::enabled(std::uint32_t level) noexcept {
    const logger* object = current_logger.load(std::memory_order_acquire);
    return object && is_ready.load(std::memory_order_acquire) &&
           (object->m_flags & (to_file | to_debugger)) != 0 && object->m_level >= level &&
           object->m_level != 0;
}

logger::logger() {
    platform::registry_key key;
    if (key.open(platform::registry_root::local_machine, "Software")) {
        m_flags = registry_number(key, "EnableKWILLog", 0);
        m_level = registry_number(key, "KWILLogLevel", 1);
    }
    logger* none = nullptr;
    if (current_logger.compare_exchange_strong(none, this))
        is_ready = true;
}

logger::~logger() {
    logger* self = this;
    if (current_logger.load() == this)
        is_ready = false;
    current_logger.compare_exchange_strong(self, nullptr);
}

void logger::configure(std::string_view module_path, std::string_view folder) {
    const platform::locker locker(m_mutex);
    m_module = module_path;
    m_folder = folder;
}

void logger::set_writer_hook(writer_hook hook) {
    const platform::locker locker(m_mutex);
    m_writer_hook = hook;
}

bool logger::log(const char* name, const char* format, ...) {
    std::va_list arguments;
    va_start(arguments, format);
    const bool done = vlog(name, format, arguments);
    va_end(arguments);
    return done;
}

bool logger::vlog(const char* name, const char* format, std::va_list arguments) {
    std::vector<char> text(std::max<std::size_t>(20, 2 * std::strlen(format)));
    for (;;) {
        std::va_list copy;
        va_copy(copy, arguments);
        const int length = std::vsnprintf(text.data(), text.size() - 1, format, copy);
        va_end(copy);
        if (length < 0 || static_cast<std::size_t>(length) < text.size() - 1)
            break;
        text.resize(text.size() * 2);
    }
    text.back() = '\0';

    std::uint32_t flags = 0;
    writer_hook hook = nullptr;
    std::string path;
    {
        const platform::locker locker(m_mutex);
        flags = m_flags;
        hook = m_writer_hook;
        path = resolve(name);
    }
    const std::string line = build_line(flags, text.data());
    if (flags & to_debugger)
        platform::debug_output(line);
    if (flags & to_file) {
        if (hook)
            hook(name, line);
        else
            append_line(path, line);
    }
    return true;
}

void logger::rotate(const char* name) {
    if (!(m_flags & to_file))
        return;
    const platform::locker locker(m_mutex);
    const std::string path = resolve(name);
    const std::string old = with_extension(path, "0");
    platform::delete_file(old);
    platform::move_file(path, old);
}

std::string logger::folder() {
    const platform::locker locker(m_mutex);
    resolve_folder();
    return m_folder;
}

void logger::resolve_folder() {
    if (m_module.empty())
        m_module = platform::module_path();
    if (!m_folder.empty())
        return;
    const std::string beside = cut_last_part(m_module);
    m_folder = join_path(beside, "log");
    if (!platform::get_attributes(m_folder))
        m_folder = beside;
}

std::string logger::resolve(const char* name) {
    const std::string_view text = name ? name : "";
    if (text.find(':') != std::string_view::npos)
        return std::string(text);
    resolve_folder();
    if (const auto known = m_names.find(text); known != m_names.end())
        return known->second;
    const std::string path = join_log_path(
        m_folder, text.empty() ? with_extension(std::string(file_part(m_module)), "log") : text);
    return m_names.emplace(text, path).first->second;
}

std::string pointer_text(std::uint64_t value) {
    char text[20];
    std::snprintf(text, sizeof text, "%016llX", static_cast<unsigned long long>(value));
    return text;
}

} // namespace tvr
