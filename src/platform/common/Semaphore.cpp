#include "common/Semaphore.h"

#include <chrono>

namespace qel::common::system {

void Semaphore::up() {
    {
        std::lock_guard<std::mutex> lock(m_mutex);
        ++m_count;
    }
    m_cv.notify_one();
}

void Semaphore::down() {
    std::unique_lock<std::mutex> lock(m_mutex);
    m_cv.wait(lock, [this] { return m_count > 0; });
    --m_count;
}

bool Semaphore::down(std::uint32_t timeoutMs) {
    std::unique_lock<std::mutex> lock(m_mutex);
    if (!m_cv.wait_for(lock, std::chrono::milliseconds(timeoutMs), [this] { return m_count > 0; })) {
        return false;
    }
    --m_count;
    return true;
}

}  // namespace qel::common::system
