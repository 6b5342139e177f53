// The small files: marks, signals, the memory of a watch, the hourly counters.

#include <array>

#include "common/bytes.h"
#include "common/minutes.h"
#include "common/text.h"
#include "stage/temp_folder.h"
#include "tools/formats/signatures.h"
#include "tools/formats/walks.h"
#include "tools/text.h"

namespace tvr {

void walk_time_mark(file_view& file, view_sink& sink) {
    if (!file.has(8)) {
        cut_short(file, sink, "the time");
        return;
    }
    sink.field("time", time_text(load_le<std::uint64_t>(file.ahead(8).data())));
    file.skip(8);
    expect_end(file, sink);
}

void walk_signals(file_view& file, view_sink& sink) {
    if (!file.has(4)) {
        cut_short(file, sink, "the signals");
        return;
    }
    const std::uint32_t word = load_u32(file.ahead(4).data());
    file.skip(4);
    sink.list("events");
    for (unsigned bit = 0; bit < 32; ++bit)
        if ((word >> bit & 1) != 0 && sink.wants_entry())
            sink.entry({{"event", std::uint64_t{bit}}});
    expect_end(file, sink);
}

void walk_stage_mark(file_view& file, view_sink& sink) {
    constexpr std::string_view text = stage_marker_text;
    const auto bytes = file.ahead(text.size() + 1);
    if (std::string_view(reinterpret_cast<const char*>(bytes.data()), bytes.size()) != text)
        sink.defect(0, "not the text of a stage marker");
}

void walk_watch(file_view& file, view_sink& sink) {
    constexpr std::size_t entry_size = 16;
    constexpr std::array kinds = {"folder", "file", "file that has gone", "learned as ham",
                                  "learned as spam"};
    fileheader header(signature::watch);
    if (!take_header(file, sink, header))
        return;
    sink.list("entries");
    bool in_folder = false;
    for (; file.has(entry_size); file.skip(entry_size)) {
        const auto entry = file.ahead(entry_size);
        const std::uint32_t kind = load_u32(entry.data());
        if (kind == 0 || kind > kinds.size() || ((kind == 2 || kind == 3) && !in_folder)) {
            sink.defect(file.position(), "an entry of the unknown kind " + grouped(kind));
            return;
        }
        in_folder = in_folder || kind == 1;
        if (sink.wants_entry())
            sink.entry(
                {{"what", std::string(kinds.at(kind - 1))},
                 {"key", to_hex(load_u32(entry.data() + 12), 8) + to_hex(load_u32(entry.data() + 8), 8)},
                 {"stamp", std::uint64_t{load_u32(entry.data() + 4)}}});
    }
}

void walk_statistic(file_view& file, view_sink& sink) {
    constexpr std::size_t entry_size = 36;
    constexpr std::uint32_t minutes_in_hour = 60;
    if (!file.has(4) || load_u32(file.ahead(4).data()) != signature::statistic) {
        sink.defect(0, "it doesn't begin with STAT");
        return;
    }
    file.skip(4);
    sink.list("hours");
    std::uint64_t previous = 0;
    for (std::uint64_t entries = 0; file.has(1); ++entries) {
        const auto bytes = file.ahead(entry_size);
        if (bytes.size() < entry_size) {
            cut_short(file, sink, "entry " + grouped(entries + 1));
            return;
        }
        const auto word = [&](std::size_t i) { return std::uint64_t{load_u32(bytes.data() + 4 * i)}; };
        if (entries != 0 && word(0) <= previous)
            sink.defect(file.position(), "the hour is out of order");
        previous = word(0);
        if (sink.wants_entry())
            sink.entry({{"hour", time_text(word(0) * minutes_in_hour * ticks_per_minute).substr(0, 13)},
                        {"spam bytes", word(1)},
                        {"ham bytes", word(2)},
                        {"re-marked spam bytes", word(3)},
                        {"re-marked ham bytes", word(4)},
                        {"spam", word(5)},
                        {"ham", word(6)},
                        {"re-marked spam", word(7)},
                        {"re-marked ham", word(8)}});
        file.skip(entry_size);
    }
}

} // namespace tvr
