#include "platform/streams.h"

namespace tvr::platform {

void use_binary_streams() noexcept {} // they always do

} // namespace tvr::platform
