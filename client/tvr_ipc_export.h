// What the shared library shows to its users.
#pragma once

#if defined(__GNUC__)
#define TVR_IPC_EXPORT __attribute__((visibility("default")))
#else
#define TVR_IPC_EXPORT
#endif
