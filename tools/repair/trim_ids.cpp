#include "tools/repair/trim_ids.h"

#include <algorithm>

#include "common/file_names.h"
#include "common/files.h"
#include "dict/atom.h"
#include "tools/formats/file_view.h"
#include "tools/formats/walks.h"
#include "tools/repair/repair_files.h"
#include "transact/training_plan.h"

namespace tvr {

namespace {

constexpr std::uint64_t told_step = 4096; // IDs

std::uint64_t bytes_of(const std::string& stem) {
    std::uint64_t sum = 0;
    for (const char* extension : {names::list_ending, names::index_ending}) {
        const std::uint32_t size = file_size(stem + extension);
        sum += size == no_file_size ? 0 : size;
    }
    return sum;
}

// Finds the oldest stamp of the half, or the reason why that can't be told.
void find_oldest(const std::string& base, id_trim& trim) {
    const auto refuse = [&](const std::string& why, bool failed) {
        trim.reason = why;
        trim.failed = failed;
    };
    const std::string pattern = trim.half + names::any_atom;
    for (const std::string& name : file_names(base, pattern.c_str())) {
        atom_head head;
        if (!head.peek(base + name))
            return refuse(name + " is damaged; \"tvrctl repair\" first", true);
        if (head.messages == 0)
            continue;
        // deliberate: the messages of a divided atom, or of one that is still to be divided, may be of any
        // age.
        if (head.oldest == 0 || head.is_ordinal())
            return refuse("it holds atoms of unknown age", false);
        trim.oldest = trim.oldest == 0 ? head.oldest : std::min(trim.oldest, head.oldest);
    }
    if (trim.oldest == 0)
        refuse("it has no atoms to compare with", false);
}

// Whether a list is whole.
class list_check final : public view_sink {
public:
    void defect(std::uint64_t, const std::string&) override { damaged = true; }

    bool damaged = false;
};

} // namespace

std::vector<id_trim> trim_ids(const std::string& working_directory, bool dry,
                              const std::function<void(std::uint64_t done)>& told) {
    const std::string base = working_directory + names::base_folder;
    repair_folder folder(working_directory, old_files::deleted);
    std::vector<id_trim> all;
    std::uint64_t seen = 0;
    for (const char* half : {names::spam_half, names::good_half}) {
        id_trim& trim = all.emplace_back();
        trim.half = half;
        find_oldest(base, trim);
        const std::string stem = base + half;
        const std::string list = stem + names::list_ending;
        if (!trim.reason.empty())
            continue;
        trim.bytes = bytes_of(stem);
        if (file_size(list) == no_file_size || file_size(list) == 0)
            continue;
        list_check check;
        file_view view(list);
        walk_list(view, check);
        if (check.damaged || view.failed()) {
            trim.reason = "its list is damaged; \"tvrctl repair\" first";
            trim.failed = true;
            continue;
        }
        const auto is_stale = [&](std::uint32_t time) {
            return time > last_wrong_time && time < trim.oldest;
        };
        const auto count = [&](std::string_view, std::uint32_t time) {
            ++trim.ids;
            trim.dropped += is_stale(time) ? 1 : 0;
            trim.undated += time <= last_wrong_time ? 1 : 0;
            if (++seen % told_step == 0)
                told(seen);
        };
        trim.reason = visit_ids(list, folder, count);
        trim.failed = !trim.reason.empty();
        if (trim.failed)
            continue;
        if (dry || trim.dropped == 0) {
            trim.bytes_after = dry ? 0 : trim.bytes;
            continue;
        }
        trim.reason =
            remake_map(list, folder, [&](std::string_view, std::uint32_t time) { return !is_stale(time); });
        trim.failed = !trim.reason.empty();
        trim.bytes_after = bytes_of(stem);
    }
    return all;
}

} // namespace tvr
