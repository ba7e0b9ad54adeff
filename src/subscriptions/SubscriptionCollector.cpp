#include "subscriptions/SubscriptionCollector.h"

#include <optional>
#include <utility>

namespace qel::onlineservices::framework::core {

using qel::common::system::MutexGuard;

SubscriptionCollector::SubscriptionCollector(std::shared_ptr<IUpdateConditionCallback> callback, bool expected,
                                             std::uint16_t total)
    : m_callback(std::move(callback)), m_expected(expected), m_total(total) {}

void SubscriptionCollector::fold(bool result) {
    std::optional<bool> answer;
    {
        MutexGuard guard(m_mutex);
        if (!m_callback || m_done) {
            return;
        }
        if (result != m_expected) {
            answer = result;  // the first deviating answer decides
        } else if (++m_received >= m_total) {
            answer = m_expected;
        }
        m_done = answer.has_value();
    }
    if (answer) {
        m_callback->notify(*answer);
    }
}

}  // namespace qel::onlineservices::framework::core
