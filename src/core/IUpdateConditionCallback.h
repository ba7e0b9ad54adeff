// One-shot-style report channel from an action back to the condition manager.
//
// Contract: whoever was handed a callback calls `notify(value)` when the work it started has
// reached the value (true: the condition holds; false: it does not, or no longer). It may be
// called from any thread and more than once; reports that arrive after the condition manager
// is gone are dropped silently. Do not hold a lock of your own while calling it: the manager may
// run other actions and listeners on the calling thread.
#pragma once

namespace qel::onlineservices::framework::core {

class IUpdateConditionCallback {
public:
    virtual ~IUpdateConditionCallback() = default;
    virtual void notify(bool value) = 0;
};

}  // namespace qel::onlineservices::framework::core
