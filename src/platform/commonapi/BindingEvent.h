// The event a binding owns: the binding fires it (from its own thread) and learns of new
// listeners, e.g. to tell them the current availability.
#pragma once

#include "commonapi/Event.h"

#include <functional>
#include <utility>

namespace CommonAPI {

template <typename... Arguments_>
class BindingEvent : public Event<Arguments_...> {
public:
    using Subscription = typename Event<Arguments_...>::Subscription;
    using AddedHook = std::function<void(Subscription)>;

    // Set once, before the event is handed out.
    void setListenerAddedHook(AddedHook hook) { hook_ = std::move(hook); }

    void fire(Arguments_ const&... values) { this->notifyListeners(values...); }
    void fireTo(Subscription subscription, Arguments_ const&... values) {
        this->notifySpecificListener(subscription, values...);
    }
    void fireError(CallStatus status) { this->notifyErrorListeners(status); }

protected:
    void onListenerAdded(typename Event<Arguments_...>::Listener const& /*listener*/,
                         Subscription const subscription) override {
        if (hook_) {
            hook_(subscription);
        }
    }

private:
    AddedHook hook_;
};

}  // namespace CommonAPI
