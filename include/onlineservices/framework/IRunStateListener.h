// Receives every change of the client's run state.
//
// Contract: states arrive in the order the client entered them, so consecutive calls always
// form a transition the client may take.
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
#include <onlineservices/framework/RunState.h>

namespace qel::onlineservices::framework::core {

class QEL_OSF_EXPORT IRunStateListener {
public:
    virtual ~IRunStateListener() = default;
    virtual void onRunStateChanged(RunState state) = 0;
};

}  // namespace qel::onlineservices::framework::core
