// Who hears that a subscription item became subscribed (true) or lost its subscription (false).
//
// Contract: the function may be replaced and called from any thread. It is taken under the
// callback's own mutex and called outside it, so the function may call back into the item.
// It is wrapped once when set and shared from then on: taking it for a call copies nothing of
// what it captured. Not copyable (it holds a mutex); pass the function on with `getFunction`.
#pragma once

#include "common/Mutex.h"

#include <functional>
#include <memory>

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
    std::shared_ptr<Function const> shared() const;

    mutable qel::common::system::Mutex m_mutex;
    std::shared_ptr<Function const> m_function;  // guarded by m_mutex; null when none is set
};

}  // namespace qel::onlineservices::framework::core
