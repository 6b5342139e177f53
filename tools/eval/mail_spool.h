// Mail that is read once and then taken in any order: its records lie in a file, what is known of it in
// memory.
#pragma once

#include <cstddef>
#include <cstdint>
#include <fstream>
#include <span>
#include <string>
#include <vector>

#include "client/record_batch.h"
#include "client/token_table.h"

namespace tvr {

struct spooled_mail {
    std::string name; // for the user
    bool spam = false;
    std::uint32_t time = 0;    // minutes since 1601, of its record
    std::uint32_t arrival = 0; // the same; 0 if it isn't known when it came in
    std::uint64_t offset = 0;  // bytes, of its record in the file
    std::uint32_t length = 0;
};

// One thread.
class mail_spool {
public:
    explicit mail_spool(std::string path); // of the file, which is made

    // Appends the mail of these paths, as they are named and in the order of folders. False if the file can't
    // be written. `threads`: 0 is one for each processor.
    bool read_in(const std::vector<std::string>& spam, const std::vector<std::string>& ham, unsigned threads,
                 bool quiet);

    void close() { m_file.close(); } // what is known of the mail stays

    [[nodiscard]] const std::vector<spooled_mail>& mails() const noexcept { return m_mails; }
    [[nodiscard]] const std::string& path() const noexcept { return m_path; }

    // The tokens of a message. False if the file can't be read.
    bool tokens_of(std::size_t mail, token_table& tokens);
    // Writes the records of these messages as a stream (record_stream.h). False on failure.
    bool write_stream(const std::vector<std::size_t>& mails, const std::string& path);

private:
    bool read_record(std::size_t mail); // into m_record

    std::string m_path;
    std::fstream m_file;
    std::uint64_t m_end = 0;
    std::vector<spooled_mail> m_mails;
    std::vector<std::uint8_t> m_record;
};

} // namespace tvr
