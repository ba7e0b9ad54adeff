#include "subscriptions/PrivacyItem.h"

namespace qel::onlineservices::framework::core {

using qel::common::system::MutexGuard;
using dataitems::PrivacySettingsObject;

PrivacyItem::PrivacyItem(qel::common::logging::Logger const& logger, std::shared_ptr<Notifier> const& notifier,
                         std::shared_ptr<IRSIClientWrapper> const& rsiClientWrapper, std::string const& serviceId)
    : SubscriptionBaseItem(logger, notifier, rsiClientWrapper), m_serviceId(serviceId) {
    describe(serviceId, SERVICE, RESSOURCE, {{"name", serviceId}}, DESCRIPTION_NAME, "prv");
}

std::shared_ptr<PrivacySettingsObject> PrivacyItem::getData() const {
    MutexGuard guard(m_dataLock);
    return m_data;
}

void PrivacyItem::processData(Ref const& element) {
    auto const record = std::make_shared<PrivacySettingsObject>();
    record->deserialize(element.get());
    {
        MutexGuard guard(m_dataLock);
        m_data = record;
    }
    if (m_notifier) {
        m_notifier->notifyPrivacySettings(m_serviceId, record);
    }
}

void PrivacyItem::subscribeElement() {
    confirmElementWithoutRequest();
}

void PrivacyItem::unsubscribeElement() {
    setIsSubscribed(SubscriptionIndex::ELEMENT, false);
}

}  // namespace qel::onlineservices::framework::core
