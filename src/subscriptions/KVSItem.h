// Mirrors one item of the backend's key-value storage for the application.
//
// Contract: subscribes to the item's element alone, under the id known at the time (ids come
// through `handleURI` and are used from the next request on). An event saying the item is up to
// date reaches the KVS listeners as (key, value) on the item's queue thread; one saying the backend has a new value makes the item read it first. `update` writes a
// value from the application's thread and blocks until the backend answered, at most
// `UPDATE_REQUEST_TIMEOUT_MS`; before the item is subscribed it returns KVS_SERVICE_UNAVAILABLE
// without sending anything. Calls of `update` are served one at a time, each waiting for its own
// answer: a late answer of an earlier update completes nothing. A newer `update` gives up the
// earlier one if it is still unanswered (the wrapper may be retrying it), so that an older value
// never overwrites a newer one at the backend.
#pragma once

#include "common/CondVar.h"
#include "common/Mutex.h"
#include "rsi/IURIHandler.h"
#include "rsi/RSIResponseHandler.h"
#include "subscriptions/SubscriptionBaseItem.h"

#include <onlineservices/framework/KVSItemObject.h>
#include <onlineservices/framework/KVSUpdateStatus.h>

#include <cstdint>
#include <memory>
#include <string>

namespace qel::onlineservices::framework::core {

class KVSItem : public SubscriptionBaseItem, public IURIHandler {
public:
    static inline std::string const SERVICE = "onlinekvs";
    static inline std::string const RESSOURCE = "items";
    static inline std::string const DESCRIPTION_NAME = "Key-Value-Storage";
    static constexpr std::uint32_t UPDATE_REQUEST_TIMEOUT_MS = 3000;
    static constexpr std::uint32_t READ_REQUEST_ID = 4;
    static constexpr std::uint32_t UPDATE_REQUEST_ID = 6;

    KVSItem(qel::common::logging::Logger const& logger, std::shared_ptr<Notifier> const& notifier,
            std::shared_ptr<IRSIClientWrapper> const& rsiClientWrapper, std::string const& key);

    std::string const& getServiceId() const { return m_serviceId; }
    std::shared_ptr<framework::dataitems::KVSItemObject> getData() const;

    KVSUpdateStatus update(std::string const& value);
    void handleURI(std::string const& uuid) override;

    void subscribeResource() override;
    void unsubscribeResource() override;
    void processData(Ref const& element) override;
    void handleEventElement(std::shared_ptr<Value> const& value) override;
    using SubscriptionBaseItem::handleResponse;
    void handleResponse(qel::rsi::client::RequestState const& state,
                        qel::rsi::client::Response const& response) override;

private:
    std::shared_ptr<qel::rsi::client::Request> makeRequest(std::uint32_t type, std::uint32_t requestId) const;
    void requestRead();
    // Sends update number `sequence`; false when it could not be handed to the wrapper.
    bool sendUpdate(std::shared_ptr<qel::rsi::client::Request> const& request, std::uint64_t sequence);
    void handleUpdateResponse(std::uint64_t sequence, qel::rsi::client::RequestState const& state,
                              qel::rsi::client::Response const& response);
    void handleReadResponse(qel::rsi::client::Response const& response);
    // This item's entry when the read answer lists several, else the answer's data as it came.
    Ref ownEntry(Ref const& data) const;

    std::string const m_serviceId;
    mutable qel::common::system::Mutex m_dataLock;
    std::shared_ptr<framework::dataitems::KVSItemObject> m_data;  // guarded by m_dataLock
    // Serialises `update`; only `update` takes it, so sending under it cannot deadlock.
    qel::common::system::Mutex m_updateCallMutex;
    std::string m_value;  // guarded by m_updateCallMutex
    // Keeps the way open for the answer of the newest update (the wrapper holds handlers weakly).
    std::shared_ptr<RSIResponseHandler> m_updateHandler;  // guarded by m_updateCallMutex
    qel::common::system::Mutex m_updateMutex;
    qel::common::system::CondVar m_updateCondition;
    KVSUpdateStatus m_updateState = INTERNAL_ERROR;  // guarded by m_updateMutex; no update yet
    bool m_updateAnswered = false;                   // guarded by m_updateMutex
    std::uint64_t m_updateSequence = 0;              // guarded by m_updateMutex; the newest update
    // The newest update's request until it is answered; guarded by m_updateMutex.
    std::shared_ptr<qel::rsi::client::Request> m_unansweredUpdate;
};

}  // namespace qel::onlineservices::framework::core
