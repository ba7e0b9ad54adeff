// Receives the backend jobs addressed to one of the application's services, hands each new one
// to the backend-job listener and acknowledges it to the backend with the listener's answer.
//
// Contract: every job of a resource event is looked at, in order. A job is taken only when its
// "name" is the service id, its "messageId" (when present) contains "005F/" and it carries no
// "jobAcknowledgeState" yet; each taken job is acknowledged exactly once (also when the backend
// repeats it before the acknowledgement arrived), with "unknownError" when no listener answered
// or the listener threw. Acknowledgements are not retried. Any subscription answer leaves the
// item marked subscribed.
#pragma once

#include "subscriptions/SubscriptionBaseItem.h"

#include <onlineservices/framework/BackendJobAcknowledgeCode.h>
#include <onlineservices/framework/JobObject.h>

#include <cstddef>
#include <cstdint>
#include <deque>
#include <map>
#include <memory>
#include <string>

namespace qel::onlineservices::framework::core {

class JobItem : public SubscriptionBaseItem {
public:
    static constexpr char const* SERVICE = "backendjobs";
    static constexpr char const* RESSOURCE = "jobs";
    static constexpr char const* DESCRIPTION_NAME = "Job List";
    static constexpr char const* HOST_SYSTEM_MARK = "005F/";
    static constexpr std::uint32_t ACKNOWLEDGE_REQUEST_ID = 6;
    // How many handled job ids are remembered against a backend that repeats a job before its
    // acknowledgement has arrived.
    static constexpr std::size_t HANDLED_JOBS_KEPT = 256;
    // The acknowledgement texts the backend understands.
    static std::map<BackendJobAcknowledgeCode, std::string> const m_ackCodeMap;

    JobItem(qel::common::logging::Logger const& logger, std::shared_ptr<Notifier> const& notifier,
            std::shared_ptr<IRSIClientWrapper> const& rsiClientWrapper, std::string const& serviceId);

    std::shared_ptr<dataitems::JobObject> getJobObject() const;
    std::string getJobType() const;
    void acknowledgeJob(std::string const& id, BackendJobAcknowledgeCode code);

    void processData(Ref const& job) override;
    void handleEventResource(SubscriptionIndex index, std::shared_ptr<Value> const& value) override;
    using SubscriptionBaseItem::handleResponse;
    void handleResponse(qel::rsi::client::RequestState const& state,
                        qel::rsi::client::Response const& response) override;
    void subscribeElement() override;
    void unsubscribeElement() override;

private:
    // Name, origin and acknowledgement checks; logs why a job is not taken.
    bool isNewJobForUs(Ref const& job) const;
    std::string ackText(BackendJobAcknowledgeCode code) const;
    // Remembers `id`; false when it was handled already.
    bool markHandled(std::string const& id);

    std::string const m_serviceId;
    mutable qel::common::system::Mutex m_dataLock;
    std::shared_ptr<dataitems::JobObject> m_data;  // guarded by m_dataLock
    std::deque<std::string> m_handledJobIds;        // queue thread only; oldest first
};

}  // namespace qel::onlineservices::framework::core
