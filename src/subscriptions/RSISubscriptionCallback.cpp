#include "subscriptions/RSISubscriptionCallback.h"

#include <utility>

namespace qel::onlineservices::framework::core {

using qel::common::system::MutexGuard;

namespace {

std::shared_ptr<RSISubscriptionCallback::Function const> wrap(RSISubscriptionCallback::Function function) {
    if (!function) {
        return nullptr;
    }
    return std::make_shared<RSISubscriptionCallback::Function const>(std::move(function));
}

}  // namespace

RSISubscriptionCallback::RSISubscriptionCallback(Function function) : m_function(wrap(std::move(function))) {}

void RSISubscriptionCallback::setFunction(Function function) {
    auto wrapped = wrap(std::move(function));
    MutexGuard guard(m_mutex);
    m_function.swap(wrapped);
    // The previous function is released after the guard, outside the mutex.
}

std::shared_ptr<RSISubscriptionCallback::Function const> RSISubscriptionCallback::shared() const {
    MutexGuard guard(m_mutex);
    return m_function;
}

RSISubscriptionCallback::Function RSISubscriptionCallback::getFunction() const {
    auto const function = shared();
    return function ? *function : Function();
}

bool RSISubscriptionCallback::call(bool subscribed) const {
    auto const function = shared();
    if (!function) {
        return false;
    }
    (*function)(subscribed);
    return true;
}

}  // namespace qel::onlineservices::framework::core
