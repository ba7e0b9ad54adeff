#include "subscriptions/TokenItem.h"

#include "rsi/RequestState.h"

namespace qel::onlineservices::framework::core {

using qel::common::logging::LogLevel;
using qel::common::system::MutexGuard;
using dataitems::AccessTokenObject;

TokenItem::TokenItem(qel::common::logging::Logger const& logger, std::shared_ptr<Notifier> const& notifier,
                     std::shared_ptr<IRSIClientWrapper> const& rsiClientWrapper, std::string const& serviceId)
    : SubscriptionBaseItem(logger, notifier, rsiClientWrapper), m_serviceId(serviceId) {
    describe(serviceId, SERVICE, RESSOURCE, {}, DESCRIPTION_NAME, "tok");
}

std::shared_ptr<AccessTokenObject> TokenItem::getData() const {
    MutexGuard guard(m_dataLock);
    return m_data;
}

void TokenItem::subscribeResource() {
    // Only the element is subscribed; without a URI yet, `handleURI` subscribes later.
    setIsSubscribed(SubscriptionIndex::RESOURCE, true);
    bool hasUri = false;
    {
        MutexGuard guard(m_dataLock);
        hasUri = !m_tokenUri.empty();
    }
    if (hasUri) {
        subscribeElement();
    }
}

void TokenItem::unsubscribeResource() {
    setIsSubscribed(SubscriptionIndex::RESOURCE, false);
}

void TokenItem::handleURI(std::string const& uri) {
    if (uri.empty()) {
        m_logger << LogLevel::Warning << m_description << " Empty token URI received!";
        return;
    }
    if (!takeTokenUri(uri)) {
        m_logger << LogLevel::Info << m_description << " Token URI already known: " << uri;
        return;
    }
    setElement(elementOf(uri));
    m_logger << LogLevel::Info << m_description << " Element set: " << getElement();
    m_logger << LogLevel::Info << m_description << " Received Token URI!";
    if (!isResourceSubscribed()) {
        return;  // `subscribeResource` subscribes once asked to
    }
    m_logger << LogLevel::Info << m_description << " Update Token URI and resubscribe!";
    unsubscribeElement();
    subscribeElement();
}

bool TokenItem::takeTokenUri(std::string const& uri) {
    MutexGuard guard(m_dataLock);
    if (uri == m_tokenUri) {
        return false;
    }
    m_tokenUri = uri;
    return true;
}

std::string TokenItem::elementOf(std::string const& uri) {
    std::string const rest = uri.substr(1);  // the leading "/"
    auto const slash = rest.rfind('/');
    return slash == std::string::npos ? rest : rest.substr(slash + 1);
}

void TokenItem::handleEventElement(std::shared_ptr<Value> const& value) {
    Ref const data = elementData(Ref(value.get()));
    if (data("token").asString().empty()) {
        m_logger << LogLevel::Info << m_description
                 << " Token event received, but no valid (non-empty) token contained. Waiting for valid token...";
        return;
    }
    processData(data);
    m_logger << LogLevel::Info << m_description << " Valid (non-empty) token received";
    setIsSubscribed(SubscriptionIndex::ELEMENT, true);
}

void TokenItem::processData(Ref const& element) {
    auto const record = std::make_shared<AccessTokenObject>();
    record->deserialize(element.get());
    {
        MutexGuard guard(m_dataLock);
        m_data = record;
    }
    if (m_notifier) {
        m_notifier->notifyAccessToken(m_serviceId, record);
    }
}

void TokenItem::handleResponse(qel::rsi::client::RequestState const& state,
                               qel::rsi::client::Response const& response) {
    if (static_cast<SubscriptionIndex>(response.getId()) != SubscriptionIndex::ELEMENT) {
        SubscriptionBaseItem::handleResponse(state, response);
        return;
    }
    // The element counts as subscribed only with a valid token.
    if (state.value != qel::rsi::client::RequestStateSucceeded) {
        m_logger << LogLevel::Info << m_description << " Token Element Subscription failed with state "
                 << response.getStatus();
        forgetSubscription(SubscriptionIndex::ELEMENT);
    } else {
        m_logger << LogLevel::Info << m_description
                 << " Token Element Subscription successful, waiting for event with valid token";
    }
}

}  // namespace qel::onlineservices::framework::core
