// The object an application holds: its run-state machine and its wiring to the framework.
//
// Contract: created with std::make_shared by the factory, wired with the setters and the tables
// before `startup`, then driven by the application (pause, unpause, stop), by the condition
// manager (`notifyConditions`) and by backend and platform events (disable reasons, OCU state).
// Four request flags select a use case; the client walks from its run state along the
// transitions of that use case, requesting each transition's conditions and moving on once the
// condition manager reports that they hold. Nothing moves before `startup`; after `stop` only
// the walk to DESTROYED completes.
//
// Threads: every entry point may be called from any thread. One thread at a time walks the
// machine and requests conditions (a caller that finds the walk busy leaves its step to the
// walking thread), so conditions are requested in the order the machine decided them. A run
// state is entered only from the state its transition starts at, and run-state listeners hear
// the states in the order they were entered. No lock of this class is held while it calls the
// condition manager or the notifier. Lock order: use-case mutex, then state mutex.
#pragma once

#include "common/Logger.h"
#include "common/Mutex.h"
#include "commonapi/Runtime.h"
#include "commonapi/networking/networkingProxy.h"
#include "config/FrameworkConfig.h"
#include "core/Condition.h"
#include "core/IConditionListener.h"
#include "core/IConditionManager.h"
#include "core/Notifier.h"
#include "core/RunStateTables.h"
#include "core/UseCase.h"

#include <onlineservices/framework/IOnlineServiceClient.h>
#include <onlineservices/framework/RunState.h>

#include <atomic>
#include <cstdint>
#include <deque>
#include <map>
#include <memory>
#include <optional>
#include <string>
#include <vector>

namespace qel::onlineservices::framework::core {

class IRSIClientWrapper;
class SubscriptionManager;

class OnlineServiceClient : public IOnlineServiceClient,
                            public IServiceDataListener,
                            public std::enable_shared_from_this<OnlineServiceClient>,
                            public IConditionListener {
public:
    using NetworkingProxy = v1::qel::networking::api::networkingProxy<>;
    static constexpr std::uint32_t NO_SUBSCRIPTION = 0xFFFFFFFFu;  // a CommonAPI subscription handle
    // Once `stop` began, events still queued for the listeners after this long are dropped.
    static constexpr std::uint32_t SHUTDOWN_DELIVERY_BOUND_MS = 100;
    static std::map<RunState, std::string> const m_runstateStrings;
    static std::map<UseCase, std::string> const m_usecaseStrings;

    OnlineServiceClient(std::shared_ptr<FrameworkConfig> const& config, std::shared_ptr<Notifier> const& notifier);
    ~OnlineServiceClient() override;
    OnlineServiceClient(OnlineServiceClient const&) = delete;
    OnlineServiceClient& operator=(OnlineServiceClient const&) = delete;

    void startup() override;
    void pauseConnection() override;
    void unpauseConnection() override;
    void stop() override;
    void setBackendJobListener(std::shared_ptr<IBackendJobListener> const& listener) override;
    void addKVSListener(std::shared_ptr<IKVSListener> const& listener) override;
    void addServiceDataListener(std::shared_ptr<IServiceDataListener> const& listener) override;
    void addRunStateListener(std::shared_ptr<IRunStateListener> const& listener) override;
    KVSUpdateStatus updateKVSItem(std::string const& key, std::string const& value) override;

    // `stop`, then joins the item queues and the networking retry thread (each after the listener
    // call it is in) and reports DESTROYED if the walk has not got there. The application's handle
    // calls it when the application lets the client go, on the application's thread. Idempotent.
    void release();

    void notifyConditions(std::map<ConditionName, bool> const& conditions) override;
    void onDisableReasonChanged(std::string const& serviceId, std::vector<std::string> const& reasons) override;

    // Wiring, done by the factory before `startup`. The table setters take the tables over and
    // leave the caller's pointers empty.
    void setRsiClient(std::shared_ptr<IRSIClientWrapper> const& rsiClient);
    void setConditionManager(std::shared_ptr<IConditionManager> const& conditionManager);
    void setSubscriptionManager(std::shared_ptr<SubscriptionManager> const& subscriptionManager);
    void setUsecases(std::unique_ptr<UsecaseTable>& usecases);
    void setTransitions(std::unique_ptr<TransitionTable>& transitions);
    void setSkipConditions(std::unique_ptr<SkipConditionList>& skipConditions);

    // Request flags; an unchanged value does nothing. A stop request also ends `startup`'s effect.
    void setStopRequested(bool stopRequested);
    void setPaused(bool paused);
    void setDisconnected(bool disconnected);
    void setDisableReasonActive(bool disableReasonActive);
    // The connectivity unit (OCU) came or went.
    void ocuConnCallback(bool available);
    // Builds the networking proxy (once) and subscribes to its OCU-state and availability
    // events (on every call); false when the proxy cannot be built.
    bool connectNetworking();

    // The run-state machine.
    void updateUsecase();
    // The next state of the current use case; false when the goal is reached.
    bool getNextRunState(RunState& next);
    // Looks the transition up and requests its conditions, whatever the current state. True when
    // conditions were requested: the step must wait. False (none, or the transition is not
    // listed): take it at once.
    bool requestConditions(Transition const& transition);
    // Advances as far as possible without waiting.
    void updateRunState();
    void setAndNotifyRunstate(RunState const& state);
    // Strips a condition from every transition, so the walk never waits for it.
    void _removeCondition(ConditionName name);

    std::string toString(RunState state) const;
    std::string toString(UseCase usecase) const;
    std::string toString(Transition const& transition) const;

    RunState getRunState() const;
    UseCase getUsecase() const;

private:
    enum class ConditionRequestResult { WAITING, NO_CONDITIONS, STALE };

    UseCase usecaseFromFlags() const;
    void removeSkippedConditions();
    bool nextTransition(Transition& transition);
    // STALE, without a word, when the machine no longer stands at `still`.
    ConditionRequestResult requestTransitionConditions(Transition const& transition, std::optional<RunState> still);
    // Lookups; the caller holds the use-case mutex, respectively the state mutex.
    std::vector<Transition> const* transitionsOf(UseCase usecase) const;
    std::vector<ConditionRequest> const* conditionsOf(Transition const& transition) const;
    // Caller holds the state mutex.
    bool requestedConditionsHold(std::map<ConditionName, bool> const& conditions) const;
    void walk();
    // Enters `state` if the machine still stands at `from` (any state when empty).
    bool enterRunState(std::optional<RunState> from, RunState state);
    // The same, for a caller that holds the state mutex; `deliver` tells it to call
    // `deliverRunStates` once it has released the mutex.
    bool switchRunState(std::optional<RunState> from, RunState state, bool& deliver);
    void deliverRunStates();
    static bool exchangeFlag(std::atomic<bool>& flag, bool value);
    std::shared_ptr<NetworkingProxy> networkingProxy() const;
    void onNetworkingAvailability(CommonAPI::AvailabilityStatus status);
    void unsubscribeNetworking();
    void reportDestroyed();

    std::atomic<bool> m_disableReasonActive{false};
    std::atomic<bool> m_paused{false};
    std::atomic<bool> m_stopRequested{false};
    std::atomic<bool> m_disconnected{false};
    std::atomic<bool> m_started{false};
    std::atomic<bool> m_released{false};

    std::shared_ptr<FrameworkConfig> const m_frameworkConfig;
    qel::common::logging::Logger m_logger;       // general messages
    qel::common::logging::Logger m_stateLogger;  // run-state messages
    std::shared_ptr<Notifier> const m_notifier;
    // Set before `startup`, read-only afterwards.
    std::shared_ptr<IRSIClientWrapper> m_rsiClient;
    std::shared_ptr<IConditionManager> m_conditionManager;
    std::shared_ptr<SubscriptionManager> m_subscriptionManager;
    // The networking service, reached through CommonAPI. The proxy and the handles are touched by
    // the application's thread (`startup`, `stop`) and read by the availability listener.
    std::shared_ptr<CommonAPI::Runtime> const m_runtime;
    mutable qel::common::system::Mutex m_networkingMutex;
    std::shared_ptr<NetworkingProxy> m_networkingProxy;        // guarded by m_networkingMutex
    std::uint32_t m_ocuStateSubscription = NO_SUBSCRIPTION;     // guarded by m_networkingMutex
    std::uint32_t m_proxyStatusSubscription = NO_SUBSCRIPTION;  // guarded by m_networkingMutex

    mutable qel::common::system::Mutex m_usecaseMutex;
    mutable qel::common::system::Mutex m_stateMutex;
    UseCase m_usecase = UseCase::RUNNING;                                   // guarded by m_usecaseMutex
    std::unique_ptr<UsecaseTable> m_usecases;                               // guarded by m_usecaseMutex
    RunState m_runstate = RunState::INVALID;                                // guarded by m_stateMutex
    Transition m_requestedTransition{RunState::INVALID, RunState::INVALID};  // guarded by m_stateMutex
    std::unique_ptr<TransitionTable> m_transitions;                         // guarded by m_stateMutex
    std::unique_ptr<SkipConditionList> m_skipConditions;                    // guarded by m_stateMutex
    bool m_walking = false;                      // guarded by m_stateMutex: a thread walks the machine
    bool m_walkRequested = false;                // guarded by m_stateMutex: walk (again) before ending
    std::deque<RunState> m_runStatesToDeliver;   // guarded by m_stateMutex, in the order entered
    bool m_delivering = false;                   // guarded by m_stateMutex: a thread delivers them
};

}  // namespace qel::onlineservices::framework::core
