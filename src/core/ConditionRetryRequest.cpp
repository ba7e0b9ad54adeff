#include "core/ConditionRetryRequest.h"

namespace qel::onlineservices::framework::core {

bool ConditionRetryRequest::exec(unsigned int attempt) {
    return m_attempt ? m_attempt(attempt) : true;
}

void ConditionRetryRequest::finish(bool success) {
    if (m_callback) {
        m_callback->notify(success);
    }
}

}  // namespace qel::onlineservices::framework::core
