// Condition variable that works with the re-entrant `Mutex`.
//
// Contract: call `wait` with the mutex locked exactly once by the calling thread (a recursive
// hold would stay locked while waiting and block the signaller). Waits may wake spuriously:
// re-check the predicate, or use the overload that takes one.
#pragma once

#include "common/Mutex.h"

#include <chrono>
#include <condition_variable>
#include <cstdint>

namespace qel::common::system {

class CondVar {
public:
    CondVar() = default;
    CondVar(CondVar const&) = delete;
    CondVar& operator=(CondVar const&) = delete;

    void signal() { m_cv.notify_one(); }
    void broadcast() { m_cv.notify_all(); }

    // Waits until signalled. Returns false when `timeoutMs` passed first.
    bool wait(Mutex& mutex, std::uint32_t timeoutMs) {
        return m_cv.wait_for(mutex, std::chrono::milliseconds(timeoutMs)) == std::cv_status::no_timeout;
    }

    // Waits until `predicate()` holds. Returns its value at the end (false on time-out).
    template <typename Predicate>
    bool wait(Mutex& mutex, std::uint32_t timeoutMs, Predicate predicate) {
        return m_cv.wait_for(mutex, std::chrono::milliseconds(timeoutMs), predicate);
    }

private:
    std::condition_variable_any m_cv;
};

}  // namespace qel::common::system
