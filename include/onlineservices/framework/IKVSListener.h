// Receives changes of the application's key-value-storage items.
//
// Contract: one call per change of an item, with the item's key and its new value.
//
// Calls never overlap: the framework makes one listener call at a time, across all listeners of
// the client, in the order the events happened. A call runs on a framework thread: the thread
// on which the event happened, or another framework thread that is delivering events at that
// moment. The application's own thread delivers only from inside `startup`, `pauseConnection`,
// `unpauseConnection` and `stop`. Events that happen during a call are queued behind it, so
// return quickly and hand long work to a thread of your own. From inside a call do not register
// listeners; do not wait for another listener call (it comes only after you return), do not call
// `updateKVSItem` or `stop`, and do not release the client. Listeners are held weakly: keep yours
// alive for as long as it should be called.
#pragma once

#include <onlineservices/framework/Export.h>

#include <string>

namespace qel::onlineservices::framework::core {

class QEL_OSF_EXPORT IKVSListener {
public:
    virtual ~IKVSListener() = default;
    // The item `key` now holds `value` in the backend.
    virtual void onKVSItemChanged(std::string const& key, std::string const& value) = 0;
};

}  // namespace qel::onlineservices::framework::core
