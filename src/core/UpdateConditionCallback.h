// The callback the condition manager hands to an action, and the anchor that keeps it live.
//
// Contract: a callback forwards `notify(value)` to its function only while its anchor exists.
// `dropAnchor()` makes that anchor (call it once, before the callback is handed out) and returns
// it to whoever decides the callback's life, the condition manager; once the manager lets go of
// the anchor, later reports are dropped without a word. The anchor refers back to its callback
// only weakly, so the manager can prune anchors of callbacks nobody holds any more.
// `notify` may be called from any thread and any number of times.
#pragma once

#include "core/IUpdateConditionCallback.h"

#include <functional>
#include <memory>
#include <mutex>

namespace qel::onlineservices::framework::core {

class UpdateConditionCallback;

class UpdateConditionCallbackAnchor {
public:
    explicit UpdateConditionCallbackAnchor(std::weak_ptr<UpdateConditionCallback> callback)
        : m_callback(std::move(callback)) {}

    // True once every holder of the callback has released it.
    bool isCallbackReleased() const { return m_callback.expired(); }

private:
    std::weak_ptr<UpdateConditionCallback> const m_callback;
};

class UpdateConditionCallback : public IUpdateConditionCallback,
                                public std::enable_shared_from_this<UpdateConditionCallback> {
public:
    explicit UpdateConditionCallback(std::function<void(bool)> function) : m_function(std::move(function)) {}

    void notify(bool value) override;

    // Must be called on a callback owned by a shared pointer.
    std::shared_ptr<UpdateConditionCallbackAnchor> dropAnchor();

private:
    std::function<void(bool)> const m_function;
    std::mutex m_anchorMutex;
    std::weak_ptr<UpdateConditionCallbackAnchor> m_anchor;  // guarded by m_anchorMutex
};

}  // namespace qel::onlineservices::framework::core
