// What a reader tells of a mail, line by line.
#pragma once

#include <string>
#include <vector>

#include "client/mail/mail_reader.h"
#include "common/text.h"

namespace tvr {

// The fields of the header are left out unless they are asked for.
class told_mail : public mail_visitor {
public:
    explicit told_mail(bool with_fields = false) : m_with_fields(with_fields) {}
    std::vector<std::string> lines;

    void header(std::string_view name, std::string_view value) override {
        if (m_with_fields)
            lines.push_back(std::string(name) + ": " + std::string(trim(value, " \t\r\n")));
    }
    void end_of_headers() override {}
    void multipart(std::string_view subtype) override {
        lines.push_back("multipart " + std::string(subtype));
    }
    void message(std::string_view subject) override { lines.push_back("mail " + std::string(subject)); }
    std::size_t part(const mail_part& told) override {
        std::string line = std::string(told.type) + "/" + std::string(told.subtype);
        if (told.encoding)
            line += " " + std::string(name_of(*told.encoding));
        const auto add = [&](const char* name, const std::optional<std::string_view>& text) {
            if (text)
                line += std::string(name) + std::string(*text);
        };
        add(" charset=", told.charset);
        add(" is ", told.disposition);
        add(" file=", told.file);
        lines.push_back(line);
        return std::size_t{1} << 20;
    }
    void text(const mail_part&, std::string_view decoded) override {
        lines.push_back("[" + std::string(decoded) + "]");
    }

private:
    bool m_with_fields;
};

} // namespace tvr
