#include "platform/streams.h"

#include <cstdio>
#include <fcntl.h>
#include <io.h>

namespace tvr::platform {

void use_plain_streams() noexcept {
    _setmode(_fileno(stdin), _O_BINARY);
    _setmode(_fileno(stdout), _O_BINARY);
}

} // namespace tvr::platform
