#include "core/UpdateConditionCallback.h"

namespace qel::onlineservices::framework::core {

void UpdateConditionCallback::notify(bool value) {
    if (!m_function) {
        return;
    }
    std::shared_ptr<UpdateConditionCallbackAnchor> anchor;
    {
        std::lock_guard<std::mutex> guard(m_anchorMutex);
        anchor = m_anchor.lock();
    }
    // Holding the anchor for the call keeps it from being pruned half-way.
    if (anchor) {
        m_function(value);
    }
}

std::shared_ptr<UpdateConditionCallbackAnchor> UpdateConditionCallback::dropAnchor() {
    auto anchor = std::make_shared<UpdateConditionCallbackAnchor>(weak_from_this());
    std::lock_guard<std::mutex> guard(m_anchorMutex);
    m_anchor = anchor;
    return anchor;
}

}  // namespace qel::onlineservices::framework::core
