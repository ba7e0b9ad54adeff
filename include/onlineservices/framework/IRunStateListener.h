// Receives every change of the client's run state.
//
// Contract: states arrive one at a time, in the order the client entered them, so consecutive
// calls always form a transition the client may take. The call comes on whichever thread moved
// the client: the application's own thread (inside `startup`, `pauseConnection`,
// `unpauseConnection`, `stop`), the thread that completed a backend request or subscription
// (RSI worker, a subscription's queue thread, the networking retry thread) or a platform event
// thread (connectivity changes), and holds up the client's state machine while it runs: return
// quickly, and do not register listeners or call back into the client from inside the callback. Held
// weakly: keep the listener alive for as long as it should be called.
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
