// Watches the backend's service list for the entry of one of the application's services.
//
// Contract: every accepted entry reaches the service-data listeners; its base URL and disable
// reasons only when they changed; its access-token URI goes to the token handler. An entry named
// for another service is refused and the previous one kept. Once the entry was found, its
// disappearance is reported once as the disable reason "missingServicelistEntry" until it
// returns. A malformed list (no array, or an entry that is no object with an id) that lacks the
// entry is logged and dropped, so it is never taken for a list the entry has left. The element
// needs no subscription of its own: it is confirmed without a request.
#pragma once

#include "rsi/IURIHandler.h"
#include "subscriptions/SubscriptionBaseItem.h"

#include <onlineservices/framework/ServiceObject.h>

#include <atomic>
#include <memory>
#include <string>

namespace qel::onlineservices::framework::core {

class ServiceItem : public SubscriptionBaseItem {
public:
    static inline std::string const SERVICE = "servicemanagement";
    static inline std::string const RESSOURCE = "services";
    static inline std::string const DESCRIPTION_NAME = "Service Management";
    static inline std::string const MISSING_ENTRY_REASON = "missingServicelistEntry";
    static inline std::string const HOST_SYSTEM = "005F";

    ServiceItem(qel::common::logging::Logger const& logger, std::shared_ptr<Notifier> const& notifier,
                std::shared_ptr<IRSIClientWrapper> const& rsiClientWrapper, std::string const& serviceId);

    std::string const& getServiceId() const { return m_serviceId; }
    std::shared_ptr<framework::dataitems::ServiceObject> getData() const;
    bool hasDisableReasons() const { return m_hasDisableReasons.load(); }
    // Held strongly: the token URI must reach the token item for as long as this item lives.
    void setTokenHandler(std::shared_ptr<IURIHandler> const& handler);

    void processData(Ref const& element) override;
    void handleEventResource(SubscriptionIndex index, std::shared_ptr<Value> const& value) override;
    void subscribeElement() override;
    void unsubscribeElement() override;

    // Compares the base URLs (the first entry always counts as changed).
    static bool uriEqual(std::shared_ptr<framework::dataitems::ServiceObject> const& previous,
                         std::shared_ptr<framework::dataitems::ServiceObject> const& current);
    // Compares the disable reasons regardless of their order.
    static bool disableReasonEqual(std::shared_ptr<framework::dataitems::ServiceObject> const& previous,
                                   std::shared_ptr<framework::dataitems::ServiceObject> const& current);

private:
    void passTokenUri(framework::dataitems::ServiceObject const& record);
    // The event's "data" is an array of objects, each with a non-empty string "id".
    bool isWellFormedList(Ref const& value) const;

    std::string const m_serviceId;
    mutable qel::common::system::Mutex m_dataLock;
    std::shared_ptr<framework::dataitems::ServiceObject> m_data;  // guarded by m_dataLock
    std::atomic<bool> m_hasDisableReasons{false};
    std::shared_ptr<IURIHandler> m_tokenHandler;  // guarded by m_dataLock
    bool m_missingEntryReported = false;          // queue thread only
};

}  // namespace qel::onlineservices::framework::core
