#include "core/RetryRequestThread.h"

namespace qel::onlineservices::framework::core {

using qel::common::system::MutexGuard;

RetryRequestThread::RetryRequestThread(std::unique_ptr<IRetryRequest> request, unsigned int intervalMs,
                                       unsigned int maxRetries)
    : Thread("RetryRequestThread"), m_request(std::move(request)), m_intervalMs(intervalMs), m_maxRetries(maxRetries) {
    start();
}

RetryRequestThread::~RetryRequestThread() {
    requestStop();
    join();
}

void RetryRequestThread::run() {
    if (!m_request) {
        return;
    }
    while (!m_stopRequested.load()) {
        ++m_attempts;
        if (m_request->exec(m_attempts)) {
            m_stopRequested.store(true);
            m_request->finish(true);
            continue;
        }
        if (m_maxRetries != 0 && m_attempts > m_maxRetries) {
            m_stopRequested.store(true);
        }
        if (!m_stopRequested.load()) {
            // A stop during the wait ends the thread without an outcome: the requester gave up.
            waitForNextAttempt();
            continue;
        }
        m_request->finish(false);
    }
}

void RetryRequestThread::waitForNextAttempt() {
    MutexGuard guard(m_waitMutex);
    m_waiting = true;
    m_wakeUp.wait(m_waitMutex, m_intervalMs, [this] { return m_stopRequested.load(); });
    m_waiting = false;
}

void RetryRequestThread::requestStop() {
    if (m_stopRequested.load()) {
        return;
    }
    if (!isRunning()) {  // reads the running state under the thread's state lock
        return;
    }
    m_stopRequested.store(true);
    // Passing through the wait mutex orders the flag before a wait that is just starting, so the
    // signal cannot slip in between the waiter's check and its sleep.
    { MutexGuard guard(m_waitMutex); }
    m_wakeUp.signal();
}

bool RetryRequestThread::isWaiting() const {
    MutexGuard guard(m_waitMutex);
    return m_waiting;
}

}  // namespace qel::onlineservices::framework::core
