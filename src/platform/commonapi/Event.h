// An event a proxy offers: listeners subscribe and receive every value the binding delivers.
//
// Contract: `subscribe` returns a handle, never 0xFFFFFFFF; `unsubscribe` of an unknown handle
// does nothing. The binding delivers values on its own thread; listeners are called outside the
// event's lock, so a listener may subscribe or unsubscribe. A delivery already under way when
// `unsubscribe` returns may still reach the listener once: listeners hold their targets weakly.
#pragma once

#include "commonapi/Types.h"

#include <cstdint>
#include <functional>
#include <map>
#include <mutex>
#include <utility>
#include <vector>

namespace CommonAPI {

template <typename... Arguments_>
class Event {
public:
    using Listener = std::function<void(Arguments_ const&...)>;
    using ErrorListener = std::function<void(CallStatus const)>;
    using Subscription = std::uint32_t;

    Event() = default;
    virtual ~Event() = default;
    Event(Event const&) = delete;
    Event& operator=(Event const&) = delete;

    Subscription subscribe(Listener listener, ErrorListener errorListener = nullptr) {
        Subscription subscription = 0;
        {
            std::lock_guard<std::mutex> guard(mutex_);
            subscription = nextSubscription_++;
            if (nextSubscription_ == NO_SUBSCRIPTION) {
                nextSubscription_ = 0;
            }
            subscriptions_[subscription] = {listener, std::move(errorListener)};
        }
        onListenerAdded(listener, subscription);
        return subscription;
    }

    void unsubscribe(Subscription const subscription) {
        std::lock_guard<std::mutex> guard(mutex_);
        subscriptions_.erase(subscription);
    }

protected:
    static constexpr Subscription NO_SUBSCRIPTION = 0xFFFFFFFFu;

    void notifyListeners(Arguments_ const&... values) {
        for (auto const& [subscription, listeners] : snapshot()) {
            if (listeners.first) {
                listeners.first(values...);
            }
        }
    }

    void notifySpecificListener(Subscription const subscription, Arguments_ const&... values) {
        for (auto const& [candidate, listeners] : snapshot()) {
            if (candidate == subscription && listeners.first) {
                listeners.first(values...);
            }
        }
    }

    void notifyErrorListeners(CallStatus const status) {
        for (auto const& [subscription, listeners] : snapshot()) {
            if (listeners.second) {
                listeners.second(status);
            }
        }
    }

    // Called on the subscriber's thread after the listener was added.
    virtual void onListenerAdded(Listener const& /*listener*/, Subscription const /*subscription*/) {}

private:
    std::vector<std::pair<Subscription, std::pair<Listener, ErrorListener>>> snapshot() {
        std::lock_guard<std::mutex> guard(mutex_);
        return {subscriptions_.begin(), subscriptions_.end()};
    }

    std::mutex mutex_;
    Subscription nextSubscription_ = 0;                                        // guarded by mutex_
    std::map<Subscription, std::pair<Listener, ErrorListener>> subscriptions_;  // guarded by mutex_
};

}  // namespace CommonAPI
