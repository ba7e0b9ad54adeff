#include "subscriptions/SubscriptionManager.h"

#include "core/ConditionRetryRequest.h"
#include "subscriptions/RSISubscriptionCallback.h"
#include "subscriptions/SubscriptionCollector.h"

#include <atomic>
#include <fstream>
#include <limits>
#include <utility>

namespace qel::onlineservices::framework::core {

using qel::common::logging::LogLevel;
using qel::common::system::MutexGuard;

namespace {
std::atomic<unsigned int> g_defaultRetryIntervalMs{SubscriptionManager::NETWORKING_RETRY_INTERVAL_MS};
}  // namespace

void SubscriptionManager::setDefaultNetworkingRetryInterval(unsigned int intervalMs) {
    g_defaultRetryIntervalMs.store(intervalMs);
}

SubscriptionManager::SubscriptionManager(std::shared_ptr<FrameworkConfig> const& config,
                                         std::shared_ptr<Notifier> const& notifier,
                                         std::shared_ptr<IRSIClientWrapper> const& rsiClient)
    : m_logger(config ? config->loggerName : std::string("framework")),
      m_config(config),
      m_notifier(notifier),
      m_rsiClient(rsiClient),
      m_retryIntervalMs(g_defaultRetryIntervalMs.load()) {}

SubscriptionManager::~SubscriptionManager() {
    std::unique_ptr<RetryRequestThread> retryThread;
    std::unique_ptr<RetryRequestThread> retiredThread;
    {
        MutexGuard guard(m_networkingLock);
        retryThread.swap(m_retryThread);
        retiredThread.swap(m_retiredRetryThread);
    }
    retryThread.reset();  // joins before the members its tries use go away
    retiredThread.reset();
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

// ---- networking ----

namespace {

using v1::qel::networking::api::definitions::ResultCodes_e;

// Set on a networking retry thread, so that a replacement asked for from there is not joined there.
thread_local bool t_onRetryThread = false;

}  // namespace

void SubscriptionManager::setNetworkingProxy(std::shared_ptr<NetworkingProxy> const& proxy) {
    MutexGuard guard(m_networkingLock);
    m_networkingProxy = proxy;
}

void SubscriptionManager::setNetworkingRetryInterval(unsigned int intervalMs) {
    MutexGuard guard(m_networkingLock);
    m_retryIntervalMs = intervalMs;
}

bool SubscriptionManager::isNetworkingRetryWaiting() const {
    MutexGuard guard(m_networkingLock);
    return m_retryThread && m_retryThread->isWaiting();
}

std::shared_ptr<SubscriptionManager::NetworkingProxy> SubscriptionManager::networkingProxy() const {
    MutexGuard guard(m_networkingLock);
    return m_networkingProxy;
}

std::vector<std::string> SubscriptionManager::serviceIds() const {
    std::vector<std::string> ids;
    MutexGuard guard(m_registryLock);
    for (auto const& entry : m_services) {
        ids.push_back(entry.first);
    }
    return ids;
}

void SubscriptionManager::connectNetworking(std::shared_ptr<IUpdateConditionCallback> const& callback) {
    if (m_config && m_config->skipNetworkingRegistration) {
        m_logger << LogLevel::Warning << "Skipping connection to networking!";
        if (callback) {
            callback->notify(true);
        }
        return;
    }
    auto request = std::make_unique<ConditionRetryRequest>(
        [this](unsigned int tryNumber) {
            t_onRetryThread = true;
            return tryConnectNetworking(tryNumber);
        },
        callback);
    unsigned int intervalMs = NETWORKING_RETRY_INTERVAL_MS;
    {
        MutexGuard guard(m_networkingLock);
        if (m_networkingEnded) {
            m_logger << LogLevel::Info << "connectNetworking after shutdown ignored";
            return;
        }
        intervalMs = m_retryIntervalMs;
    }
    auto thread = std::make_unique<RetryRequestThread>(std::move(request), intervalMs, 0);
    std::unique_ptr<RetryRequestThread> replaced;
    std::unique_ptr<RetryRequestThread> retired;
    {
        MutexGuard guard(m_networkingLock);
        replaced = std::exchange(m_retryThread, std::move(thread));
        if (t_onRetryThread) {
            // A thread cannot join itself: keep it until the next replacement or the destructor.
            retired = std::exchange(m_retiredRetryThread, std::move(replaced));
        }
    }
    // Joined outside the lock: a try in progress may need it.
    replaced.reset();
    retired.reset();
}

bool SubscriptionManager::tryConnectNetworking(unsigned int tryNumber) {
    m_logger << LogLevel::Info << "getInternetAccess Try " << tryNumber;
    auto const proxy = networkingProxy();
    if (!proxy) {
        m_logger << LogLevel::Warning << "Networking API: proxy not known";
        return false;
    }
    // Every service again on every try: access is not remembered.
    for (auto const& serviceId : serviceIds()) {
        if (!requestAccess(*proxy, serviceId)) {
            return false;
        }
    }
    return true;
}

bool SubscriptionManager::requestAccess(NetworkingProxy& proxy, std::string const& serviceId) {
    auto const callStatus = std::make_shared<CommonAPI::CallStatus>(CommonAPI::CallStatus::UNKNOWN);
    auto const result = std::make_shared<ResultCodes_e>(ResultCodes_e::UNKNOWN_ERROR);
    auto const ipv4 = std::make_shared<ClientData_s>();
    auto const ipv6 = std::make_shared<ClientData_s>();
    proxy.getInternetAccess(serviceId, *callStatus, *ipv4, *ipv6, *result, nullptr);
    if (*callStatus != CommonAPI::CallStatus::SUCCESS) {
        m_logger << LogLevel::Warning << "Networking API: request for internet for service " << serviceId
                 << " not successful, CallStatus " << static_cast<std::int32_t>(*callStatus);
        return false;
    }
    if (*result != ResultCodes_e::SUCCESS) {
        m_logger << LogLevel::Warning << "Networking API: request for internet for service " << serviceId
                 << " not successful, ResultCode " << static_cast<std::int32_t>(*result);
        return false;
    }
    if (ipv4->getAddress().empty() && ipv6->getAddress().empty()) {
        m_logger << LogLevel::Error
                 << "Networking API: request for internet successful, but empty data received. This should not happen.";
        m_logger << LogLevel::Info << "Trying to read IPs for " << serviceId
                 << " from temporary files. This is a workaround for a commonAPI Bug, which leads to successful "
                    "request of getInternetAcces, but doesnt provide any data";
        readNetworkingFromFile("/tmp/serviceip/" + serviceId + ".ipv4", ipv4);
        readNetworkingFromFile("/tmp/serviceip/" + serviceId + ".ipv6", ipv6);
    }
    m_logger << LogLevel::Info << "Networking API: connection request for service " << serviceId << " successful: ";
    m_logger << LogLevel::Info << "(ipv4: " << ipv4->getAddress() << " | prefix: " << ipv4->getPrefix()
             << " | name: " << ipv4->getName() << ")";
    m_logger << LogLevel::Info << "(ipv6: " << ipv6->getAddress() << " | prefix: " << ipv6->getPrefix()
             << " | name: " << ipv6->getName() << ")";
    if (m_notifier) {
        m_notifier->notifyNetworkInterface(serviceId, ipv4, ipv6);
    }
    return true;
}

bool SubscriptionManager::readNetworkingFromFile(std::string const& path, std::shared_ptr<ClientData_s> const& data) {
    std::string word;
    {
        std::ifstream file(path);
        file >> word;
    }
    if (word.empty()) {
        m_logger << LogLevel::Info << "IP from " << path << " could not be read or is empty!";
        return false;
    }
    m_logger << LogLevel::Info << "Read IP: " << word << " from " << path;
    if (data) {
        data->setAddress(word);
    }
    return true;
}

void SubscriptionManager::stopRetrying(char const* reason) {
    MutexGuard guard(m_networkingLock);
    if (m_retryThread) {
        m_logger << LogLevel::Info << reason;
        m_retryThread->requestStop();  // signals only; never waits for a try
    }
}

void SubscriptionManager::disconnectNetworking(std::shared_ptr<IUpdateConditionCallback> const& callback) {
    auto const answer = [&callback](bool connected) {
        if (callback) {
            callback->notify(connected);
        }
    };
    if (m_config && m_config->skipNetworkingRegistration) {
        m_logger << LogLevel::Warning << "Skipping disconnection to networking!";
        answer(false);
        return;
    }
    auto const proxy = networkingProxy();
    if (!proxy) {
        m_logger << LogLevel::Error << "disconnectNetworking(): no proxy";
        answer(true);
        return;
    }
    stopRetrying("disconnectNetworking request received. Aborting connecting to Networking.");
    for (auto const& serviceId : serviceIds()) {
        m_logger << LogLevel::Info << "Networking API: dropInternetAccess for service " << serviceId;
        // Fire and forget: the future is dropped without waiting.
        proxy->dropInternetAccessAsync(serviceId, nullptr, nullptr);
    }
    answer(false);
}

void SubscriptionManager::requestShutdown() {
    stopRetrying("Shutdown request received. Aborting connecting to Networking.");
}

void SubscriptionManager::endNetworking() {
    std::unique_ptr<RetryRequestThread> retryThread;
    std::unique_ptr<RetryRequestThread> retiredThread;
    {
        MutexGuard guard(m_networkingLock);
        m_networkingEnded = true;
        if (t_onRetryThread) {
            return;  // the destructor, on another thread, joins it
        }
        retryThread.swap(m_retryThread);
        retiredThread.swap(m_retiredRetryThread);
    }
    retryThread.reset();  // waits for a try or a listener call in progress
    retiredThread.reset();
    if (networkingProxy() && !(m_config && m_config->skipNetworkingRegistration)) {
        disconnectNetworking(nullptr);
    }
}

}  // namespace qel::onlineservices::framework::core
