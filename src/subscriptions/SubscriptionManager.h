// Subscribes and unsubscribes groups of subscription items for the condition actions, keeps the
// per-service registry of service items and forwards the application's KVS updates.
//
// Contract: one instance per client, filled by the factory before the client runs. `subscribe`
// and `unsubscribe` answer the callback once per call: true (or false for an unsubscription)
// when every item has answered so, or the first deviating answer at once; an empty list is
// answered synchronously. `updateKVSItem` blocks like `KVSItem::update`. Registry lookups copy
// the item out of the lock before calling it.
#pragma once

#include "common/Logger.h"
#include "common/Mutex.h"
#include "commonapi/networking/networkingProxy.h"
#include "config/FrameworkConfig.h"
#include "core/IUpdateConditionCallback.h"
#include "core/Notifier.h"
#include "core/RetryRequestThread.h"
#include "rsi/IRSIClientWrapper.h"
#include "subscriptions/KVSItem.h"
#include "subscriptions/ServiceItem.h"
#include "subscriptions/SubscriptionBaseItem.h"

#include <onlineservices/framework/KVSUpdateStatus.h>

#include <map>
#include <memory>
#include <string>
#include <vector>

namespace qel::onlineservices::framework::core {

class SubscriptionManager {
public:
    using Items = std::vector<std::shared_ptr<SubscriptionBaseItem>>;

    SubscriptionManager(std::shared_ptr<FrameworkConfig> const& config, std::shared_ptr<Notifier> const& notifier,
                        std::shared_ptr<IRSIClientWrapper> const& rsiClient);
    // Shuts every item down (see `shutdown`).
    ~SubscriptionManager();
    SubscriptionManager(SubscriptionManager const&) = delete;
    SubscriptionManager& operator=(SubscriptionManager const&) = delete;

    void subscribe(Items const& items, std::shared_ptr<IUpdateConditionCallback> const& callback);
    void unsubscribe(Items const& items, std::shared_ptr<IUpdateConditionCallback> const& callback);
    // True when any registered service's entry carries disable reasons.
    bool isAnyServiceDisabled() const;
    // Insert or replace the entry of the key.
    void addService(std::string const& serviceId, std::shared_ptr<ServiceItem> item);
    void addKVSItem(std::string const& key, std::shared_ptr<KVSItem> const& item);
    KVSUpdateStatus updateKVSItem(std::string const& key, std::string const& value);
    // Ends event processing of every item this manager has subscribed or registered, waiting
    // for their queue threads, so that the items' other owners release them afterwards on
    // their own threads. Idempotent; call it from the client's thread, never from a listener.
    void shutdown();

    // ---- networking: internet access for every registered service, in key order ----
    using NetworkingProxy = v1::qel::networking::api::networkingProxy<>;
    using ClientData_s = v1::qel::networking::api::definitions::ClientData_s;
    static constexpr unsigned int NETWORKING_RETRY_INTERVAL_MS = 2000;

    // Called on a CommonAPI thread once the proxy is available.
    void setNetworkingProxy(std::shared_ptr<NetworkingProxy> const& proxy);
    // Tries on a retry thread until every service has access; the callback hears true then.
    // Replaces (and joins) the retry thread of an earlier call.
    void connectNetworking(std::shared_ptr<IUpdateConditionCallback> const& callback);
    // One try for all services; false at the first refused or failed one.
    bool tryConnectNetworking(unsigned int tryNumber);
    // Reads the first word of the file into the record's address; false when there is none.
    bool readNetworkingFromFile(std::string const& path, std::shared_ptr<ClientData_s> const& data);
    // Stops the retrying and drops every service's access; the callback hears the new
    // "connected" state synchronously.
    void disconnectNetworking(std::shared_ptr<IUpdateConditionCallback> const& callback);
    // Stops the retrying; no networking call is made.
    void requestShutdown();
    // Stops the retrying, joins the retry thread (unless called on it) and gives every service's
    // access back; later `connectNetworking` calls start none. For the client's release.
    void endNetworking();
    // The wait between tries, for tests; 2000 ms unless changed.
    void setNetworkingRetryInterval(unsigned int intervalMs);
    // The wait of managers created from now on, for tests and soaks that build whole clients.
    static void setDefaultNetworkingRetryInterval(unsigned int intervalMs);
    // True while the retry thread waits for its next try (for diagnostics and tests).
    bool isNetworkingRetryWaiting() const;

private:
    void remember(std::shared_ptr<SubscriptionBaseItem> const& item);
    // Runs `call` on every item with one callback folding into a collector.
    template <typename Call>
    void forEachItem(Items const& items, std::shared_ptr<IUpdateConditionCallback> const& callback, bool expected,
                     Call const& call);

    qel::common::logging::Logger const m_logger;
    std::shared_ptr<FrameworkConfig> const m_config;
    // Kept for the networking members, which report granted addresses and reach the backend.
    std::shared_ptr<Notifier> const m_notifier;
    std::shared_ptr<IRSIClientWrapper> const m_rsiClient;
    mutable qel::common::system::Mutex m_registryLock;
    std::map<std::string, std::shared_ptr<ServiceItem>> m_services;  // guarded by m_registryLock
    std::map<std::string, std::shared_ptr<KVSItem>> m_kvsItems;      // guarded by m_registryLock
    // Every item seen, for `shutdown`; weak, as the condition actions own most of them.
    std::vector<std::weak_ptr<SubscriptionBaseItem>> m_knownItems;  // guarded by m_registryLock

    std::shared_ptr<NetworkingProxy> networkingProxy() const;
    std::vector<std::string> serviceIds() const;
    void stopRetrying(char const* reason);
    bool requestAccess(NetworkingProxy& proxy, std::string const& serviceId);

    mutable qel::common::system::Mutex m_networkingLock;
    std::shared_ptr<NetworkingProxy> m_networkingProxy;             // guarded by m_networkingLock
    unsigned int m_retryIntervalMs;                                 // guarded by m_networkingLock
    bool m_networkingEnded = false;                                 // guarded by m_networkingLock
    // A retry thread replaced from its own thread (a condition answered there asked again);
    // joined by the next replacement or the destructor.
    std::unique_ptr<RetryRequestThread> m_retiredRetryThread;  // guarded by m_networkingLock
    // Declared last: destroyed (stopped and joined) first, before the members its tries use.
    std::unique_ptr<RetryRequestThread> m_retryThread;  // guarded by m_networkingLock
};

}  // namespace qel::onlineservices::framework::core
