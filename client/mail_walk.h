// Takes a mail apart.
#pragma once

#include <cstddef>
#include <optional>
#include <string>
#include <string_view>

#include "client/tokenizer.h"

namespace tvr {

// What the header of a part says about it, decoded; what it doesn't say is absent.
struct mail_part {
    std::string_view type, subtype;
    std::optional<std::string_view> encoding, charset, disposition, file;
};

// Takes what is found, in the order of the mail.
class mail_visitor {
public:
    virtual ~mail_visitor() = default;
    // A field of the outermost header, its value as it stands there; and the end of that header.
    virtual void header(std::string_view name, std::string_view raw_value) = 0;
    virtual void end_of_headers() = 0;
    virtual void multipart(std::string_view subtype) = 0;
    // A mail within the mail, its subject decoded; what is in it follows.
    virtual void message(std::string_view subject) = 0;
    // A part without parts. The answer tells how many bytes of its text are wanted; with 0, text() isn't
    // called.
    virtual std::size_t part(const mail_part& described) = 0;
    // Its text, decoded to the bytes of its charset. No more than was wanted.
    virtual void text(const mail_part& described, std::string_view decoded) = 0;
};

// Takes the bytes of a mail apart within the limits; never fails. The answer is the number of parts.
unsigned walk_mail(std::string_view raw, const tokenizer_limits& limits, mail_visitor& visitor);

// A value with its encoded words ("=?utf-8?q?a?=") decoded.
[[nodiscard]] std::string decode_words(std::string_view value);

} // namespace tvr
