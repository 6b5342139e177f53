#include "platform/streams.h"

#include <csignal>

namespace tvr::platform {

void use_plain_streams() noexcept {
    std::signal(SIGPIPE, SIG_IGN);
}

} // namespace tvr::platform
