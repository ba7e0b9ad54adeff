#include "subscriptions/RSISubscriptionCallback.h"

#include <utility>

namespace qel::onlineservices::framework::core {

using qel::common::system::MutexGuard;

RSISubscriptionCallback::RSISubscriptionCallback(Function function) : m_function(std::move(function)) {}

void RSISubscriptionCallback::setFunction(Function function) {
    MutexGuard guard(m_mutex);
    m_function = std::move(function);
}

RSISubscriptionCallback::Function RSISubscriptionCallback::getFunction() const {
    MutexGuard guard(m_mutex);
    return m_function;
}

bool RSISubscriptionCallback::call(bool subscribed) const {
    Function const function = getFunction();
    if (!function) {
        return false;
    }
    function(subscribed);
    return true;
}

}  // namespace qel::onlineservices::framework::core
