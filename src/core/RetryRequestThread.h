// Repeats a request on a thread of its own ("RetryRequestThread") until it succeeds, the retry
// limit is exceeded, or a stop is requested.
//
// Contract: the constructor starts the thread. With limit N (> 0) there are at most N + 1
// attempts; limit 0 means no limit. The outcome is reported once through `finish`: true on
// success, false when the limit is exceeded or a stop arrived during a failing attempt. A stop
// that arrives while the thread waits between attempts wakes it at once and ends it without any
// `finish`. The destructor stops and joins the thread, so it returns promptly; it must not run
// on the retry thread itself (`finish` must not destroy its own thread object).
#pragma once

#include "common/CondVar.h"
#include "common/Mutex.h"
#include "common/Thread.h"
#include "core/IRetryRequest.h"

#include <atomic>
#include <cstdint>
#include <memory>

namespace qel::onlineservices::framework::core {

class RetryRequestThread final : public qel::common::system::Thread {
public:
    RetryRequestThread(std::unique_ptr<IRetryRequest> request, unsigned int intervalMs, unsigned int maxRetries);
    ~RetryRequestThread() override;

    void run() override;
    void requestStop() override;

    // True while the thread waits between two attempts (for diagnostics and tests).
    bool isWaiting() const;

private:
    // Ends early when a stop is requested.
    void waitForNextAttempt();

    std::unique_ptr<IRetryRequest> m_request;
    std::uint32_t const m_intervalMs;
    std::uint32_t const m_maxRetries;
    std::uint32_t m_attempts = 0;  // retry thread only
    std::atomic<bool> m_stopRequested{false};
    mutable qel::common::system::Mutex m_waitMutex;  // only for the interruptible wait
    qel::common::system::CondVar m_wakeUp;
    bool m_waiting = false;  // guarded by m_waitMutex
};

}  // namespace qel::onlineservices::framework::core
