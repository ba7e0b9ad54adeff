// Receives the backend jobs addressed to one of the application's services, hands each new one
// to the backend-job listener and acknowledges it to the backend with the listener's answer.
//
// Contract: every job of a resource event is looked at, in order. A job is taken only when its
// "name" is the service id, its "messageId" (when present) contains "005F/" and it carries no
// "jobAcknowledgeState" yet. A job without an id usable as the element of its acknowledgement is
// logged and neither notified nor acknowledged; other members are read as they convert. A taken
// job is acknowledged with the listener's answer, or with
// "unknownError" when no listener answered or the listener threw. The item does not retry an
// acknowledgement itself: a job whose acknowledgement failed is taken again (listener and
// acknowledgement) when the backend lists it again. A job is not taken again while its
// acknowledgement awaits its answer, nor after the backend confirmed it, for as long as the
// backend keeps listing it. Any subscription answer leaves the item marked subscribed.
#pragma once

#include "rsi/RSIResponseHandler.h"
#include "subscriptions/SubscriptionBaseItem.h"

#include <onlineservices/framework/BackendJobAcknowledgeCode.h>
#include <onlineservices/framework/JobObject.h>

#include <cstdint>
#include <map>
#include <memory>
#include <set>
#include <string>

namespace qel::onlineservices::framework::core {

class JobItem : public SubscriptionBaseItem {
public:
    static inline std::string const SERVICE = "backendjobs";
    static inline std::string const RESSOURCE = "jobs";
    static inline std::string const DESCRIPTION_NAME = "Job List";
    static inline std::string const HOST_SYSTEM_MARK = "005F/";
    static constexpr std::uint32_t ACKNOWLEDGE_REQUEST_ID = 6;
    // The acknowledgement texts the backend understands.
    static std::map<BackendJobAcknowledgeCode, std::string> const m_ackCodeMap;

    JobItem(qel::common::logging::Logger const& logger, std::shared_ptr<Notifier> const& notifier,
            std::shared_ptr<IRSIClientWrapper> const& rsiClientWrapper, std::string const& serviceId);

    std::shared_ptr<framework::dataitems::JobObject> getJobObject() const;
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
    // The job's id names exactly one element, the one its acknowledgement is posted to.
    bool hasUsableId(Ref const& job) const;
    std::string ackText(BackendJobAcknowledgeCode code) const;
    // Reserves `id` for handling; false while its acknowledgement is pending or confirmed.
    bool reserve(std::string const& id);
    // Forgets confirmed jobs the backend no longer lists.
    void forgetUnlisted(std::set<std::string> const& listed);
    // The answer to the acknowledgement of job `id`.
    void acknowledgeAnswered(std::string const& id, qel::rsi::client::RequestState const& state,
                             qel::rsi::client::Response const& response);
    // Logs the backend's verdict on an acknowledgement; true when it took it.
    bool isAcknowledgeSuccess(qel::rsi::client::RequestState const& state,
                              qel::rsi::client::Response const& response) const;

    std::string const m_serviceId;
    mutable qel::common::system::Mutex m_dataLock;
    std::shared_ptr<framework::dataitems::JobObject> m_data;  // guarded by m_dataLock
    // Answers arrive on the wrapper's thread, events on the queue thread.
    mutable qel::common::system::Mutex m_jobsLock;
    // Acknowledgements awaiting their answer, with the handler that keeps the answer's way open
    // (the wrapper holds handlers weakly). Guarded by m_jobsLock.
    std::map<std::string, std::shared_ptr<RSIResponseHandler>> m_pendingAcks;
    std::set<std::string> m_confirmedJobs;  // guarded by m_jobsLock
};

}  // namespace qel::onlineservices::framework::core
