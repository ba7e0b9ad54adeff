#include "rsi/RSIEntrySet.h"

#include <algorithm>

namespace qel::onlineservices::framework::core {

namespace {

std::vector<std::shared_ptr<RSIEntry>> withoutNulls(std::vector<std::shared_ptr<RSIEntry>> entries) {
    entries.erase(std::remove(entries.begin(), entries.end(), nullptr), entries.end());
    return entries;
}

}  // namespace

RSIEntrySet::RSIEntrySet(std::vector<std::shared_ptr<RSIEntry>> const& entries,
                         std::shared_ptr<IUpdateConditionCallback> callback)
    : m_callback(std::move(callback)), m_entryCount(withoutNulls(entries).size()), m_entries(withoutNulls(entries)) {}

std::vector<std::shared_ptr<RSIEntry>> RSIEntrySet::entries() const {
    std::lock_guard<std::mutex> lock(m_mutex);
    return m_entries;
}

void RSIEntrySet::reportIfEmpty() {
    if (m_entryCount == 0 && m_callback) {
        m_callback->notify(true);
    }
}

void RSIEntrySet::entrySetProcessSuccess(bool success) {
    bool allSucceeded = false;
    std::vector<std::shared_ptr<RSIEntry>> released;  // let go outside the lock
    {
        std::lock_guard<std::mutex> lock(m_mutex);
        if (success) {
            allSucceeded = ++m_successCount == m_entryCount;
        }
        if (++m_answerCount >= m_entryCount) {
            released.swap(m_entries);
        }
    }
    if (!m_callback) {
        return;
    }
    if (!success) {
        m_callback->notify(false);
    } else if (allSucceeded) {
        m_callback->notify(true);
    }
}

}  // namespace qel::onlineservices::framework::core
