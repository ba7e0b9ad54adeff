#include "rsi/IRSIJob.h"

namespace qel::onlineservices::framework::core {

using qel::common::logging::LogLevel;
using qel::common::system::Clock;

IRSIJob::IRSIJob(qel::common::logging::Logger logger)
    : m_logger(std::move(logger)), m_retrySchedule(DEFAULT_RETRY_SCHEDULE) {}

bool IRSIJob::shouldBeRetried() const {
    std::lock_guard<std::mutex> lock(m_retryMutex);
    return !m_retrySchedule.empty();
}

bool IRSIJob::activateRetry() {
    bool retry = false;
    std::uint64_t delay = 0;
    Clock::timeValue start = 0;
    {
        std::lock_guard<std::mutex> lock(m_retryMutex);
        retry = !m_retrySchedule.empty();
        delay = retry ? m_retrySchedule.front() : 0;
        start = Clock::getSystemTimeValue();
        m_retryStartTime = start;
        ++m_armCount;
        m_retryActive.store(true);
    }
    if (retry) {
        m_logger << LogLevel::Warning << "Retrying in " << delay / 1000 << "s";
    }
    if (m_retryArmedHook) {
        m_retryArmedHook(start + static_cast<Clock::timeValue>(delay));
    }
    return retry;
}

std::uint64_t IRSIJob::retryArmCount() const {
    std::lock_guard<std::mutex> lock(m_retryMutex);
    return m_armCount;
}

bool IRSIJob::clearRetryUnlessArmedSince(std::uint64_t armCount) {
    std::lock_guard<std::mutex> lock(m_retryMutex);
    if (m_armCount != armCount) {
        return false;
    }
    m_retryActive.store(false);
    return true;
}

Clock::timeValue IRSIJob::retryDueTime() const {
    std::lock_guard<std::mutex> lock(m_retryMutex);
    std::uint64_t const delay = m_retrySchedule.empty() ? 0 : m_retrySchedule.front();
    return m_retryStartTime + static_cast<Clock::timeValue>(delay);
}

bool IRSIJob::canBeRetriedNow() {
    if (!m_retryActive.load()) {
        return true;
    }
    if (!shouldBeRetried()) {
        return false;
    }
    if (takeDueRetry()) {
        process();
    }
    return true;
}

bool IRSIJob::takeDueRetry() {
    std::uint64_t remaining = 0;
    {
        std::lock_guard<std::mutex> lock(m_retryMutex);
        if (m_retrySchedule.empty()) {
            return false;
        }
        std::uint64_t const delay = m_retrySchedule.front();
        std::uint64_t const elapsed = Clock::getElapsedTimeMillis(m_retryStartTime);
        if (delay < elapsed) {
            if (m_retrySchedule.size() > 1) {
                m_retrySchedule.erase(m_retrySchedule.begin());
            }
            m_retryActive.store(false);
            return true;
        }
        remaining = delay - elapsed;
    }
    m_logger << LogLevel::Trace << "Time reaming until the next retry: " << remaining / 1000;
    return false;
}

void IRSIJob::requestCancel() {
    m_cancelRequested.store(true);
    m_wakeSignal.up();
}

void IRSIJob::resetRetrySchedule() {
    std::lock_guard<std::mutex> lock(m_retryMutex);
    m_retrySchedule = DEFAULT_RETRY_SCHEDULE;
}

}  // namespace qel::onlineservices::framework::core
