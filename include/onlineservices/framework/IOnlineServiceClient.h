// The application's handle on the vehicle's online services.
//
// Contract: obtained from the factory, already configured. Register listeners, then call
// `startup`; from then on the framework connects to the backend on its own threads, posts the
// application's entries, follows its subscriptions and reports through the listeners. All
// operations are called on the application's thread, return without waiting for the backend
// (except `updateKVSItem`) and report failures through the log and their result, never by
// throwing. None of them may be called from inside a listener (a framework thread). Listeners
// are held weakly: the application owns them.
//
// Ownership and lifetime: the application's handle is the only lasting strong reference to the
// client. The framework's threads refer to the client and to every object that owns a thread
// weakly, and hold a strong reference only for the duration of one call, so the last reference
// is always the application's. Release the handle on the application's thread: that stops the
// client (as `stop` does, reporting DESTROYED to the run-state listeners still alive), waits
// until every framework thread has left the listener it is in and ended, and only then returns.
// Releasing never waits for a flood of events: from the moment `stop` begins no new event is
// taken in, and events still queued 100 ms later are dropped, so a release takes at most about
// 100 ms plus the longest listener call in progress. Do not drop the last handle inside a
// listener (a framework thread, which cannot wait for itself); if it happens anyway, a separate
// teardown thread does the release and a warning names the mistake.
#pragma once

#include <onlineservices/framework/Export.h>
#include <onlineservices/framework/IBackendJobListener.h>
#include <onlineservices/framework/IKVSListener.h>
#include <onlineservices/framework/IRunStateListener.h>
#include <onlineservices/framework/IServiceDataListener.h>
#include <onlineservices/framework/KVSUpdateStatus.h>

#include <memory>
#include <string>

namespace qel::onlineservices::framework::core {

class QEL_OSF_EXPORT IOnlineServiceClient {
public:
    // Starts the walk towards RESUMED. Does nothing when the client is not fully wired (a log
    // line says what is missing).
    virtual void startup() = 0;
    // Goes to PAUSED: releases the access token and the networking connection, keeps the rest.
    virtual void pauseConnection() = 0;
    // Goes back to RESUMED after `pauseConnection`.
    virtual void unpauseConnection() = 0;
    // Shuts the client down for good (run state DESTROYED); a second call does nothing. From
    // here on no new event is taken in; run states still are. The client can only be released afterwards.
    // Releasing a running client stops it first.
    virtual void stop() = 0;
    // The one listener that executes backend jobs; replaces an earlier one.
    virtual void setBackendJobListener(std::shared_ptr<IBackendJobListener> const& listener) = 0;
    //@{
    // Adds a listener, held weakly; a listener added twice is called twice. Register before
    // `startup` to hear everything; never from inside a listener.
    virtual void addKVSListener(std::shared_ptr<IKVSListener> const& listener) = 0;
    virtual void addServiceDataListener(std::shared_ptr<IServiceDataListener> const& listener) = 0;
    virtual void addRunStateListener(std::shared_ptr<IRunStateListener> const& listener) = 0;
    //@}
    // Writes the application's KVS item `key` to the backend; blocks until the backend answered
    // this very call or a time-out of 3000 ms passed. A newer call gives up an earlier value the
    // framework was still trying to write, so an older value never overwrites a newer one.
    virtual KVSUpdateStatus updateKVSItem(std::string const& key, std::string const& value) = 0;
    // Stops a client that is still running; see the class contract for where to release it.
    virtual ~IOnlineServiceClient() = default;
};

}  // namespace qel::onlineservices::framework::core
