// Executes the backend jobs addressed to the application and says how they went.
//
// Contract: the framework acknowledges the job with the returned code; when no listener is set
// (or it is gone) the backend hears UNKNOWN_ERROR. A job without an id, or with members of the
// wrong kind, is only logged: it is neither handed to the listener nor acknowledged. A client has
// one backend-job listener; setting another replaces it. The backend-job subscription's thread
// waits for the answer.
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

#include <onlineservices/framework/BackendJobAcknowledgeCode.h>
#include <onlineservices/framework/Export.h>
#include <onlineservices/framework/JobObject.h>

#include <memory>

namespace qel::onlineservices::framework::core {

class QEL_OSF_EXPORT IBackendJobListener {
public:
    virtual ~IBackendJobListener() = default;
    virtual BackendJobAcknowledgeCode onBackendJobReceived(
        std::shared_ptr<framework::dataitems::JobObject> const& job) = 0;
};

}  // namespace qel::onlineservices::framework::core
