#include "system/mortal_engine.h"

#include <cstdlib>
#include <stdexcept>

#include "platform/entry.h"
#include "platform/process.h"
#include "signal/event_channel.h"
#include "support/child_process.h"

namespace tvr {

namespace {

platform::change fatal_change{};
std::string fatal_path;

std::uint32_t die_there(platform::change what, std::string_view path) {
    if (what == fatal_change && path.ends_with(fatal_path))
        platform::terminate_process(platform::current_process_id(), child_process::killed);
    return 0;
}

int run(std::string_view argument) {
    const std::size_t blank = argument.find(' ');
    fatal_change = static_cast<platform::change>(std::atoi(std::string(argument.substr(0, blank)).c_str()));
    fatal_path = argument.substr(blank + 1);
    platform::set_change_hook(die_there);
    return engine_main("");
}

const child_role mortal_engine("mortal_engine", run);

const child_role forced_mortal_engine("forced_mortal_engine", [](std::string_view argument) {
    event_channel channel; // holds the event until the engine takes it
    channel.raise(ev_train);
    return run(argument);
});

} // namespace

std::string death::argument() const {
    return std::to_string(static_cast<int>(what)).append(" ").append(path);
}

void die_in_second_training(engine_root& root, const death& point) {
    root.train(1, 30);
    root.kill(); // idle, and so nothing is lost
    child_process engine("mortal_engine", point.argument());
    engine_root::wait_for("the mortal engine", [] { return engine_root::process() != 0; });
    root.append(2, 20);
    root.force();
    if (engine.join() != child_process::killed)
        throw std::runtime_error("the engine hasn't died");
}

const files& undisturbed_files() {
    static const auto all = [] {
        engine_root root;
        root.train(1, 30);
        root.train(2, 20);
        return root.base_files();
    }();
    return all;
}

} // namespace tvr
