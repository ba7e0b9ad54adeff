// The one place where the framework calls the application's listeners.
//
// Contract: listener calls never overlap. Every notification becomes one delivery in a single
// queue, in the order the notifications were made; one thread at a time (the one that found the
// queue idle) delivers, so at most one listener call runs at any moment and listeners hear
// events in notification order. A notification made while another thread delivers is queued and
// returns at once; one made from inside a listener is queued and delivered after that listener
// returned. Listeners therefore run on the notifying thread or on another notifying thread of
// the framework. `notifyBackendJob` alone waits for its delivery, since it needs the answer.
//
// Listeners are held weakly; one that has expired is dropped, with one log line naming the
// notification that found it, when a delivery of its list comes by. Within a delivery listeners
// run in registration order; one registered meanwhile hears the next delivery of its list. A
// listener added twice is called twice. An exception thrown by a list listener is logged and
// does not keep the others from being called; one thrown by the backend-job listener reaches
// the caller of `notifyBackendJob`.
//
// Shutdown is bounded: after `close` only run states are taken in (events, jobs and addresses
// are refused), and events still queued when the bound has passed are dropped with one log line,
// so a delivering thread ends within the bound plus the listener call it is in.
#pragma once

#include "common/CondVar.h"
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

#include <cstdint>
#include <deque>
#include <functional>
#include <memory>
#include <string>
#include <thread>
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

    void notifyServiceData(std::string const& serviceId,
                           std::shared_ptr<framework::dataitems::ServiceObject> const& service);
    void notifyDisableReason(std::string const& serviceId, std::vector<std::string> const& disableReasons);
    void notifyBaseURL(std::string const& serviceId, std::string const& baseUrl);
    void notifyAccessToken(std::string const& serviceId,
                           std::shared_ptr<framework::dataitems::AccessTokenObject> const& token);
    void notifyPrivacySettings(std::string const& serviceId,
                               std::shared_ptr<framework::dataitems::PrivacySettingsObject> const& privacy);
    void notifyNetworkInterface(std::string const& serviceId, std::shared_ptr<ClientData> const& ipv4,
                                std::shared_ptr<ClientData> const& ipv6);
    void notifyKVSItem(std::string const& key, std::string const& value);
    void notifyRunState(RunState state);
    // True when a live listener answered; its answer is in `ack`. Otherwise `ack` is untouched
    // and the caller answers the backend itself. Waits until the job was delivered; asked from
    // inside a listener (where waiting would never end) it refuses with a log line and false.
    bool notifyBackendJob(std::shared_ptr<framework::dataitems::JobObject> const& job, BackendJobAcknowledgeCode& ack);
    // Refuses every later notification but run states; queued events still waiting `dropAfterMs`
    // (framework clock) after this call are dropped. Idempotent: the first call sets the bound.
    void close(std::uint32_t dropAfterMs);

private:
    using Delivery = std::function<void()>;
    struct JobAnswer;
    struct Queued {
        Delivery call;
        bool droppable;  // an event, which a closed notifier may drop; run states and jobs are kept
    };

    // Queues one delivery or, when no thread is delivering, delivers it and then the queue on
    // this thread.
    template <typename Call>
    void deliver(Call&& call, bool runState = false);
    // Delivers until the queue is empty, then gives the delivering role up.
    void drain();
    // A delivery that drops the expired listeners of `listeners` and calls `call` on the live ones.
    template <typename Listener, typename Call>
    auto fanOut(std::vector<std::weak_ptr<Listener>>& listeners, char const* expiredMessage, Call call);
    void answerJob(std::shared_ptr<framework::dataitems::JobObject> const& job, JobAnswer& answer);

    qel::common::logging::Logger m_logger;
    qel::common::system::Mutex m_mutex;
    qel::common::system::CondVar m_jobAnswered;                              // with m_mutex
    std::weak_ptr<IBackendJobListener> m_backendJobListener;                 // guarded by m_mutex
    std::vector<std::weak_ptr<IServiceDataListener>> m_serviceDataListeners;  // guarded by m_mutex
    std::vector<std::weak_ptr<IKVSListener>> m_kvsListeners;                  // guarded by m_mutex
    std::vector<std::weak_ptr<IRunStateListener>> m_runStateListeners;        // guarded by m_mutex
    std::deque<Queued> m_deliveries;                                          // guarded by m_mutex
    bool m_closed = false;                                                    // guarded by m_mutex
    std::int64_t m_dropFrom = 0;  // guarded by m_mutex: framework time after which events are dropped
    bool m_delivering = false;                                                // guarded by m_mutex
    std::thread::id m_deliveringThread;                                       // guarded by m_mutex
};

}  // namespace qel::onlineservices::framework::core
