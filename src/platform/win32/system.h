// The reference platform's own header, without its lesser parts and without the macros that would take names
// of ours. Its min and max are off: the standard library of this compiler sees to that.
#pragma once

#include <cstddef>

#define WIN32_LEAN_AND_MEAN
#include <windows.h>

#undef pascal
