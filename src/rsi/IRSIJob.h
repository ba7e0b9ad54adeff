// One unit of work for the RSI worker thread, with its retry bookkeeping.
//
// Contract: `process()` runs the job once; after a backend failure the job arms a retry with
// `activateRetry()`, and the worker calls `canBeRetriedNow()` at least once a second, which runs
// `process()` again once the first delay of the schedule has been exceeded (a retry that is due
// exactly at the delay waits for the next check). The last delay repeats for as long as the job
// lives. `requestCancel()` makes the next `process()` give up and report to its handler.
// `process()` and `canBeRetriedNow()` run on the worker thread; `activateRetry()` and
// `requestCancel()` may come from any thread. A hook set before the job is first queued hears of
// every armed retry with the time it falls due, so that the owner need not poll idle jobs.
#pragma once

#include "common/Clock.h"
#include "common/Logger.h"
#include "common/Semaphore.h"

#include <atomic>
#include <cstdint>
#include <functional>
#include <mutex>
#include <vector>

namespace qel::onlineservices::framework::core {

// Delays in milliseconds between the tries of a failing job; the last one repeats.
inline std::vector<std::uint64_t> const DEFAULT_RETRY_SCHEDULE{10000, 10000, 10000, 30000, 30000, 30000, 90000};

class IRSIJob {
public:
    using RetryArmedHook = std::function<void(qel::common::system::Clock::timeValue due)>;

    explicit IRSIJob(qel::common::logging::Logger logger);
    virtual ~IRSIJob() = default;
    IRSIJob(IRSIJob const&) = delete;
    IRSIJob& operator=(IRSIJob const&) = delete;

    virtual void process() = 0;
    virtual void confirmRequestSuccess() = 0;

    bool shouldBeRetried() const;
    // Arms the retry with the current first delay; false when there is no delay left to wait.
    bool activateRetry();
    // False only when a retry is pending but the schedule is empty (the job cannot go on).
    bool canBeRetriedNow();
    void requestCancel();

    bool isCancelRequested() const { return m_cancelRequested.load(); }
    bool isRetryActive() const { return m_retryActive.load(); }
    // Set once, before the job is handed to another thread.
    void setRetryArmedHook(RetryArmedHook hook) { m_retryArmedHook = std::move(hook); }
    // When the pending retry falls due: it runs at the first check after this instant.
    qel::common::system::Clock::timeValue retryDueTime() const;

protected:
    // Back to a fresh copy of `DEFAULT_RETRY_SCHEDULE`, as after a success that may be lost later.
    void resetRetrySchedule();
    void clearRetry() { m_retryActive.store(false); }
    // How many retries were armed so far: read before a try, it tells whether one was armed while
    // the try was under way (an "error" event may arrive before the try's own answer).
    std::uint64_t retryArmCount() const;
    // Clears the pending retry unless one was armed after `armCount` was read; true when cleared.
    bool clearRetryUnlessArmedSince(std::uint64_t armCount);
    // Counts one more run; returns the new count. Worker thread only.
    std::int32_t countTry() { return ++m_tryCount; }

    qel::common::logging::Logger const m_logger;

private:
    // The retry is due: returns true after consuming the first delay (the last one stays).
    bool takeDueRetry();

    RetryArmedHook m_retryArmedHook;
    qel::common::system::Semaphore m_wakeSignal{0};
    std::atomic<bool> m_cancelRequested{false};
    std::atomic<bool> m_retryActive{false};
    // An "error" event may arm a retry on the client's thread while the worker checks it.
    mutable std::mutex m_retryMutex;
    std::vector<std::uint64_t> m_retrySchedule;             // guarded by m_retryMutex
    qel::common::system::Clock::timeValue m_retryStartTime = 0;  // guarded by m_retryMutex
    std::uint64_t m_armCount = 0;                           // guarded by m_retryMutex
    std::int32_t m_tryCount = 0;                            // worker thread only
};

}  // namespace qel::onlineservices::framework::core
