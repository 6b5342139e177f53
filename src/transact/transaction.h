// The background pipeline: takes the cached messages, folds them stage by stage into the two dictionaries,
// and generates the compiled base. All its state is on disk, in the markers of the stage folders.
#pragma once

#include <atomic>
#include <cstdint>
#include <string_view>

#include "dict/dictbase.h"
#include "platform/sync.h"
#include "stage/temp_folder.h"

namespace tvr {

class file_stream;

// One object per process. The public operations are called on the event thread; before init() they write
// one line to the default log and do nothing.
class transaction {
public:
    transaction();
    virtual ~transaction();
    transaction(const transaction&) = delete;
    transaction& operator=(const transaction&) = delete;

    bool init(); // opens the cache, starts the thread; always true
    int add();   // a message was added: restarts the thread's wait. 0, or -1 before init()
    void force_retrain();
    // Takes the snapshot of the cache, and tells the thread; does nothing where the disk has no room for the
    // training.
    void feed_portion(dictbase& cache);
    // Throws all training away. Waits until a running pipeline has drained.
    void reinit();
    // Parks the thread for good.
    void shutdown();

private:
    enum class action : std::uint32_t {
        none = 0,
        interrupted = 1,
        enter = 2,
        sort = 3,
        finalize_spam = 4,
        finalize_good = 5,
        publish = 6,
        generate = 7,
    };
    struct half_stage;

    void __start_thread();
    std::uint32_t __transact_th();
    void __cleanup();
    action __sta_get_wait_action();
    action on_timeout();
    bool park();                                     // true if the thread is to end
    bool reports_ready(const char* operation) const; // tests m_initialized

    bool __entering_stage();
    bool __sorting_stage();
    bool __finalizespam_stage();
    bool __finalizegood_stage();
    bool __successlearn_stage();
    bool __generatergd_stage();

    bool sort_batch(file_stream& batch);
    bool finalize_half(const half_stage& half);
    void publish_half(const half_stage& half);
    void finish_without_changes();
    void keep_batch_copy();
    static const half_stage spam_half;
    static const half_stage good_half;

    tmpfld_holder m_holder;
    // The flags are atomic only so that the two threads may touch them; no order hangs on them.
    std::atomic<bool> m_busy{false}; // a stage runs; nothing reads it
    std::atomic<bool> m_stopping{false};
    platform::critical_section m_feedlock; // keeps the snapshot and its take-over apart
    platform::event E_added;               // manual reset: a snapshot is ready for the entering stage
    platform::event E_wake;                // a message was added
    platform::event E_retrain;             // retraining was asked for
    platform::event E_interrupt;           // manual reset: somebody wants the thread parked
    platform::event E_stopped;             // manual reset: the thread is parked
    platform::thread m_thread;
    dictbase m_cache;
    bool m_initialized = false;
};

} // namespace tvr
