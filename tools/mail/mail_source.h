// The mail a user points at, message by message.
#pragma once

#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <memory>
#include <string>
#include <string_view>
#include <vector>

#include "tools/mail/mail_folders.h"

namespace tvr {

struct mail_item {
    std::string name; // for the user: the file, and the number of the message in an mbox
    std::string file;
    std::uint32_t number = 0; // in its mbox, from 1; 0: the only one of its file
    std::string raw;          // the beginning of a large message
    std::uint64_t size = 0;   // bytes of the whole one
    bool spam = false;
    std::uint64_t index = 0; // among those given out
};

// A file in large pieces: by lines, then as it comes.
class line_reader {
public:
    bool open(const std::string& path); // "-" is standard input. False with the reason in errno
    void close() { m_file.reset(); }

    // The next line with its end, or as much of one as fits in the buffer; empty at the end of the file.
    void next_line(std::string& line);
    // The bytes behind it, as many as are at hand; empty at the end.
    std::string_view next_block();

    [[nodiscard]] bool is_open() const noexcept { return m_file != nullptr; }
    [[nodiscard]] bool failed() const noexcept { return std::ferror(m_file.get()) != 0; }

private:
    struct closer {
        void operator()(std::FILE* file) const noexcept {
            if (file != stdin)
                std::fclose(file);
        }
    };
    static constexpr std::size_t room = 65536;

    bool fill(); // behind the bytes that are left. False at the end

    std::unique_ptr<std::FILE, closer> m_file;
    std::unique_ptr<char[]> m_buffer = std::make_unique_for_overwrite<char[]>(room);
    std::size_t m_begin = 0, m_end = 0; // of the bytes that are left
};

// Gives out messages one by one, in the order of find_mail(). One thread at a time. Holds one message in
// memory, or the beginning of a large one.
class mail_source {
public:
    static constexpr std::size_t largest = std::size_t{4} << 20; // bytes of a message that are kept

    // `passed` is told of everything that isn't given out, now and later.
    mail_source(const mail_paths& paths, pass_report passed);

    // The next message; false at the end. What is no mail is reported and passed over.
    bool next(mail_item& item);

    // How far it is, of total(): each file has an equal part.
    [[nodiscard]] std::uint64_t done() const;
    [[nodiscard]] std::uint64_t total() const noexcept { return m_files.size() * part; }

private:
    static constexpr std::uint64_t part = 1024;

    bool open_next();
    bool read_line(); // false at the end
    [[nodiscard]] bool begins_message() const;
    bool read_message(mail_item& item); // of the open file
    bool accept(const mail_item& item); // or reports
    void pass(passed_mail::kind what, const std::string& name, const char* why);

    pass_report m_passed;
    std::vector<mail_file> m_files;
    bool m_everything;
    std::size_t m_next = 0;

    line_reader m_input;
    bool m_is_mbox = false;
    std::uint32_t m_number = 0; // of the message in its file
    std::uint64_t m_given = 0;
    std::uint64_t m_read = 0; // bytes of the file
    std::string m_line;       // read, but not given out: where the next message begins
    std::string m_ahead;      // the line after it
};

// True for the line that begins a message in an mbox: "From ", a sender, and a date.
[[nodiscard]] bool is_mbox_line(std::string_view line) noexcept;

// By what a message is known before it is cut up: a hash of its Message-ID, date, sender and subject; of all
// its bytes where there is no Message-ID.
[[nodiscard]] std::uint64_t mail_key(std::string_view raw);

} // namespace tvr
