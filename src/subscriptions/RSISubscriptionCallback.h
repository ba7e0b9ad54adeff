// Who hears that a subscription item became subscribed (true) or lost its subscription (false).
//
// Contract: the function may be replaced and called from any thread. It is copied under the
// callback's own mutex and the copy is called outside it, so the function may call back into
// the item. Not copyable (it holds a mutex); pass the function on with `getFunction`.
#pragma once

#include "common/Mutex.h"

#include <functional>

namespace qel::onlineservices::framework::core {

class RSISubscriptionCallback {
public:
    using Function = std::function<void(bool)>;

    RSISubscriptionCallback() = default;
    explicit RSISubscriptionCallback(Function function);
    RSISubscriptionCallback(RSISubscriptionCallback const&) = delete;
    RSISubscriptionCallback& operator=(RSISubscriptionCallback const&) = delete;

    void setFunction(Function function);
    Function getFunction() const;
    // False when no function is set.
    bool call(bool subscribed) const;

private:
    mutable qel::common::system::Mutex m_mutex;
    Function m_function;  // guarded by m_mutex
};

}  // namespace qel::onlineservices::framework::core
