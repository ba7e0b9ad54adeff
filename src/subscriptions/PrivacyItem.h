// Watches the privacy setup for the privacy group named like one of the application's services.
//
// Contract: every resource event that contains the group tells the privacy listeners, whether or
// not anything changed; the record says that the group changed, not what it holds. The element
// needs no subscription of its own: finding the group confirms the item.
#pragma once

#include "subscriptions/SubscriptionBaseItem.h"

#include <onlineservices/framework/PrivacySettingsObject.h>

#include <memory>
#include <string>

namespace qel::onlineservices::framework::core {

class PrivacyItem : public SubscriptionBaseItem {
public:
    static inline std::string const SERVICE = "privacysetup";
    static inline std::string const RESSOURCE = "privacyGroups";
    static inline std::string const DESCRIPTION_NAME = "Privacy Setup";

    PrivacyItem(qel::common::logging::Logger const& logger, std::shared_ptr<Notifier> const& notifier,
                std::shared_ptr<IRSIClientWrapper> const& rsiClientWrapper, std::string const& serviceId);

    std::string const& getServiceId() const { return m_serviceId; }
    std::shared_ptr<framework::dataitems::PrivacySettingsObject> getData() const;

    void processData(Ref const& element) override;
    void subscribeElement() override;
    void unsubscribeElement() override;

private:
    std::string const m_serviceId;
    mutable qel::common::system::Mutex m_dataLock;
    std::shared_ptr<framework::dataitems::PrivacySettingsObject> m_data;  // guarded by m_dataLock
};

}  // namespace qel::onlineservices::framework::core
