// Counting semaphore with a timed `down`.
#pragma once

#include <condition_variable>
#include <cstdint>
#include <mutex>

namespace qel::common::system {

class Semaphore {
public:
    explicit Semaphore(std::uint32_t initialCount = 0) : m_count(initialCount) {}
    Semaphore(Semaphore const&) = delete;
    Semaphore& operator=(Semaphore const&) = delete;

    void up();
    // Blocks until the count is positive, then takes one.
    void down();
    // As `down`, but gives up after `timeoutMs`; returns false then.
    bool down(std::uint32_t timeoutMs);

private:
    std::mutex m_mutex;
    std::condition_variable m_cv;
    std::uint32_t m_count;  // guarded by m_mutex
};

}  // namespace qel::common::system
