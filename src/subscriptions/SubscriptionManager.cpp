#include "subscriptions/SubscriptionManager.h"

#include "subscriptions/RSISubscriptionCallback.h"
#include "subscriptions/SubscriptionCollector.h"

#include <limits>
#include <utility>

namespace qel::onlineservices::framework::core {

using qel::common::logging::LogLevel;
using qel::common::system::MutexGuard;

SubscriptionManager::SubscriptionManager(std::shared_ptr<FrameworkConfig> const& config,
                                         std::shared_ptr<Notifier> const& notifier,
                                         std::shared_ptr<IRSIClientWrapper> const& rsiClient)
    : m_logger(config ? config->loggerName : std::string("framework")),
      m_config(config),
      m_notifier(notifier),
      m_rsiClient(rsiClient) {}

SubscriptionManager::~SubscriptionManager() {
    shutdown();
}

void SubscriptionManager::remember(std::shared_ptr<SubscriptionBaseItem> const& item) {
    MutexGuard guard(m_registryLock);
    for (auto const& known : m_knownItems) {
        if (!known.owner_before(item) && !item.owner_before(known)) {
            return;
        }
    }
    m_knownItems.push_back(item);
}

void SubscriptionManager::shutdown() {
    std::vector<std::weak_ptr<SubscriptionBaseItem>> known;
    {
        MutexGuard guard(m_registryLock);
        known.swap(m_knownItems);
    }
    for (auto const& weakItem : known) {
        if (auto const item = weakItem.lock()) {
            item->shutdown();
        }
    }
}

template <typename Call>
void SubscriptionManager::forEachItem(Items const& items, std::shared_ptr<IUpdateConditionCallback> const& callback,
                                      bool expected, Call const& call) {
    if (items.empty()) {
        if (callback) {
            callback->notify(expected);
        }
        return;
    }
    if (items.size() > std::numeric_limits<std::uint16_t>::max()) {
        m_logger << LogLevel::Error << "Too many subscription items in one call: " << items.size();
        if (callback) {
            callback->notify(!expected);
        }
        return;
    }
    auto const collector =
        std::make_shared<SubscriptionCollector>(callback, expected, static_cast<std::uint16_t>(items.size()));
    RSISubscriptionCallback const itemCallback([collector](bool result) { collector->fold(result); });
    for (auto const& item : items) {
        if (item) {
            remember(item);
            call(*item, itemCallback);
        } else {
            m_logger << LogLevel::Error << "Empty subscription item skipped";
            collector->fold(false);  // neither subscribed nor subscribable
        }
    }
}

void SubscriptionManager::subscribe(Items const& items, std::shared_ptr<IUpdateConditionCallback> const& callback) {
    forEachItem(items, callback, true,
                [](SubscriptionBaseItem& item, RSISubscriptionCallback const& cb) { item.subscribe(cb); });
}

void SubscriptionManager::unsubscribe(Items const& items, std::shared_ptr<IUpdateConditionCallback> const& callback) {
    forEachItem(items, callback, false,
                [](SubscriptionBaseItem& item, RSISubscriptionCallback const& cb) { item.unsubscribe(cb); });
}

bool SubscriptionManager::isAnyServiceDisabled() const {
    MutexGuard guard(m_registryLock);
    for (auto const& [serviceId, item] : m_services) {
        if (item && item->hasDisableReasons()) {
            return true;
        }
    }
    return false;
}

void SubscriptionManager::addService(std::string const& serviceId, std::shared_ptr<ServiceItem> item) {
    if (item) {
        remember(item);
    }
    MutexGuard guard(m_registryLock);
    m_services[serviceId] = std::move(item);
}

void SubscriptionManager::addKVSItem(std::string const& key, std::shared_ptr<KVSItem> const& item) {
    if (item) {
        remember(item);
    }
    MutexGuard guard(m_registryLock);
    m_kvsItems[key] = item;
}

KVSUpdateStatus SubscriptionManager::updateKVSItem(std::string const& key, std::string const& value) {
    std::shared_ptr<KVSItem> item;
    {
        MutexGuard guard(m_registryLock);
        auto const found = m_kvsItems.find(key);
        if (found != m_kvsItems.end()) {
            item = found->second;
        }
    }
    if (!item) {
        m_logger << LogLevel::Error << "No KVS item with key <" << key << "> existing. Ignoring call.";
        return KVS_ITEM_NOT_FOUND;
    }
    return item->update(value);
}

}  // namespace qel::onlineservices::framework::core
