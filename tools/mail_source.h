// The mail a user points at: files, mbox files, Maildirs, folders of messages, standard input.
#pragma once

#include <cstddef>
#include <cstdint>
#include <fstream>
#include <functional>
#include <istream>
#include <string>
#include <string_view>
#include <vector>

namespace tvr {

struct mail_item {
    std::string name; // for the user: the file, and the number of the message in an mbox
    std::string raw;
    bool spam = false;
    std::uint64_t index = 0; // among those given out
};

// Gives out messages one by one, in a fixed order: as the paths were added, folders by name. One thread at
// a time. Holds one message in memory.
class mail_source {
public:
    static constexpr std::size_t largest = std::size_t{64} << 20; // bytes of a message

    // Told of everything that is skipped: its name, and why.
    using skip_report = std::function<void(const std::string& name, const std::string& reason)>;
    explicit mail_source(skip_report skipped) : m_skipped(std::move(skipped)) {}

    // Adds a file, a folder with all below it, or "-" for standard input.
    void add(const std::string& path, bool spam);

    // The next message; false at the end. What is no mail is reported and passed over.
    bool next(mail_item& item);

    [[nodiscard]] std::uint64_t total() const noexcept { return m_total; } // bytes of all files
    [[nodiscard]] std::uint64_t done() const noexcept { return m_done; }   // bytes given out or skipped

private:
    struct entry {
        std::string path;
        std::uint64_t size = 0;
        bool spam = false;
    };

    void add_folder(const std::string& path, bool spam);
    void add_file(const std::string& path, bool spam);
    bool open_next();
    bool read_line();
    bool read_message(mail_item& item); // of the open file
    bool accept(const mail_item& item); // or reports

    skip_report m_skipped;
    std::vector<entry> m_entries;
    std::size_t m_next = 0;
    std::uint64_t m_total = 0;
    std::uint64_t m_done = 0;

    std::ifstream m_file;
    std::istream* m_input = nullptr; // null: no file is open
    bool m_is_mbox = false;
    std::uint32_t m_number = 0; // of the message in its file
    std::uint64_t m_given = 0;
    std::string m_line; // read, but not given out: where the next message begins
};

// True for the line that begins a message in an mbox: "From ", a sender, and a date.
[[nodiscard]] bool is_mbox_line(std::string_view line) noexcept;

// True for the names of what mail programs keep beside the messages of a folder.
[[nodiscard]] bool is_mail_store_file(std::string_view name) noexcept;

} // namespace tvr
