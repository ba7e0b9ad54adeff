// Keeps the access token of one service current.
//
// Contract: learns the URI of its token element from the service item (`handleURI`) and
// subscribes to that element alone; a new URI while subscribed moves the subscription to the new
// element. The item counts as subscribed only once an event carries a non-empty token; every
// such event reaches the listeners' `onTokenChanged`. A failed element subscription is left to
// the RSI client wrapper's retries and is not reported as a loss.
#pragma once

#include "rsi/IURIHandler.h"
#include "subscriptions/SubscriptionBaseItem.h"

#include <onlineservices/framework/AccessTokenObject.h>

#include <memory>
#include <string>

namespace qel::onlineservices::framework::core {

class TokenItem : public SubscriptionBaseItem, public IURIHandler {
public:
    static inline std::string const SERVICE = "tokenmanagement";
    static inline std::string const RESSOURCE = "accessTokens";
    static inline std::string const DESCRIPTION_NAME = "Token Management";

    TokenItem(qel::common::logging::Logger const& logger, std::shared_ptr<Notifier> const& notifier,
              std::shared_ptr<IRSIClientWrapper> const& rsiClientWrapper, std::string const& serviceId);

    std::string const& getServiceId() const { return m_serviceId; }
    std::shared_ptr<framework::dataitems::AccessTokenObject> getData() const;

    void subscribeResource() override;
    void unsubscribeResource() override;
    void handleEventElement(std::shared_ptr<Value> const& value) override;
    using SubscriptionBaseItem::handleResponse;
    void handleResponse(qel::rsi::client::RequestState const& state,
                        qel::rsi::client::Response const& response) override;
    void processData(Ref const& element) override;
    void handleURI(std::string const& uri) override;

private:
    // "/tokenmanagement/accessTokens/abc" gives "abc".
    static std::string elementOf(std::string const& uri);
    // Stores `uri`; false when it is the one already known.
    bool takeTokenUri(std::string const& uri);

    std::string const m_serviceId;
    mutable qel::common::system::Mutex m_dataLock;
    std::shared_ptr<framework::dataitems::AccessTokenObject> m_data;  // guarded by m_dataLock
    std::string m_tokenUri;                                 // guarded by m_dataLock
};

}  // namespace qel::onlineservices::framework::core
