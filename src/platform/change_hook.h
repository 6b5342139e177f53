// One hook before every change of the file system, and before what is changed is made durable. Null in
// production; tests use it to kill the process at the n-th change, to make the n-th change fail, or to cut
// the power there: what was not made durable is lost.
#pragma once

#include <cstdint>
#include <string_view>

namespace tvr::platform {

enum class change {
    create_file,
    write_file,
    truncate_file, // cut or grow
    delete_file,
    rename_file,
    link_file,
    create_folder,
    remove_folder,
    set_time,
    set_attributes,
    make_durable, // changes nothing that a running system shows
};

// Called on the thread that is about to make the change, with the path as the caller gave it (the
// target of a rename or link). Returns 0 to let the change happen, or an error number with which the
// operation then fails without touching anything.
using change_hook = std::uint32_t (*)(change what, std::string_view path);

// Sets the hook of this process, or takes it away (null).
void set_change_hook(change_hook hook) noexcept;

} // namespace tvr::platform
