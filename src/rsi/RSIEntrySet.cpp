#include "rsi/RSIEntrySet.h"

namespace qel::onlineservices::framework::core {

RSIEntrySet::RSIEntrySet(std::size_t entryCount, std::shared_ptr<IUpdateConditionCallback> callback)
    : m_entryCount(entryCount), m_callback(std::move(callback)) {}

void RSIEntrySet::entrySetProcessSuccess(bool success) {
    if (!m_callback) {
        return;
    }
    if (!success) {
        m_callback->notify(false);
        return;
    }
    if (++m_successCount == m_entryCount) {
        m_callback->notify(true);
    }
}

}  // namespace qel::onlineservices::framework::core
