#include "tools/formats/inspection.h"

#include <algorithm>
#include <cstdio>

#include <nlohmann/json.hpp>

#include "platform/file.h"
#include "tools/formats/file_view.h"
#include "tools/text.h"

namespace tvr {

namespace {

constexpr std::uint64_t first_entries = 10;

std::string dump(const nlohmann::json& json) {
    return json.dump(-1, ' ', false, nlohmann::json::error_handler_t::replace);
}

std::string json_name(std::string name) {
    std::replace(name.begin(), name.end(), ' ', '_');
    return dump(name);
}

std::string json_text(const view_value& value) {
    return std::visit([](const auto& plain) { return dump(plain); }, value);
}

std::string plain_text(const view_value& value) {
    if (const auto* number = std::get_if<std::uint64_t>(&value))
        return std::to_string(*number);
    if (const auto* flag = std::get_if<bool>(&value))
        return *flag ? "yes" : "no";
    if (const auto* real = std::get_if<double>(&value)) {
        char text[32];
        std::snprintf(text, sizeof text, "%.6f", *real);
        return text;
    }
    return visible(std::get<std::string>(value));
}

// Counts entries and defects for both forms.
class printer : public view_sink {
public:
    printer(std::string name, const inspect_options& options, std::ostream& out, std::ostream& errors)
        : m_name(std::move(name)), m_options(options), m_out(out), m_errors(errors) {}

    bool wants_details() override { return m_options.all; }
    bool wants_entry() override { return ++m_entries <= first_entries || m_options.all; }
    void defect(std::uint64_t offset, const std::string& reason) override {
        if (!m_defects.tells_next())
            return;
        m_errors << "tvrctl: " << m_name << ": offset " << offset << ": " << reason << "\n";
        keep_defect(offset, reason);
    }
    void list(const char* name) override {
        end_list();
        m_in_list = true;
        m_entries = 0;
        begin_list(name);
    }
    void field(const char* name, const view_value& value) override {
        end_list();
        show_field(name, value);
    }
    virtual void begin(std::string_view kind, std::uint64_t size) = 0;
    bool finish() {
        end_list();
        if (const std::string rest = m_defects.rest(); !rest.empty())
            m_errors << "tvrctl: " << m_name << ": " << rest << "\n";
        end();
        return m_defects.all() == 0;
    }

protected:
    virtual void show_field(const char* name, const view_value& value) = 0;
    virtual void begin_list(const char* name) = 0;
    virtual void close_list(std::uint64_t left_out) = 0;
    virtual void keep_defect(std::uint64_t, const std::string&) {}
    virtual void end() {}

    const std::string m_name;
    const inspect_options m_options;
    std::ostream& m_out;

private:
    void end_list() {
        if (m_in_list)
            close_list(m_options.all ? 0 : m_entries - std::min(m_entries, first_entries));
        m_in_list = false;
    }

    std::ostream& m_errors;
    std::uint64_t m_entries = 0; // of the list
    defect_count m_defects;
    bool m_in_list = false;
};

class text_printer final : public printer {
public:
    using printer::printer;

    void begin(std::string_view kind, std::uint64_t size) override {
        m_out << m_name << ": " << kind << ", " << grouped(size) << " bytes\n";
    }
    void entry(std::initializer_list<view_item> items) override {
        const char* gap = "    ";
        for (const auto& [name, value] : items) {
            m_out << gap << name << " " << plain_text(value);
            gap = "  ";
        }
        m_out << "\n";
    }

protected:
    void show_field(const char* name, const view_value& value) override {
        m_out << "  " << name << ": " << plain_text(value) << "\n";
    }
    void begin_list(const char* name) override { m_out << "  " << name << ":\n"; }
    void close_list(std::uint64_t left_out) override {
        if (left_out != 0)
            m_out << "    and " << grouped(left_out) << " more\n";
    }
};

// Written as it comes, so that a long list costs no memory.
class json_printer final : public printer {
public:
    using printer::printer;

    void begin(std::string_view kind, std::uint64_t size) override {
        m_out << "{\"file\":" << dump(m_name) << ",\"kind\":" << dump(kind) << ",\"size\":" << size;
    }
    void entry(std::initializer_list<view_item> items) override {
        char gap = '{';
        m_out << (m_first ? "" : ",");
        m_first = false;
        for (const auto& [name, value] : items) {
            m_out << gap << json_name(name) << ":" << json_text(value);
            gap = ',';
        }
        m_out << "}";
    }

protected:
    void show_field(const char* name, const view_value& value) override {
        m_out << "," << json_name(name) << ":" << json_text(value);
    }
    void begin_list(const char* name) override {
        m_out << "," << json_name(name) << ":[";
        m_list = name;
        m_first = true;
    }
    void close_list(std::uint64_t left_out) override {
        m_out << "]";
        if (left_out != 0)
            m_out << "," << json_name(m_list + " left out") << ":" << left_out;
    }
    void keep_defect(std::uint64_t offset, const std::string& reason) override {
        m_found.push_back({{"offset", offset}, {"reason", reason}});
    }
    void end() override { m_out << ",\"defects\":" << dump(m_found) << "}\n"; }

private:
    nlohmann::json m_found = nlohmann::json::array();
    std::string m_list;
    bool m_first = true;
};

bool show(printer& to, file_kind kind, file_view& file, std::uint64_t size) {
    to.begin(kind_text(kind), size);
    walk_file(kind, file, to);
    if (file.failed())
        to.defect(file.position(), "can't be read");
    return to.finish();
}

} // namespace

bool inspect_file(const std::string& path, const inspect_options& options, std::ostream& out,
                  std::ostream& errors) {
    const std::string name = options.json ? path : visible(path);
    const auto refuse = [&](const char* why) {
        errors << "tvrctl: " << visible(path) << ": " << why << "\n";
        return false;
    };
    const std::string own_path = platform::from_display_path(path);
    platform::file probe; // with no rights: hinders nobody
    if (!probe.open(own_path, platform::access::none, platform::share::read_write,
                    platform::creation::open_existing))
        return refuse("can't be opened");
    file_view file(own_path);
    const file_kind kind = kind_of(file);
    if (file.failed())
        return refuse("can't be read");
    if (kind == file_kind::unknown)
        return refuse("no file of the engine, by content or name");
    const std::uint64_t size = probe.size().value_or(0);
    text_printer as_text(name, options, out, errors);
    json_printer as_json(name, options, out, errors);
    return show(options.json ? static_cast<printer&>(as_json) : as_text, kind, file, size);
}

} // namespace tvr
