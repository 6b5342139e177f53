// tvrctl trim: drops the IDs of messages that the engine has forgotten.

#include <cstdio>
#include <memory>

#include "common/file_names.h"
#include "common/files.h"
#include "platform/process.h"
#include "tools/command.h"
#include "tools/progress.h"
#include "tools/repair/trim_ids.h"
#include "tools/state/engine_pause.h"
#include "tools/state/stage_state.h"

namespace tvr {

namespace {

constexpr std::uint64_t record_size = 40; // bytes, of a usual message ID

std::uint64_t likely_ids(const std::string& base) {
    std::uint64_t bytes = 0;
    for (const char* list : {names::spam_list, names::good_list})
        if (const std::uint32_t size = file_size(base + list); size != no_file_size)
            bytes += size;
    return bytes / record_size;
}

void print(const id_trim& trim, bool dry) {
    if (!trim.reason.empty()) {
        std::printf("%s: left as it is: %s\n", trim.half.c_str(), trim.reason.c_str());
        return;
    }
    std::printf("%s: %s %s of %s message IDs as older than %s", trim.half.c_str(),
                dry ? "would drop" : "dropped", grouped(trim.dropped).c_str(), grouped(trim.ids).c_str(),
                date_text(trim.oldest).c_str());
    if (dry)
        std::printf("; %s bytes now\n", grouped(trim.bytes).c_str());
    else
        std::printf("; %s bytes before, %s after\n", grouped(trim.bytes).c_str(),
                    grouped(trim.bytes_after).c_str());
    if (trim.undated != 0)
        std::printf("%s: %s IDs without a date that can be believed stay\n", trim.half.c_str(),
                    grouped(trim.undated).c_str());
}

int trim(bool dry) {
    std::string working;
    engine_pause pause;
    if (const std::string why = pause.begin(working); !why.empty())
        return fail(why);
    const stage_state stages(working);
    for (unsigned stage = 1; stage <= stage_state::stages; ++stage)
        if (stages.marked(stage))
            return fail("a training is not done yet; start the engine so that it goes on");
    progress bar("Trimming", !platform::is_terminal(stderr));
    const std::uint64_t likely = likely_ids(working + names::base_folder);
    const auto all =
        trim_ids(working, dry, [&](std::uint64_t done) { bar.show(done, likely, grouped(done) + " IDs"); });
    bar.clear();
    bool failed = false;
    for (const id_trim& each : all) {
        print(each, dry);
        failed = failed || each.failed;
    }
    return failed ? exit_code::failed : exit_code::done;
}

} // namespace

void add_trim(CLI::App& program, int& code) {
    auto dry = std::make_shared<bool>(false);
    CLI::App* command = program.add_subcommand("trim", "Drop the IDs of forgotten messages");
    command->add_flag("-n,--dry-run", *dry, "Only count them");
    command->footer("The engine forgets old messages, but keeps their IDs. This drops those that are older "
                    "than the oldest\n"
                    "atom of their half. The engine must not run.\n\n"
                    "Examples:\n"
                    "  tvrctl stop; tvrctl trim --dry-run\n"
                    "  tvrctl stop; tvrctl trim");
    command->callback([dry, &code] { code = trim(*dry); });
}

} // namespace tvr
