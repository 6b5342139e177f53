#include "tools/formats/walks.h"

#include "common/bytes.h"
#include "common/minutes.h"
#include "common/text.h"
#include "tools/text.h"

namespace tvr {

std::string moment(std::uint32_t minutes) {
    return minutes == 0 || minutes == no_minutes ? "-" : time_text(minutes * ticks_per_minute).substr(0, 16);
}

void cut_short(const file_view& file, view_sink& sink, const std::string& inside) {
    sink.defect(file.position(), "the file ends inside " + inside);
}

void expect_end(file_view& file, view_sink& sink) {
    if (file.has(1))
        sink.defect(file.position(), "bytes behind the end");
}

bool take_header(file_view& file, view_sink& sink, fileheader& header) {
    const auto start = file.ahead(8 + 4 * std::size_t{fileheader::limit});
    std::size_t size = 0;
    if (header.read(start, size)) {
        file.skip(size);
        return true;
    }
    if (start.size() >= 4 && load_u32(start.data()) != header.signature)
        sink.defect(file.position(), "the signature is " + to_hex(load_u32(start.data()), 8) + ", not " +
                                         to_hex(header.signature, 8));
    else if (start.size() >= 8 && load_u32(start.data() + 4) > fileheader::limit)
        sink.defect(file.position() + 4, "the header has more than 30 values");
    else
        cut_short(file, sink, "a header");
    return false;
}

bool take_short_text(file_view& file, view_sink& sink, std::string& text) {
    const auto bytes = file.ahead(256);
    if (bytes.empty() || bytes.size() - 1 < bytes[0]) {
        cut_short(file, sink, "a name");
        return false;
    }
    text.assign(reinterpret_cast<const char*>(bytes.data() + 1), bytes[0]);
    file.skip(1 + text.size());
    return true;
}

std::vector<std::uint8_t> take_all(file_view& file, std::size_t most) {
    std::vector<std::uint8_t> bytes;
    while (file.has(1) && bytes.size() <= most) {
        const auto part = file.ahead(1);
        bytes.insert(bytes.end(), part.begin(), part.end());
        file.skip(part.size());
    }
    return bytes;
}

void walk_file(file_kind kind, file_view& file, view_sink& sink) {
    file.go_to(0);
    switch (kind) {
    case file_kind::atom:
        return walk_atom(file, sink);
    case file_kind::base:
        return walk_base(file, sink);
    case file_kind::time_mark:
        return walk_time_mark(file, sink);
    case file_kind::list:
        sink.list("message ids");
        return walk_list(file, sink);
    case file_kind::index:
        return walk_index(file, sink);
    case file_kind::columns:
        return walk_columns(file, sink);
    case file_kind::cache:
        return walk_cache(file, sink);
    case file_kind::statistic:
        return walk_statistic(file, sink);
    case file_kind::signals:
        return walk_signals(file, sink);
    case file_kind::archive:
        return walk_archive(file, sink);
    case file_kind::settings:
        return walk_settings(file, sink);
    case file_kind::stage_mark:
        return walk_stage_mark(file, sink);
    case file_kind::watch:
        return walk_watch(file, sink);
    case file_kind::verdict:
        return walk_verdict(file, sink);
    default:
        sink.defect(0, "no file of the engine");
    }
}

} // namespace tvr
