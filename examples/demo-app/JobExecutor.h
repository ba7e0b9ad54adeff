// Executes the backend jobs addressed to the application.
//
// Called on the job subscription's queue thread, which waits for the returned code and then
// acknowledges the job at the backend with it. Do the (short) work here or hand it to a thread of
// your own and answer at once; do not call back into the client from here.
#pragma once

#include "Timeline.h"

#include <onlineservices/framework/IBackendJobListener.h>
#include <onlineservices/framework/JobObject.h>

class JobExecutor : public qel::onlineservices::framework::core::IBackendJobListener {
public:
    explicit JobExecutor(Timeline& timeline) : m_timeline(timeline) {}

    qel::onlineservices::framework::core::BackendJobAcknowledgeCode onBackendJobReceived(
        std::shared_ptr<qel::onlineservices::framework::dataitems::JobObject> const& job) override {
        using qel::onlineservices::framework::core::BackendJobAcknowledgeCode;
        if (!job || job->jobPayload.empty()) {
            m_timeline.print("job refused (no payload)");
            return BackendJobAcknowledgeCode::INVALID_PAYLOAD;
        }
        m_timeline.print("job received " + job->id + " payload " + job->jobPayload);
        m_timeline.print("job answered " + job->id + " success");
        return BackendJobAcknowledgeCode::SUCCESS;
    }

private:
    Timeline& m_timeline;
};
