#include "transact/transaction.h"

#include <array>
#include <cmath>

#include "common/file_names.h"
#include "common/files.h"
#include "common/logger.h"
#include "common/path.h"
#include "dict/dict_folder.h"
#include "platform/clock.h"
#include "platform/error.h"
#include "platform/file.h"
#include "settings/settings.h"
#include "stat/statistic.h"
#include "transact/training_room.h"

namespace tvr {

namespace {

// The one transaction of the process, from which its thread takes the object.
std::atomic<transaction*> current_transaction{nullptr};

// The setting as an unsigned number of messages, at least 1. A negative value wraps; one beyond every
// integer counts as 0.
std::uint32_t truncated_strategy(double strategy) {
    const bool convertible = std::abs(strategy) < 9.2e18; // false for a NaN too
    const auto limit = convertible ? static_cast<std::uint32_t>(static_cast<std::int64_t>(strategy)) : 0U;
    return limit == 0 ? 1 : limit;
}

void delete_half(const std::string& base, std::string_view name) {
    dict_folder(base, name).delete_all();
    for (const std::string_view extension : {names::index_ending, names::list_ending})
        platform::delete_file(base + std::string(name) + std::string(extension));
}

} // namespace

transaction::transaction() {
    transaction* none = nullptr;
    current_transaction.compare_exchange_strong(none, this);
}

transaction::~transaction() {
    transaction* self = this;
    current_transaction.compare_exchange_strong(self, nullptr);
}

bool transaction::reports_ready(const char* operation) const {
    if (!m_initialized)
        TVR_LOG(default_log, "[-] transaction::%s - object NOT initialized", operation);
    return m_initialized;
}

bool transaction::init() {
    TVR_LOG(transact_log, "[i] transaction::init");
    TVR_LOG(transact_log, "[i] Background recalculation started...");
    const std::string& working = current_settings()->working_directory.expanded;
    m_holder.init(join_path(working, names::base_folder));
    m_cache.init(join_path(working, std::string(names::transact_path) + names::cache));
    E_stopped.create(true);
    E_added.create(true);
    E_wake.create(false);
    E_retrain.create(false);
    E_interrupt.create(true);
    m_stopping = false;
    m_initialized = true;
    __start_thread();
    return true;
}

void transaction::__start_thread() {
    if (!reports_ready("__start_thread"))
        return;
    TVR_LOG(transact_log, "[i] transaction::__start_thread");
    if (m_thread.running()) {
        TVR_LOG(transact_log, "[i] transaction::__start_thread thread is exists (no starting)");
        return;
    }
    TVR_LOG(transact_log, "[i] transaction::__start_thread: starting thread...");
    m_thread.start([] {
        transaction* self = current_transaction.load();
        return self ? self->__transact_th() : ~0U;
    });
}

int transaction::add() {
    if (!reports_ready("add"))
        return -1;
    E_wake.set();
    TVR_LOG(transact_log, "[i] added message");
    return 0;
}

void transaction::force_retrain() {
    if (!reports_ready("force_retrain"))
        return;
    E_retrain.set();
    m_busy = true;
}

void transaction::feed_portion(dictbase& cache) {
    if (!reports_ready("feed_portion"))
        return;
    TVR_LOG(transact_log, "[i] transaction::feed_portion");
    if (const training_room room = room_for_training(m_holder.base()); !room.is_enough()) {
        TVR_LOG(transact_log, "[-] %s. The messages wait", room.text().c_str());
        return;
    }
    const platform::locker locker(m_feedlock);
    cache.try_snapshot_to_tilda();
    E_added.set();
}

void transaction::reinit() {
    if (!reports_ready("reinit"))
        return;
    const platform::locker locker(m_holder.lock());
    TVR_LOG(transact_log, "[i] transaction::reinit");
    E_interrupt.set();
    E_stopped.wait(platform::infinite);
    struct release {
        platform::event& interrupt;
        ~release() { interrupt.reset(); }
    } const releaser{E_interrupt};
    m_cache.removeall();
    delete_half(m_holder.base(), names::good_half);
    delete_half(m_holder.base(), names::spam_half);
    __cleanup();
}

void transaction::__cleanup() {
    if (!reports_ready("__cleanup"))
        return;
    const platform::locker locker(m_holder.lock());
    TVR_LOG(transact_log, "[i] transaction::cleanup");
    // deliberate: the folders 4 and 6 survive.
    for (const std::uint32_t stage : {0U, 1U, 2U, 3U, 5U})
        m_holder.folder().remove(stage);
    TVR_LOG(transact_log, "[i] All autotraining completed");
    if (statistic* counters = statistic::current())
        counters->clear_transaction();
    E_added.reset();
    TVR_LOG(transact_log, "[i] All cleanup completed");
}

void transaction::shutdown() {
    if (!reports_ready("shutdown"))
        return;
    m_stopping = true;
    E_interrupt.set();
    // The thread resets E_stopped as soon as it has set it, and ends: its end says the same.
    m_thread.join();
    E_interrupt.reset();
}

transaction::action transaction::__sta_get_wait_action() {
    if (!reports_ready("__sta_get_wait_action"))
        return action::none;
    struct step {
        std::uint32_t marker;
        action next;
    };
    constexpr std::array<step, 5> steps = {{{stage_number::generate_rgd, action::generate},
                                            {stage_number::ready_good, action::publish},
                                            {stage_number::ready_spam, action::finalize_good},
                                            {stage_number::sorted, action::finalize_spam},
                                            {stage_number::entered, action::sort}}};
    for (const step& s : steps)
        if (m_holder._is_success(s.marker))
            return s.next;

    const std::uint32_t delay = current_settings()->training_delay * 1000;
    const std::array<platform::event*, 4> events = {&E_added, &E_wake, &E_retrain, &E_interrupt};
    switch (platform::wait_any(events, delay)) {
    case 0:
        TVR_LOG(transact_log, "[i] E_added");
        E_added.reset();
        return action::enter;
    case 2:
        TVR_LOG(transact_log, "[i] E_retrain");
        feed_portion(m_cache);
        return action::none;
    case 3:
        TVR_LOG(transact_log, "[i] E_interrupt");
        return action::interrupted;
    case platform::wait_timeout:
        return on_timeout();
    default: // E_wake only restarts the wait
        return action::none;
    }
}

transaction::action transaction::on_timeout() {
    const std::uint32_t limit = truncated_strategy(current_settings()->recalculating_strategy);
    if (m_cache.message_count() > limit) {
        TVR_LOG(transact_log, "[i] retrain by timeout");
        feed_portion(m_cache);
    } else if (m_cache.has_manual_marks()) {
        TVR_LOG(transact_log, "[i] retrain by manual marks");
        feed_portion(m_cache);
    }
    return action::none;
}

bool transaction::park() {
    m_busy = false;
    E_stopped.set();
    if (m_stopping) {
        TVR_LOG(transact_log, "[i] thread interrupted");
        E_stopped.reset();
        return true;
    }
    while (E_interrupt.wait(0))
        platform::sleep_for(0);
    E_stopped.reset();
    return false;
}

std::uint32_t transaction::__transact_th() {
    if (!reports_ready("shutdown"))
        return ~0U;
    TVR_LOG(transact_log, "[i] transaction::__transact_th: starting thread...");
    for (;;) {
        const action next = __sta_get_wait_action();
        if (next == action::none)
            continue;
        if (next == action::interrupted) {
            if (park())
                return 0;
            continue;
        }
        m_busy = true;
        switch (next) {
        case action::enter:
            __entering_stage();
            break;
        case action::sort:
            if (!__sorting_stage())
                m_busy = false;
            break;
        case action::finalize_spam:
            __finalizespam_stage();
            break;
        case action::finalize_good:
            __finalizegood_stage();
            break;
        case action::publish:
            __successlearn_stage();
            break;
        default:
            __generatergd_stage();
            m_busy = false;
            break;
        }
    }
}

bool transaction::__entering_stage() {
    if (!reports_ready("__entering_stage"))
        return false;
    TVR_LOG(transact_log, "[i] transaction::__entering_stage");
    if (m_holder._is_success(stage_number::entered)) {
        TVR_LOG(transact_log, "previous transaction is not finished. Exiting");
        return false;
    }
    temp_folder& folder = m_holder.folder();
    folder.prepare(stage_number::entered);
    std::string target;
    const bool has_target = folder.tmp_filename_for_stage(stage_number::entered, target, true);
    const platform::locker locker(m_feedlock);
    const std::string snapshot = tilde_name(m_cache.path());
    // Without a copy that would outlive a power cut the snapshot stays, for the next training.
    if ((!has_target || !link_or_copy(snapshot, target, false) ||
         !platform::make_durable({target, folder.path(stage_number::entered)})) &&
        file_exists(snapshot)) {
        const std::uint32_t code = platform::last_error();
        TVR_LOG(transact_log, "[-] unable to take over the snapshot (%d)", static_cast<int>(code));
        return true;
    }
    if (!platform::delete_file(snapshot)) {
        const std::uint32_t code = platform::last_error();
        TVR_LOG(transact_log, "[i] unable to delete source (%d)", static_cast<int>(code));
        return true;
    }
    m_holder._mark_prepared(stage_number::entered);
    if (!m_holder._is_success(stage_number::entered)) {
        const std::uint32_t code = platform::last_error();
        TVR_LOG(transact_log, "[-] unable to mark stage 1 (%d), the snapshot goes back",
                static_cast<int>(code));
        platform::move_file(target, snapshot);
    }
    return true;
}

} // namespace tvr
