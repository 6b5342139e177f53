// Takes a mail apart: RFC 5322 and MIME as mail programs read them, on the bytes where they are.
#pragma once

#include <cstddef>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "client/mail/encoded_words.h"
#include "client/mail/field_scanner.h"
#include "client/mail/parameters.h"
#include "client/mail/transfer_encoding.h"

namespace tvr {

struct mail_limits {
    unsigned depth = 24; // of nested parts
    unsigned parts = 200;
    unsigned headers = 200;                    // fields of the outermost header that are told
    std::size_t opened = std::size_t{4} << 20; // bytes of an attached mail that is encoded
};

// What the header of a part says about it; what it doesn't say is absent. File names are in UTF-8 if they
// tell their charset, otherwise as they are.
struct mail_part {
    std::string_view type = "text", subtype = "plain";
    std::optional<transfer_encoding> encoding;
    std::optional<std::string_view> charset, disposition, file;
};

// Takes what is found, in the order of the mail. All texts are valid during the call only.
class mail_visitor {
public:
    virtual ~mail_visitor() = default;
    // A field of the outermost header, its value as it stands there; and the end of that header.
    virtual void header(std::string_view name, std::string_view raw_value) = 0;
    virtual void end_of_headers() = 0;
    virtual void multipart(std::string_view subtype) = 0;
    // A mail within the mail, its subject decoded; what is in it follows.
    virtual void message(std::string_view subject) = 0;
    // A part without parts. The result tells how many bytes of its text are wanted; with 0, text() isn't
    // called.
    virtual std::size_t part(const mail_part& described) = 0;
    // Its text, decoded to the bytes of its charset. No more than was wanted.
    virtual void text(const mail_part& described, std::string_view decoded) = 0;
};

// One object belongs to one thread, and is made to be used for many mails: it keeps its buffers. Takes any
// bytes, never fails, and needs a time in proportion to them.
class mail_reader {
public:
    explicit mail_reader(const mail_limits& limits = {}) : m_limits(limits) {}

    // An mbox line ("From ...") in front is passed over. The result is the number of parts, those with parts
    // and attached mails counted too.
    unsigned read(std::string_view raw, mail_visitor& visitor);

private:
    static constexpr std::size_t none = static_cast<std::size_t>(-1);
    // What of a header its reader needs.
    struct content {
        mail_part part;
        bool has_type = false;
        std::string_view subject;
    };

    void entity(unsigned depth, bool within_digest);
    void header(content& found, bool outermost);
    void content_field(const header_field& field, content& found);
    void body(content& found, unsigned depth);
    void multipart(const content& found, unsigned depth);
    void attached(unsigned depth);
    void encoded_mail(const content& found, unsigned depth);
    void leaf(content& found);
    [[nodiscard]] std::string_view find_boundary();
    bool open_boundary(std::string_view boundary);
    [[nodiscard]] bool meets_boundary(std::string_view line);
    std::string_view until_boundary();
    void give_up();

    mail_limits m_limits;
    mail_visitor* m_visitor = nullptr;
    std::string_view m_raw;
    std::size_t m_at = 0;
    char m_line_end = '\n';
    unsigned m_parts = 0;
    bool m_in_encoded = false;

    // Of the multiparts that are open, the innermost last. Those below m_first belong to a mail around this
    // one.
    std::vector<std::string> m_boundaries;
    std::size_t m_first = 0, m_open = 0;
    std::size_t m_hit = none; // the one that ended the last part; none: the end of the mail did
    bool m_hit_last = false;  // it was the closing one

    parameter_set m_type_parameters{{"charset", "boundary", "name"}};
    parameter_set m_disposition_parameters{{"filename"}};
    word_decoder m_words;
    std::string m_decoded;
};

} // namespace tvr
