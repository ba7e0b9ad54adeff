#include "rsi/RSIEntry.h"

namespace qel::onlineservices::framework::core {

void RSIEntry::keepResponseHandler(std::shared_ptr<RSIResponseHandler> handler) {
    std::lock_guard<std::mutex> lock(m_mutex);
    m_responseHandlers.push_back(std::move(handler));
}

void RSIEntry::setCompletion(std::function<void(bool)> completion) {
    std::lock_guard<std::mutex> lock(m_mutex);
    m_completion = std::move(completion);
}

void RSIEntry::complete(bool success) const {
    std::function<void(bool)> completion;
    {
        std::lock_guard<std::mutex> lock(m_mutex);
        completion = m_completion;
    }
    if (completion) {
        completion(success);
    }
}

void RSIEntry::reportUuid() const {
    if (auto const handler = uriHandler.lock()) {
        handler->handleURI(uuid);
    }
}

}  // namespace qel::onlineservices::framework::core
