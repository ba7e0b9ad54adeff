// Executes the backend jobs addressed to the application and says how they went.
//
// Contract: called on the backend-job subscription's queue thread, which waits for the answer: do
// the work or hand it on, return the answer for the backend, and do not register listeners or
// call back into the client from inside the callback. The framework acknowledges
// the job with the returned code; when no listener is set (or it is gone) the backend hears
// UNKNOWN_ERROR. A client has one backend-job listener; setting another replaces it. Held
// weakly: keep the listener alive for as long as it should be called.
#pragma once

#include <onlineservices/framework/BackendJobAcknowledgeCode.h>
#include <onlineservices/framework/Export.h>
#include <onlineservices/framework/JobObject.h>

#include <memory>

namespace qel::onlineservices::framework::core {

class QEL_OSF_EXPORT IBackendJobListener {
public:
    virtual ~IBackendJobListener() = default;
    virtual BackendJobAcknowledgeCode onBackendJobReceived(std::shared_ptr<dataitems::JobObject> const& job) = 0;
};

}  // namespace qel::onlineservices::framework::core
