// The readers of the single formats, one for each kind of file. All read from the view's position.
#pragma once

#include <optional>
#include <vector>

#include "common/fileheader.h"
#include "msid/msid_key.h"
#include "msid/page.h"
#include "tools/formats/file_view.h"

namespace tvr {

// The values of a file header; the position is after it then. False after a defect.
bool take_header(file_view& file, view_sink& sink, fileheader& header);
// A length byte and a text; false after a defect.
bool take_short_text(file_view& file, view_sink& sink, std::string& text);
// The rest of a file, and some bytes more than `most` at most.
std::vector<std::uint8_t> take_all(file_view& file, std::size_t most);
// Of minutes since 1601: 2002-08-22 18:30; "-" for none.
[[nodiscard]] std::string moment(std::uint32_t minutes);
// The defect of a file that ends too early.
void cut_short(const file_view& file, view_sink& sink, const std::string& inside);
// The defect of bytes that nobody reads.
void expect_end(file_view& file, view_sink& sink);

// Records, but not the list() of the sink: a list may stand after the tokens of an atom.
void walk_list(file_view& file, view_sink& sink);
void walk_index(file_view& file, view_sink& sink);

void walk_atom(file_view& file, view_sink& sink);
void walk_base(file_view& file, view_sink& sink);
void walk_cache(file_view& file, view_sink& sink);
void walk_columns(file_view& file, view_sink& sink);

void walk_time_mark(file_view& file, view_sink& sink);
void walk_statistic(file_view& file, view_sink& sink);
void walk_signals(file_view& file, view_sink& sink);
void walk_archive(file_view& file, view_sink& sink);
void walk_settings(file_view& file, view_sink& sink);
void walk_stage_mark(file_view& file, view_sink& sink);
void walk_watch(file_view& file, view_sink& sink);
void walk_verdict(file_view& file, view_sink& sink);

// Single look-ups in an index, by a small cache of its pages.
class index_view {
public:
    explicit index_view(std::string path);

    [[nodiscard]] bool is_valid() const noexcept { return m_valid; }
    [[nodiscard]] std::uint32_t key_count() const noexcept { return m_keys; }
    // The offset in the list, 0 if the key isn't there; nothing if the tree is damaged on the way.
    std::optional<std::uint32_t> find(const key11& key);

private:
    static constexpr std::size_t slots = 256;

    const std::uint8_t* page_at(std::uint32_t offset); // null if there is none

    std::string m_path;
    std::unique_ptr<std::uint8_t[]> m_pages;
    std::array<std::uint32_t, slots> m_offsets{}; // 0: empty
    bool m_valid = false;
    std::uint32_t m_root = 0;
    std::uint32_t m_size = 0;
    std::uint32_t m_keys = 0;
};

} // namespace tvr
