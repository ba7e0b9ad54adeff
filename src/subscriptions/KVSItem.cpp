#include "subscriptions/KVSItem.h"

#include "rsi/RequestState.h"
#include "rsi/RequestType.h"

#include <utility>

namespace qel::onlineservices::framework::core {

using qel::common::logging::LogLevel;
using qel::common::system::MutexGuard;
using qel::rsi::client::Request;
using qel::rsi::client::RequestState;
using qel::rsi::client::Response;
using dataitems::KVSItemObject;

namespace {
constexpr std::int16_t HTTP_OK = 200;
constexpr std::int16_t HTTP_GATEWAY_TIMEOUT = 504;
constexpr char const* JSON_MEDIA_TYPE = "application/json";
}  // namespace

KVSItem::KVSItem(qel::common::logging::Logger const& logger, std::shared_ptr<Notifier> const& notifier,
                 std::shared_ptr<IRSIClientWrapper> const& rsiClientWrapper, std::string const& key)
    : SubscriptionBaseItem(logger, notifier, rsiClientWrapper), m_serviceId(key) {
    describe(key, SERVICE, RESSOURCE, {}, DESCRIPTION_NAME, "kvs");
}

std::shared_ptr<KVSItemObject> KVSItem::getData() const {
    MutexGuard guard(m_dataLock);
    return m_data;
}

void KVSItem::handleURI(std::string const& uuid) {
    if (uuid.empty()) {
        m_logger << LogLevel::Warning << m_description << " Empty UUID received!";
        return;
    }
    if (uuid == getElement()) {
        return;
    }
    setElement(uuid);
    m_logger << LogLevel::Info << m_description << " Element set: " << uuid;
}

void KVSItem::subscribeResource() {
    setIsSubscribed(SubscriptionIndex::RESOURCE, true);
    subscribeElement();
}

void KVSItem::unsubscribeResource() {
    setIsSubscribed(SubscriptionIndex::RESOURCE, false);
}

std::shared_ptr<Request> KVSItem::makeRequest(std::uint32_t type, std::uint32_t requestId) const {
    auto const request = std::make_shared<Request>();
    request->type = type;
    request->requestId = requestId;
    request->service = m_service;
    request->resource = m_resource;
    request->element = getElement();
    request->contentType = JSON_MEDIA_TYPE;
    return request;
}

void KVSItem::handleEventElement(std::shared_ptr<Value> const& value) {
    // Taken as it came: an array here is no item event, whatever the token item puts up with.
    Ref const data = Ref(value.get())("data");
    if (data("upToDate").asBoolean()) {
        m_logger << LogLevel::Info << m_description << " Received event with upToDate true, notifying clients";
        processData(data);
    } else if (data("newJobFromBackend").asBoolean()) {
        m_logger << LogLevel::Info << m_description << " Received newJobFromBackend true. Sending GET request";
        requestRead();
    } else {
        m_logger << LogLevel::Info << m_description
                 << " Received event without newJobFromBackend/upToDate, no reaction";
    }
}

void KVSItem::requestRead() {
    sendRequest(makeRequest(qel::rsi::client::RequestTypeGetResource, READ_REQUEST_ID));
}

void KVSItem::processData(Ref const& element) {
    auto const record = std::make_shared<KVSItemObject>();
    record->deserialize(element.get());
    {
        MutexGuard guard(m_dataLock);
        m_data = record;
    }
    m_logger << LogLevel::Info << "Received data for KVS Items: ";
    m_logger << LogLevel::Info << "ID:" << record->id;
    m_logger << LogLevel::Info << "Name: " << record->name;
    m_logger << LogLevel::Info << "Owner: " << record->owner;
    m_logger << LogLevel::Info << "UpToDate: " << record->upToDate;
    m_logger << LogLevel::Info << "URI: " << record->uri;
    m_logger << LogLevel::Info << "Value: " << record->value;
    if (m_notifier) {
        m_notifier->notifyKVSItem(m_serviceId, record->value);
    }
}

KVSUpdateStatus KVSItem::update(std::string const& value) {
    MutexGuard call(m_updateCallMutex);
    m_value = value;
    m_logger << LogLevel::Info << m_description << " Update KVS item. Value: " << value;
    if (!isResourceSubscribed()) {
        m_logger << LogLevel::Warning << "Update postponed until service is ready!";
        MutexGuard guard(m_updateMutex);
        m_updateState = KVS_SERVICE_UNAVAILABLE;
        return m_updateState;
    }
    auto body = std::make_unique<qel::dataformats::data::Object>();
    body->setNew("value", std::make_unique<qel::dataformats::data::String>(value));
    auto const request = makeRequest(qel::rsi::client::RequestTypePostElement, UPDATE_REQUEST_ID);
    request->data = std::move(body);
    std::uint64_t sequence = 0;
    std::shared_ptr<Request> superseded;
    {
        MutexGuard guard(m_updateMutex);
        sequence = ++m_updateSequence;
        m_updateAnswered = false;
        superseded = std::exchange(m_unansweredUpdate, request);
    }
    if (superseded && m_rsiClientWrapper) {
        m_logger << LogLevel::Info << m_description << " Giving up the earlier update, still unanswered";
        m_rsiClientWrapper->cancelRequest(superseded);
    }
    if (!sendUpdate(request, sequence)) {
        MutexGuard guard(m_updateMutex);
        m_updateState = UPDATE_REQUEST_FAILED;
        return m_updateState;
    }

    MutexGuard guard(m_updateMutex);
    if (!m_updateCondition.wait(m_updateMutex, UPDATE_REQUEST_TIMEOUT_MS, [this] { return m_updateAnswered; })) {
        m_logger << LogLevel::Error << "Update request timeout after " << UPDATE_REQUEST_TIMEOUT_MS << "ms";
        m_updateState = UPDATE_REQUEST_FAILED;
    }
    return m_updateState;
}

bool KVSItem::sendUpdate(std::shared_ptr<Request> const& request, std::uint64_t sequence) {
    // One handler per update, so that its answer names the update it belongs to.
    std::weak_ptr<KVSItem> const self = std::static_pointer_cast<KVSItem>(weak_from_this().lock());
    m_updateHandler = std::make_shared<RSIResponseHandler>(
        [self, sequence](RequestState const& state, Response const& response) {
            if (auto const item = self.lock()) {
                item->handleUpdateResponse(sequence, state, response);
            }
        });
    return sendRequest(request, m_updateHandler);
}

void KVSItem::handleResponse(RequestState const& state, Response const& response) {
    switch (response.getId()) {
        case UPDATE_REQUEST_ID: {
            // Our own updates are answered through their own handlers; an answer handed to the item
            // itself can only be taken for the newest update.
            std::uint64_t newest = 0;
            {
                MutexGuard guard(m_updateMutex);
                newest = m_updateSequence;
            }
            handleUpdateResponse(newest, state, response);
            return;
        }
        case READ_REQUEST_ID: handleReadResponse(response); return;
        default: SubscriptionBaseItem::handleResponse(state, response); return;
    }
}

void KVSItem::handleUpdateResponse(std::uint64_t sequence, RequestState const& state, Response const& response) {
    std::int16_t const status = response.getStatus();
    bool const succeeded = state.value == qel::rsi::client::RequestStateSucceeded;
    bool isNewest = false;
    {
        MutexGuard guard(m_updateMutex);
        isNewest = sequence == m_updateSequence;
        if (isNewest) {
            m_updateState = succeeded ? UPDATE_OK : UPDATE_REQUEST_FAILED;
            m_updateAnswered = true;
            m_unansweredUpdate.reset();
        }
    }
    if (!isNewest) {
        m_logger << LogLevel::Info << m_description << " Answer of an earlier update ignored: " << status;
        return;
    }
    if (succeeded) {
        m_logger << LogLevel::Info << m_description << " Update KVS item succeeded.";
    } else {
        m_logger << LogLevel::Error << m_description << " Update KVS item failed: " << status;
    }
    m_updateCondition.broadcast();
}

void KVSItem::handleReadResponse(Response const& response) {
    std::int16_t const status = response.getStatus();
    if (status == HTTP_GATEWAY_TIMEOUT) {
        m_logger << LogLevel::Info << m_description << " HTTP 504 received, waiting for notification...";
        return;
    }
    if (status != HTTP_OK) {
        m_logger << LogLevel::Error << m_description << " Unknown return code: " << status;
        return;
    }
    // Answers arrive on the wrapper's thread; listeners hear them on the queue thread.
    std::shared_ptr<Value const> const answer = response.shareData();
    queueWork([this, answer] { processData(ownEntry(Ref(answer.get())("data"))); });
}

KVSItem::Ref KVSItem::ownEntry(Ref const& data) const {
    // The read is of the whole resource: a backend that lists every item answers with an array.
    std::string const element = getElement();
    unsigned long const count = data.getArraySize();
    for (unsigned long i = 0; i < count; ++i) {
        if (data[i]("id").asString() == element) {
            return data[i];
        }
    }
    return data;
}

}  // namespace qel::onlineservices::framework::core
