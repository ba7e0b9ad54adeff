#include "core/Notifier.h"

#include <exception>

namespace qel::onlineservices::framework::core {

using qel::common::logging::LogLevel;
using qel::common::system::MutexGuard;

namespace {

std::string loggerName(std::shared_ptr<FrameworkConfig> const& config) {
    return (config ? config->loggerName : FrameworkSubConfig().loggerName) + ".notifier";
}

}  // namespace

Notifier::Notifier(std::shared_ptr<FrameworkConfig> const& config) : m_logger(loggerName(config)) {}

void Notifier::setListener(std::weak_ptr<IBackendJobListener> const& listener) {
    MutexGuard guard(m_mutex);
    m_backendJobListener = listener;
}

void Notifier::addListener(std::weak_ptr<IServiceDataListener> const& listener) {
    MutexGuard guard(m_mutex);
    m_serviceDataListeners.push_back(listener);
}

void Notifier::addListener(std::weak_ptr<IKVSListener> const& listener) {
    MutexGuard guard(m_mutex);
    m_kvsListeners.push_back(listener);
}

void Notifier::addListener(std::weak_ptr<IRunStateListener> const& listener) {
    MutexGuard guard(m_mutex);
    m_runStateListeners.push_back(listener);
}

void Notifier::notifyServiceData(std::string const& serviceId,
                                 std::shared_ptr<dataitems::ServiceObject> const& service) {
    m_logger << LogLevel::Info << "notifyServiceData";
    fanOut(m_serviceDataListeners, "Service Data listener expired, removing!",
           [&](IServiceDataListener& listener) { listener.onServiceDataChanged(serviceId, service); });
}

void Notifier::notifyDisableReason(std::string const& serviceId, std::vector<std::string> const& disableReasons) {
    m_logger << LogLevel::Info << "notifyDisableReasons";
    fanOut(m_serviceDataListeners, "Disable Reason listener expired, removing!",
           [&](IServiceDataListener& listener) { listener.onDisableReasonChanged(serviceId, disableReasons); });
}

void Notifier::notifyBaseURL(std::string const& serviceId, std::string const& baseUrl) {
    m_logger << LogLevel::Info << "notifyBaseUrl";
    fanOut(m_serviceDataListeners, "Base URL listener expired, removing!",
           [&](IServiceDataListener& listener) { listener.onBaseURLChanged(serviceId, baseUrl); });
}

void Notifier::notifyAccessToken(std::string const& serviceId,
                                 std::shared_ptr<dataitems::AccessTokenObject> const& token) {
    m_logger << LogLevel::Info << "notifyAccessToken";
    std::string const tokenText = token ? token->token : std::string();
    fanOut(m_serviceDataListeners, "Access Token listener expired, removing!",
           [&](IServiceDataListener& listener) { listener.onTokenChanged(serviceId, tokenText); });
}

void Notifier::notifyPrivacySettings(std::string const& serviceId,
                                     std::shared_ptr<dataitems::PrivacySettingsObject> const& privacy) {
    m_logger << LogLevel::Info << "notifyPrivacySettings";
    fanOut(m_serviceDataListeners, "Privacy Setup listener expired, removing!",
           [&](IServiceDataListener& listener) { listener.onPrivacySetupChanged(serviceId, privacy); });
}

void Notifier::notifyNetworkInterface(std::string const& serviceId, std::shared_ptr<ClientData> const& ipv4,
                                      std::shared_ptr<ClientData> const& ipv6) {
    m_logger << LogLevel::Info << "notifyNetworkInterface";
    fanOut(m_serviceDataListeners, "Networking listener expired, removing!",
           [&](IServiceDataListener& listener) { listener.onNetworkInterfaceChanged(serviceId, ipv4, ipv6); });
}

void Notifier::notifyKVSItem(std::string const& key, std::string const& value) {
    fanOut(m_kvsListeners, "KVS listener expired, removing!",
           [&](IKVSListener& listener) { listener.onKVSItemChanged(key, value); });
}

void Notifier::notifyRunState(RunState state) {
    m_logger << LogLevel::Info << "notifyRunState ";
    fanOut(m_runStateListeners, "Runstate listener expired, removing!",
           [state](IRunStateListener& listener) { listener.onRunStateChanged(state); });
}

bool Notifier::notifyBackendJob(std::shared_ptr<dataitems::JobObject> const& job, BackendJobAcknowledgeCode& ack) {
    m_logger << LogLevel::Info << "notifyBackendJob";
    // An expired job listener stays in place: the next `setListener` replaces it.
    std::shared_ptr<IBackendJobListener> listener;
    {
        MutexGuard guard(m_mutex);
        listener = m_backendJobListener.lock();
    }
    if (!listener) {
        return false;
    }
    ack = listener->onBackendJobReceived(job);
    return true;
}

template <typename Listener, typename Call>
void Notifier::fanOut(std::vector<std::weak_ptr<Listener>>& listeners, char const* expiredMessage, Call const& call) {
    // Listeners run without the lock: a listener's work may take the condition manager's
    // listener lock, whose holder in turn notifies run states here, so holding ours would
    // allow a lock-order deadlock between two threads.
    std::vector<std::shared_ptr<Listener>> live;
    {
        MutexGuard guard(m_mutex);
        live.reserve(listeners.size());
        for (auto position = listeners.begin(); position != listeners.end();) {
            if (auto listener = position->lock()) {
                live.push_back(std::move(listener));
                ++position;
            } else {
                m_logger << LogLevel::Info << expiredMessage;
                position = listeners.erase(position);
            }
        }
    }
    for (auto const& listener : live) {
        try {
            call(*listener);
        } catch (std::exception const& error) {
            m_logger << LogLevel::Error << "Listener failed: " << error.what();
        } catch (...) {
            m_logger << LogLevel::Error << "Listener failed";
        }
    }
}

}  // namespace qel::onlineservices::framework::core
