#include "rsi/RSIRetryQueue.h"

namespace qel::onlineservices::framework::core {

void RSIRetryQueue::arm(Entry entry) {
    std::lock_guard<std::mutex> lock(m_mutex);
    auto const due = entry.due;
    m_entries.emplace(due, std::move(entry));
}

std::vector<RSIRetryQueue::Entry> RSIRetryQueue::takeDue(qel::common::system::Clock::timeValue now) {
    std::vector<Entry> due;
    std::lock_guard<std::mutex> lock(m_mutex);
    auto const end = m_entries.lower_bound(now);
    for (auto it = m_entries.begin(); it != end; ++it) {
        due.push_back(std::move(it->second));
    }
    m_entries.erase(m_entries.begin(), end);
    return due;
}

}  // namespace qel::onlineservices::framework::core
