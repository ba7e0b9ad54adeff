// The one place where the framework calls the application's listeners.
//
// Contract: listeners are held weakly; one that has expired is dropped, with one log line naming
// the notification that found it, the next time an event of its list comes by. Listeners run in
// registration order, on the caller's thread. The mutex guards the lists only and is released
// before any listener runs, so a listener's work may reach other locks of the framework without
// a lock-order deadlock; a listener registered during a fan-out hears the next event. A listener
// added twice is called twice. An
// exception thrown by a list listener is logged and does not keep the others from being called;
// one thrown by the backend-job listener reaches the caller of `notifyBackendJob`.
#pragma once

#include "common/Logger.h"
#include "common/Mutex.h"
#include "config/FrameworkConfig.h"

#include <onlineservices/framework/AccessTokenObject.h>
#include <onlineservices/framework/BackendJobAcknowledgeCode.h>
#include <onlineservices/framework/IBackendJobListener.h>
#include <onlineservices/framework/IKVSListener.h>
#include <onlineservices/framework/IRunStateListener.h>
#include <onlineservices/framework/IServiceDataListener.h>
#include <onlineservices/framework/JobObject.h>
#include <onlineservices/framework/PrivacySettingsObject.h>
#include <onlineservices/framework/RunState.h>
#include <onlineservices/framework/ServiceObject.h>

#include <memory>
#include <string>
#include <vector>

namespace qel::onlineservices::framework::core {

class Notifier {
public:
    using ClientData = v1::qel::networking::api::definitions::ClientData_s;

    explicit Notifier(std::shared_ptr<FrameworkConfig> const& config);
    Notifier(Notifier const&) = delete;
    Notifier& operator=(Notifier const&) = delete;

    // Replaces the single backend-job listener.
    void setListener(std::weak_ptr<IBackendJobListener> const& listener);
    void addListener(std::weak_ptr<IServiceDataListener> const& listener);
    void addListener(std::weak_ptr<IKVSListener> const& listener);
    void addListener(std::weak_ptr<IRunStateListener> const& listener);

    void notifyServiceData(std::string const& serviceId, std::shared_ptr<dataitems::ServiceObject> const& service);
    void notifyDisableReason(std::string const& serviceId, std::vector<std::string> const& disableReasons);
    void notifyBaseURL(std::string const& serviceId, std::string const& baseUrl);
    void notifyAccessToken(std::string const& serviceId, std::shared_ptr<dataitems::AccessTokenObject> const& token);
    void notifyPrivacySettings(std::string const& serviceId,
                               std::shared_ptr<dataitems::PrivacySettingsObject> const& privacy);
    void notifyNetworkInterface(std::string const& serviceId, std::shared_ptr<ClientData> const& ipv4,
                                std::shared_ptr<ClientData> const& ipv6);
    void notifyKVSItem(std::string const& key, std::string const& value);
    void notifyRunState(RunState state);
    // True when a live listener answered; its answer is in `ack`. Otherwise `ack` is untouched
    // and the caller answers the backend itself.
    bool notifyBackendJob(std::shared_ptr<dataitems::JobObject> const& job, BackendJobAcknowledgeCode& ack);

private:
    // Drops the expired listeners of `listeners` under the mutex, then calls `call` on the live ones.
    template <typename Listener, typename Call>
    void fanOut(std::vector<std::weak_ptr<Listener>>& listeners, char const* expiredMessage, Call const& call);

    qel::common::logging::Logger m_logger;
    qel::common::system::Mutex m_mutex;
    std::weak_ptr<IBackendJobListener> m_backendJobListener;             // guarded by m_mutex
    std::vector<std::weak_ptr<IServiceDataListener>> m_serviceDataListeners;  // guarded by m_mutex
    std::vector<std::weak_ptr<IKVSListener>> m_kvsListeners;                  // guarded by m_mutex
    std::vector<std::weak_ptr<IRunStateListener>> m_runStateListeners;        // guarded by m_mutex
};

}  // namespace qel::onlineservices::framework::core
