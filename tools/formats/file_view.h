// What the engine's files hold, as an onlooker reads them.
#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <initializer_list>
#include <string>
#include <string_view>
#include <utility>
#include <variant>
#include <vector>

#include "common/file_view.h"

namespace tvr {

enum class file_kind {
    unknown,
    atom,
    base,
    time_mark,
    list,
    index,
    columns,
    cache,
    statistic,
    signals,
    archive,
    settings,
    stage_mark,
    watch,
    verdict
};

[[nodiscard]] std::string_view kind_text(file_kind kind);
[[nodiscard]] file_kind kind_of_name(std::string_view name); // without folder
// By its content, and by its name where that can't tell.
[[nodiscard]] file_kind kind_of(file_view& file);

using view_value = std::variant<std::uint64_t, double, bool, std::string>;
using view_item = std::pair<const char*, view_value>;

// Which of the defects of one file are told: the first 20, and the number of the others.
class defect_count {
public:
    [[nodiscard]] bool tells_next() noexcept { return ++m_all <= most; }
    [[nodiscard]] std::uint64_t all() const noexcept { return m_all; }
    // "and 5 more defects"; empty if all were told.
    [[nodiscard]] std::string rest() const;

private:
    static constexpr std::uint64_t most = 20;

    std::uint64_t m_all = 0;
};

// Told what is found in a file, in the order of the file.
class view_sink {
public:
    virtual ~view_sink() = default;
    virtual void field(const char*, const view_value&) {}
    virtual void list(const char*) {}            // the entries that follow belong to it
    virtual bool wants_entry() { return false; } // asked for each entry
    virtual void entry(std::initializer_list<view_item>) {}
    virtual bool wants_details() {
        return false;
    } // of entries: the tokens of a message, the changes of an atom
    virtual void defect(std::uint64_t offset, const std::string& reason) = 0;
    // A defect that goes if the word at `offset` becomes `right`.
    virtual void wrong_total(std::uint64_t offset, const std::string& reason, std::uint32_t) {
        defect(offset, reason);
    }
    // What can be held against other files: each whole record of a list, and each position that a column file
    // names.
    virtual void list_record(std::uint64_t, std::string_view, std::uint32_t) {}
    virtual void message_position(std::uint64_t, std::uint64_t) {}
};

// Reads the whole file from its start. Memory: a few pieces, but for settings 40 times a file of at most 4
// MiB.
void walk_file(file_kind kind, file_view& file, view_sink& sink);

// What stands at a path.
[[nodiscard]] bool is_file(const std::string& path);
[[nodiscard]] bool is_folder(const std::string& path);
// The names of the files (not the folders) in a folder, with a trailing backslash, in ascending order.
[[nodiscard]] std::vector<std::string> file_names(const std::string& folder, const char* pattern = "*.*");

// The bytes of a text that could disturb a terminal as \xNN.
[[nodiscard]] std::string visible(std::string_view text);
// The same of its beginning, for what may be rubbish.
[[nodiscard]] std::string visible_start(std::string_view text);
// A path as users write it, in that form.
[[nodiscard]] std::string shown(const std::string& path);
// "PATH: WHAT (error N)" of a failure that the platform has just told.
[[nodiscard]] std::string failure(const std::string& path, const char* what);

} // namespace tvr
