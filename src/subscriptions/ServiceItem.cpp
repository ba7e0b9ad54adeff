#include "subscriptions/ServiceItem.h"

#include <algorithm>

namespace qel::onlineservices::framework::core {

using qel::common::logging::LogLevel;
using qel::common::system::MutexGuard;
using dataitems::ServiceObject;

ServiceItem::ServiceItem(qel::common::logging::Logger const& logger, std::shared_ptr<Notifier> const& notifier,
                         std::shared_ptr<IRSIClientWrapper> const& rsiClientWrapper, std::string const& serviceId)
    : SubscriptionBaseItem(logger, notifier, rsiClientWrapper), m_serviceId(serviceId) {
    describe(serviceId, SERVICE, RESSOURCE, {{"name", serviceId}, {"serviceHostSystem", HOST_SYSTEM}},
             DESCRIPTION_NAME, "svc");
}

std::shared_ptr<ServiceObject> ServiceItem::getData() const {
    MutexGuard guard(m_dataLock);
    return m_data;
}

void ServiceItem::setTokenHandler(std::shared_ptr<IURIHandler> const& handler) {
    MutexGuard guard(m_dataLock);
    m_tokenHandler = handler;
}

void ServiceItem::handleEventResource(SubscriptionIndex /*index*/, std::shared_ptr<Value> const& value) {
    Ref const element = filterElements(Ref(value.get()));
    if (isElementSubscribed() && !element.hasObjectKey("id")) {
        // The entry was there and has left the list; only a well-formed list is believed on that.
        if (!isWellFormedList(Ref(value.get()))) {
            return;
        }
        if (!m_missingEntryReported) {
            m_missingEntryReported = true;
            if (m_notifier) {
                m_notifier->notifyDisableReason(m_serviceId, {MISSING_ENTRY_REASON});
            }
        }
        return;
    }
    m_missingEntryReported = false;
    takeElement(element);
}

bool ServiceItem::isWellFormedList(Ref const& value) const {
    Ref const data = value("data");
    if (data.kind() != Value::Kind::Array) {
        m_logger << LogLevel::Error << m_description << " Malformed service list ignored: data is no array";
        return false;
    }
    unsigned long const count = data.getArraySize();
    for (unsigned long i = 0; i < count; ++i) {
        Ref const id = data[i]("id");
        if (id.kind() != Value::Kind::String || id.asString().empty()) {
            m_logger << LogLevel::Error << m_description << " Malformed service list ignored: entry " << i
                     << " has no id";
            return false;
        }
    }
    return true;
}

void ServiceItem::processData(Ref const& element) {
    auto const previous = getData();
    auto const record = std::make_shared<ServiceObject>();
    record->deserialize(element.get());
    if (record->getServiceId() != m_serviceId) {
        m_logger << LogLevel::Error << "serviceId of event payload <" << record->getServiceId()
                 << "> does not match serviceId of subscription item <" << m_serviceId << ">";
        return;
    }
    {
        MutexGuard guard(m_dataLock);
        m_data = record;
    }
    m_hasDisableReasons.store(!record->getDisableReasons().empty());
    passTokenUri(*record);
    if (!m_notifier) {
        return;
    }
    m_notifier->notifyServiceData(m_serviceId, record);
    if (!uriEqual(previous, record)) {
        m_notifier->notifyBaseURL(m_serviceId, record->getBaseUrl());
    }
    if (!disableReasonEqual(previous, record)) {
        m_notifier->notifyDisableReason(m_serviceId, record->getDisableReasons());
    }
}

void ServiceItem::passTokenUri(ServiceObject const& record) {
    std::shared_ptr<IURIHandler> handler;
    {
        MutexGuard guard(m_dataLock);
        handler = m_tokenHandler;
    }
    if (!handler) {
        m_logger << LogLevel::Warning << m_description << " No token handler found!";
        return;
    }
    m_logger << LogLevel::Info << m_description << " Passing Token URI!";
    handler->handleURI(record.getAccessToken());
}

void ServiceItem::subscribeElement() {
    confirmElementWithoutRequest();
}

void ServiceItem::unsubscribeElement() {
    setIsSubscribed(SubscriptionIndex::ELEMENT, false);
}

bool ServiceItem::uriEqual(std::shared_ptr<ServiceObject> const& previous,
                           std::shared_ptr<ServiceObject> const& current) {
    if (!previous || !current || previous->isBaseUrlSet() != current->isBaseUrlSet()) {
        return false;
    }
    return !previous->isBaseUrlSet() || previous->getBaseUrl() == current->getBaseUrl();
}

bool ServiceItem::disableReasonEqual(std::shared_ptr<ServiceObject> const& previous,
                                     std::shared_ptr<ServiceObject> const& current) {
    if (!previous || !current || previous->isDisableReasonsSet() != current->isDisableReasonsSet()) {
        return false;
    }
    if (!previous->isDisableReasonsSet()) {
        return true;
    }
    auto const before = previous->getDisableReasons();
    auto const now = current->getDisableReasons();
    if (before.size() != now.size()) {
        return false;
    }
    return std::all_of(before.begin(), before.end(), [&now](std::string const& reason) {
        return std::find(now.begin(), now.end(), reason) != now.end();
    });
}

}  // namespace qel::onlineservices::framework::core
