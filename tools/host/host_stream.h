// The frames in which requests and replies travel: a length of four bytes in the machine's order, and that
// many bytes of JSON.
#pragma once

#include <cstdio>
#include <functional>

#include "tools/host/host_session.h"

namespace tvr {

// Answers request by request until the input ends. A request that is too long is passed over and answered.
// The reason of a failure, or an empty text: the input ends within a frame, or a reply can't be written.
std::string run_host_stream(std::FILE* in, std::FILE* out, host_session& session);

} // namespace tvr
