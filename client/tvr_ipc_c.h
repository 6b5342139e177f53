/* The engine's client for programs in C, and for everything that can call it.
 *
 * Functions that return int return 0, or the number of an error (enum tvr_error); tvr_error_text() then
 * tells the reason. All may be called by any thread. */
#ifndef TVR_IPC_C_H
#define TVR_IPC_C_H

#include <stddef.h>
#include <stdint.h>

#include "client/tvr_ipc_export.h"

#ifdef __cplusplus
extern "C" {
#endif

enum tvr_error {
    tvr_ok = 0,
    tvr_bad_message = 1, /* a message ID or a token of a wrong length, or no mail */
    tvr_no_folder = 2,   /* the working directory can't be found or made */
    tvr_locked = 3,      /* another process held the cache's lock for 30 seconds */
    tvr_cache_full = 4,  /* 2 GiB of messages wait for the engine */
    tvr_io = 5,          /* the cache can't be written */
    tvr_no_engine = 6,   /* it doesn't run and could not be started */
    tvr_known = 8        /* left out: learned, or waiting, with this verdict already; see tvr_mark_once */
};

enum tvr_event { tvr_event_add = 0, tvr_event_train = 1, tvr_event_reset = 2 };

enum tvr_mark {
    tvr_mark_spam = 1,
    tvr_mark_manual = 2, /* the user's own verdict */
    tvr_mark_once = 4    /* not if the engine knows it with this verdict */
};

typedef struct tvr_client tvr_client;

typedef struct tvr_token {
    const char* text; /* 1 to 255 bytes, the two-byte kind included */
    size_t size;
    uint32_t count;
} tvr_token;

typedef struct tvr_message {
    const char* msid; /* 0 to 255 bytes */
    size_t msid_size;
    uint32_t marks; /* enum tvr_mark */
    uint32_t size;  /* bytes of the message */
    uint32_t time;  /* minutes since 1601, UTC */
    const tvr_token* tokens;
    size_t token_count;
} tvr_message;

/* A client, to be closed by tvr_close(); null only without memory. Where the working directory can't be
 * found or made, every call with it returns tvr_no_folder. */
TVR_IPC_EXPORT tvr_client* tvr_open(void);
TVR_IPC_EXPORT void tvr_close(tvr_client* client);

/* Appends one message to the cache. */
TVR_IPC_EXPORT int tvr_append(tvr_client* client, const tvr_message* message);
/* Cuts a raw mail into its tokens and appends it. `marks` as in tvr_message. */
TVR_IPC_EXPORT int tvr_append_mail(tvr_client* client, const char* raw, size_t size, uint32_t marks);
/* Raises an event of the engine, which is started first if it doesn't run and `start` isn't 0. */
TVR_IPC_EXPORT int tvr_raise(tvr_client* client, enum tvr_event event, int start);
/* Tells the engine, which is started if it doesn't run, that messages were appended, and makes it train them
 * now if the user's settings say so (tvrctl config); to be called after tvr_append(). `corrected`: not 0 if
 * one of them changes a verdict of before by the user's own hand. */
TVR_IPC_EXPORT int tvr_hand_over(tvr_client* client, int corrected);
/* 1 if the engine runs. */
TVR_IPC_EXPORT int tvr_engine_runs(const tvr_client* client);

/* The reason of the calling thread's last failure; valid until its next call. Never null. */
TVR_IPC_EXPORT const char* tvr_error_text(void);

#ifdef __cplusplus
}
#endif
#endif
