#include "subscriptions/JobItem.h"

#include "rsi/RequestState.h"
#include "rsi/RequestType.h"

#include <algorithm>
#include <iterator>
#include <stdexcept>

namespace qel::onlineservices::framework::core {

using qel::common::logging::LogLevel;
using qel::common::system::MutexGuard;
using qel::rsi::client::Request;
using dataitems::JobObject;

namespace {
constexpr std::int16_t HTTP_OK = 200;
constexpr std::int16_t HTTP_CREATED = 201;
}  // namespace

std::map<BackendJobAcknowledgeCode, std::string> const JobItem::m_ackCodeMap{
    {BackendJobAcknowledgeCode::SUCCESS, "success"},
    {BackendJobAcknowledgeCode::INVALID_PAYLOAD, "invalidPayload"},
    {BackendJobAcknowledgeCode::UNKNOWN_ERROR, "unknownError"},
};

JobItem::JobItem(qel::common::logging::Logger const& logger, std::shared_ptr<Notifier> const& notifier,
                 std::shared_ptr<IRSIClientWrapper> const& rsiClientWrapper, std::string const& serviceId)
    : SubscriptionBaseItem(logger, notifier, rsiClientWrapper), m_serviceId(serviceId) {
    describe(serviceId, SERVICE, RESSOURCE, {{"name", serviceId}}, DESCRIPTION_NAME, "job");
    keepEveryEvent();  // each event may carry jobs of its own
}

std::shared_ptr<JobObject> JobItem::getJobObject() const {
    MutexGuard guard(m_dataLock);
    return m_data;
}

std::string JobItem::getJobType() const {
    auto const job = getJobObject();
    return job ? job->jobType : std::string();
}

void JobItem::handleEventResource(SubscriptionIndex /*index*/, std::shared_ptr<Value> const& value) {
    // Every job counts: the filter is only the backend's hint.
    Ref const data = Ref(value.get())("data");
    unsigned long const count = data.getArraySize();
    m_logger << LogLevel::Info << m_description << " Received " << count << " Backendjob Object(s)";
    std::set<std::string> listed;
    for (unsigned long i = 0; i < count; ++i) {
        listed.insert(data[i]("id").asString());
    }
    // The event lists every open job: a confirmed job that is no longer among them is done.
    forgetUnlisted(listed);
    for (unsigned long i = 0; i < count; ++i) {
        processData(data[i]);
    }
}

bool JobItem::isNewJobForUs(Ref const& job) const {
    std::string const name = job("name").asString();
    if (name.empty() || name != m_serviceId) {
        m_logger << LogLevel::Info << "Name property " << (name.empty() ? std::string("<empty>") : name)
                 << " is not matching " << m_serviceId << ". Ignoring job.";
        return false;
    }
    std::int64_t const jobId = job("jobId").asInteger();
    std::string const messageId = job("messageId").asString();
    m_logger << LogLevel::Info << "Mesasge id: " << messageId;
    if (messageId.empty()) {
        m_logger << LogLevel::Error << "Message id is empty should not happen";
    } else if (messageId.find(HOST_SYSTEM_MARK) == std::string::npos) {
        m_logger << LogLevel::Info << "Ignoring job that is not 005F";
        return false;
    } else {
        m_logger << LogLevel::Info << "Processing 005F Job";
    }
    if (jobId == 0) {
        m_logger << LogLevel::Warning << m_description << "jobId = " << jobId << " posted or no jobId posted at all";
    }
    if (!job("jobAcknowledgeState").asString().empty()) {
        m_logger << LogLevel::Error << m_description << " Job already acknowledged, ignoring";
        return false;
    }
    return true;
}

bool JobItem::hasUsableId(Ref const& job) const {
    // The id becomes the path element of the acknowledgement: it must name exactly one element.
    std::string const id = job("id").asString();
    bool const usable = !id.empty() && std::none_of(id.begin(), id.end(), [](char c) {
        return c == '/' || c == '?' || c == '#' || static_cast<unsigned char>(c) < 0x20;
    });
    if (!usable) {
        m_logger << LogLevel::Error << m_description << " Invalid job refused: missing or unusable id <" << id << ">";
    }
    return usable;
}

void JobItem::processData(Ref const& job) {
    m_logger << LogLevel::Info << m_description << " Job Object: " << job("uri").asString() << " checking validity";
    if (!isNewJobForUs(job) || !hasUsableId(job)) {
        return;
    }
    std::string const id = job("id").asString();
    if (!reserve(id)) {
        return;
    }
    auto const record = std::make_shared<JobObject>();
    record->deserialize(job.get());
    {
        MutexGuard guard(m_dataLock);
        m_data = record;
    }
    auto code = BackendJobAcknowledgeCode::UNKNOWN_ERROR;
    bool notified = false;
    try {
        notified = m_notifier && m_notifier->notifyBackendJob(record, code);
    } catch (...) {
        // The listener is the application's code; its failure must not stop the queue.
        m_logger << LogLevel::Error << m_description << " Unknown error while processing Job POST";
        acknowledgeJob(id, BackendJobAcknowledgeCode::UNKNOWN_ERROR);
        return;
    }
    if (notified) {
        m_logger << LogLevel::Info << m_description << " Job notified ";
        acknowledgeJob(id, code);
    } else {
        m_logger << LogLevel::Error << m_description << " Job received, but no listener notified!";
        acknowledgeJob(id, BackendJobAcknowledgeCode::UNKNOWN_ERROR);
    }
}

bool JobItem::reserve(std::string const& id) {
    char const* reason = nullptr;
    {
        MutexGuard guard(m_jobsLock);
        if (m_confirmedJobs.count(id) != 0) {
            reason = " already acknowledged, ignoring";
        } else if (m_pendingAcks.count(id) != 0) {
            reason = " acknowledge pending, ignoring";
        } else {
            m_pendingAcks[id];  // its handler follows with the acknowledgement
        }
    }
    if (reason != nullptr) {
        m_logger << LogLevel::Info << m_description << " Job " << id << reason;
    }
    return reason == nullptr;
}

void JobItem::forgetUnlisted(std::set<std::string> const& listed) {
    MutexGuard guard(m_jobsLock);
    for (auto job = m_confirmedJobs.begin(); job != m_confirmedJobs.end();) {
        job = listed.count(*job) == 0 ? m_confirmedJobs.erase(job) : std::next(job);
    }
}

std::string JobItem::ackText(BackendJobAcknowledgeCode code) const {
    try {
        return m_ackCodeMap.at(code);
    } catch (std::out_of_range const&) {
        m_logger << LogLevel::Error << m_description << " Unknown acknowledge code " << code
                 << ", answering unknownError";
        return m_ackCodeMap.at(BackendJobAcknowledgeCode::UNKNOWN_ERROR);
    }
}

void JobItem::acknowledgeJob(std::string const& id, BackendJobAcknowledgeCode code) {
    std::string const text = ackText(code);
    auto body = std::make_unique<qel::dataformats::data::Object>();
    body->setNew("jobAcknowledgeState", std::make_unique<qel::dataformats::data::String>(text));
    auto const request = std::make_shared<Request>();
    request->type = qel::rsi::client::RequestTypePostElement;
    request->requestId = ACKNOWLEDGE_REQUEST_ID;
    request->service = m_service;
    request->resource = m_resource;
    request->element = id;
    request->contentType = "application/json";
    request->data = std::move(body);
    // One handler per acknowledgement, so that its answer names the job it belongs to.
    std::weak_ptr<JobItem> const self = std::static_pointer_cast<JobItem>(weak_from_this().lock());
    auto const handler = std::make_shared<RSIResponseHandler>(
        [self, id](qel::rsi::client::RequestState const& state, qel::rsi::client::Response const& response) {
            if (auto const item = self.lock()) {
                item->acknowledgeAnswered(id, state, response);
            }
        });
    {
        MutexGuard guard(m_jobsLock);
        m_pendingAcks[id] = handler;
    }
    m_logger << LogLevel::Info << m_description << " Sent job acknowledge (uuid : " << id << "| ackCode : " << text;
    if (!sendRequest(request, handler)) {
        MutexGuard guard(m_jobsLock);
        m_pendingAcks.erase(id);
    }
}

bool JobItem::isAcknowledgeSuccess(qel::rsi::client::RequestState const& state,
                                   qel::rsi::client::Response const& response) const {
    std::int16_t const status = response.getStatus();
    if (state.value == qel::rsi::client::RequestStateSucceeded && (status == HTTP_OK || status == HTTP_CREATED)) {
        m_logger << LogLevel::Info << m_description << " Job acknowledge succeededed";
        return true;
    }
    m_logger << LogLevel::Error << m_description << " Job acknowledge failed with state " << status;
    return false;
}

void JobItem::acknowledgeAnswered(std::string const& id, qel::rsi::client::RequestState const& state,
                                  qel::rsi::client::Response const& response) {
    bool const succeeded = isAcknowledgeSuccess(state, response);
    std::shared_ptr<RSIResponseHandler> answered;  // released outside the lock
    {
        MutexGuard guard(m_jobsLock);
        auto const pending = m_pendingAcks.find(id);
        if (pending != m_pendingAcks.end()) {
            answered = std::move(pending->second);
            m_pendingAcks.erase(pending);
        }
        if (succeeded) {
            m_confirmedJobs.insert(id);
        }
    }
    if (!succeeded) {
        // Not remembered: the job is taken again when the backend lists it again.
        m_logger << LogLevel::Warning << m_description << " Job " << id
                 << " will be handled again when the backend lists it again";
    }
}

void JobItem::handleResponse(qel::rsi::client::RequestState const& state, qel::rsi::client::Response const& response) {
    if (response.getId() != ACKNOWLEDGE_REQUEST_ID) {
        SubscriptionBaseItem::handleResponse(state, response);
        subscribeElement();
        return;
    }
    // Acknowledgements are answered through their own handlers; this one knows no job.
    isAcknowledgeSuccess(state, response);
}

void JobItem::subscribeElement() {
    confirmElementWithoutRequest();
}

void JobItem::unsubscribeElement() {
    setIsSubscribed(SubscriptionIndex::ELEMENT, false);
}

}  // namespace qel::onlineservices::framework::core
