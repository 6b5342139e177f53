// Events and keys of the registry, open from the start.
#pragma once

#include <gtest/gtest.h>
#include <string_view>

#include "platform/registry.h"
#include "platform/sync.h"

namespace tvr {

struct named_event : platform::event {
    explicit named_event(std::string_view name) { EXPECT_TRUE(create_named(name)); }
};

// For a child: raises an event, and holds it until the child is killed.
inline int raise_and_wait(std::string_view name) {
    named_event raised(name);
    raised.set();
    named_event("never").wait(platform::infinite);
    return 2;
}

struct user_key : platform::registry_key {
    explicit user_key(std::string_view path) {
        EXPECT_TRUE(create(platform::registry_root::current_user, path));
    }
};

struct machine_key : platform::registry_key {
    explicit machine_key(std::string_view path) {
        EXPECT_TRUE(create(platform::registry_root::local_machine, path));
    }
};

} // namespace tvr
