// What the shared library shows to its users. On Windows tvr_ipc.def tells it: the C interface and GetEngine.
#pragma once

#if defined(__GNUC__) && !defined(_WIN32)
#define TVR_IPC_EXPORT __attribute__((visibility("default")))
#else
#define TVR_IPC_EXPORT
#endif
