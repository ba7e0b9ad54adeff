#include "core/OnlineServiceClient.h"

#include "common/Thread.h"

#include "rsi/IRSIClientWrapper.h"
#include "subscriptions/SubscriptionManager.h"

#include <algorithm>
#include <stdexcept>
#include <utility>

namespace qel::onlineservices::framework::core {

using qel::common::logging::LogLevel;
using qel::common::system::MutexGuard;

namespace {

FrameworkSubConfig const& settingsOf(std::shared_ptr<FrameworkConfig> const& config) {
    static FrameworkSubConfig const defaults;
    return config ? *config : defaults;
}

}  // namespace

// The initialiser order is not the numeric order; the numbers are what listeners receive.
std::map<RunState, std::string> const OnlineServiceClient::m_runstateStrings{
    {RunState::INVALID, "INVALID"},     {RunState::CREATED, "CREATED"},     {RunState::STARTED, "STARTED"},
    {RunState::RESUMED, "RESUMED"},     {RunState::PAUSED, "PAUSED"},       {RunState::DESTROYED, "DESTROYED"},
    {RunState::STOPPED, "STOPPED"},     {RunState::DISCONNECTED, "DISCONNECTED"},
};

std::map<UseCase, std::string> const OnlineServiceClient::m_usecaseStrings{
    {UseCase::RUNNING, "RUNNING"},       {UseCase::PAUSE, "PAUSE"},       {UseCase::DISABLEREASON, "DISABLEREASON"},
    {UseCase::DISCONNECT, "DISCONNECT"}, {UseCase::SHUTDOWN, "SHUTDOWN"},
};

OnlineServiceClient::OnlineServiceClient(std::shared_ptr<FrameworkConfig> const& config,
                                         std::shared_ptr<Notifier> const& notifier)
    : m_frameworkConfig(config),
      m_logger(settingsOf(config).loggerName),
      m_stateLogger(settingsOf(config).statusLoggerName),
      m_notifier(notifier),
      m_runtime(CommonAPI::Runtime::get()) {}

OnlineServiceClient::~OnlineServiceClient() {
    if (m_released.load() || !qel::common::system::isFrameworkThread()) {
        release();
        return;
    }
    // The last reference went on one of the framework's threads, which cannot join itself: stop
    // here, report DESTROYED, and let a teardown thread end the threads and the parts.
    stop();
    reportDestroyed();
    qel::common::system::handOverTeardown(
        "OnlineServiceClient destroyed on framework thread " + qel::common::system::currentThreadName() +
            ": its last reference must not be dropped inside a listener; teardown handed to another thread",
        [subscriptions = std::move(m_subscriptionManager), rsiClient = std::move(m_rsiClient),
         conditions = std::move(m_conditionManager)] {
            if (subscriptions) {
                subscriptions->shutdown();
                subscriptions->endNetworking();
            }
        });
}

void OnlineServiceClient::release() {
    if (m_released.exchange(true)) {
        return;
    }
    stop();
    // Joins the item queues and the networking retry thread, so the parts are released on this
    // thread and not on a framework thread that happens to be delivering an event.
    if (m_subscriptionManager) {
        m_subscriptionManager->shutdown();
        m_subscriptionManager->endNetworking();
    }
    reportDestroyed();
}

void OnlineServiceClient::reportDestroyed() {
    // The walk to DESTROYED waits for answers that the ended threads no longer give.
    if (getRunState() != RunState::DESTROYED) {
        m_stateLogger << LogLevel::Info << "Released before the walk to DESTROYED completed";
        setAndNotifyRunstate(RunState::DESTROYED);
    }
}

// ---- application operations ----

void OnlineServiceClient::startup() {
    if (!m_notifier) {
        m_logger << LogLevel::Error << "Framework startup not possible: no notifier defined!";
        return;
    }
    if (!m_rsiClient) {
        m_logger << LogLevel::Error << "Framework startup not possible: no rsi client defined!";
        return;
    }
    if (!m_conditionManager) {
        m_logger << LogLevel::Error << "Framework startup not possible: no condition manager defined!";
        return;
    }
    if (!m_subscriptionManager) {
        m_logger << LogLevel::Error << "Framework startup not possible: no subscription manager defined!";
        return;
    }
    removeSkippedConditions();
    connectNetworking();  // without the networking service the client still runs
    m_started.store(true);
    updateRunState();
}

void OnlineServiceClient::pauseConnection() {
    setPaused(true);
}

void OnlineServiceClient::unpauseConnection() {
    setPaused(false);
}

void OnlineServiceClient::stop() {
    if (m_stopRequested.load()) {
        return;
    }
    // Before anything else, so that an event flood cannot keep the walk to DESTROYED delivering.
    if (m_notifier) {
        m_notifier->close(SHUTDOWN_DELIVERY_BOUND_MS);
    }
    setStopRequested(true);
    if (m_rsiClient) {
        m_rsiClient->stop();
    }
    if (m_subscriptionManager) {
        m_subscriptionManager->requestShutdown();
    }
    unsubscribeNetworking();
}

void OnlineServiceClient::setBackendJobListener(std::shared_ptr<IBackendJobListener> const& listener) {
    if (m_notifier) {
        m_notifier->setListener(std::weak_ptr<IBackendJobListener>(listener));
    }
}

void OnlineServiceClient::addKVSListener(std::shared_ptr<IKVSListener> const& listener) {
    if (m_notifier) {
        m_notifier->addListener(std::weak_ptr<IKVSListener>(listener));
    }
}

void OnlineServiceClient::addServiceDataListener(std::shared_ptr<IServiceDataListener> const& listener) {
    if (m_notifier) {
        m_notifier->addListener(std::weak_ptr<IServiceDataListener>(listener));
    }
}

void OnlineServiceClient::addRunStateListener(std::shared_ptr<IRunStateListener> const& listener) {
    if (m_notifier) {
        m_notifier->addListener(std::weak_ptr<IRunStateListener>(listener));
    }
}

KVSUpdateStatus OnlineServiceClient::updateKVSItem(std::string const& key, std::string const& value) {
    if (!m_subscriptionManager) {
        m_logger << LogLevel::Error << "updateKVSItem for key <" << key
                 << "> not possible: no subscription manager defined!";
        return INTERNAL_ERROR;
    }
    return m_subscriptionManager->updateKVSItem(key, value);
}

// ---- events ----

void OnlineServiceClient::onDisableReasonChanged(std::string const& serviceId,
                                                 std::vector<std::string> const& reasons) {
    m_logger << LogLevel::Info << "Received disableReason callback for service " << serviceId
             << ", number of disableReasons: " << reasons.size();
    bool const valid =
        std::any_of(reasons.begin(), reasons.end(), [](std::string const& reason) { return reason != "undefined"; });
    m_logger << LogLevel::Info << "Already disabled: " << m_disableReasonActive.load();
    m_logger << LogLevel::Info << "Valid disableReasons: " << valid;
    if (settingsOf(m_frameworkConfig).ignoreDisableReasons) {
        m_logger << LogLevel::Warning << "DisableReason ignored because due to framework configuration!";
        return;
    }
    if (valid) {
        setDisableReasonActive(true);
        return;
    }
    // Another configured service may still carry a disable reason.
    setDisableReasonActive(m_subscriptionManager && m_subscriptionManager->isAnyServiceDisabled());
}

void OnlineServiceClient::ocuConnCallback(bool available) {
    m_logger << LogLevel::Info << "NETW Event: ocu is " << (available ? "" : "not ") << "available";
    setDisconnected(!available);
}

// ---- networking ----

std::shared_ptr<OnlineServiceClient::NetworkingProxy> OnlineServiceClient::networkingProxy() const {
    MutexGuard guard(m_networkingMutex);
    return m_networkingProxy;
}

bool OnlineServiceClient::connectNetworking() {
    auto proxy = networkingProxy();
    if (!proxy) {
        if (m_runtime) {
            proxy = m_runtime->createProxy<v1::qel::networking::api::networkingProxy>("kalm", "qel.networking.api", "");
        }
        if (!proxy) {
            m_logger << LogLevel::Error << "Networking API: Building proxy failed";
            return false;
        }
        MutexGuard guard(m_networkingMutex);
        m_networkingProxy = proxy;
    }
    // The listeners hold the client weakly: the proxy's events may outlive it.
    std::weak_ptr<OnlineServiceClient> const weakSelf = weak_from_this();
    auto const ocuSubscription = proxy->getOcuConnStateChangeEvent().subscribe(
        [weakSelf](bool const& available) {
            if (auto const self = weakSelf.lock()) {
                self->ocuConnCallback(available);
            }
        },
        [weakSelf](CommonAPI::CallStatus const status) {
            if (auto const self = weakSelf.lock()) {
                self->m_logger << LogLevel::Info << "aeth error event: " << static_cast<std::int32_t>(status);
            }
        });
    {
        MutexGuard guard(m_networkingMutex);
        m_ocuStateSubscription = ocuSubscription;
    }
    m_logger << LogLevel::Info << "ocu state sub: " << ocuSubscription;
    auto const statusSubscription =
        proxy->getProxyStatusEvent().subscribe([weakSelf](CommonAPI::AvailabilityStatus const& status) {
            if (auto const self = weakSelf.lock()) {
                self->onNetworkingAvailability(status);
            }
        });
    MutexGuard guard(m_networkingMutex);
    m_proxyStatusSubscription = statusSubscription;
    return true;
}

void OnlineServiceClient::onNetworkingAvailability(CommonAPI::AvailabilityStatus status) {
    if (status != CommonAPI::AvailabilityStatus::AVAILABLE) {
        return;
    }
    m_logger << LogLevel::Info << "networking proxy available";
    if (m_subscriptionManager) {
        m_subscriptionManager->setNetworkingProxy(networkingProxy());
    }
}

void OnlineServiceClient::unsubscribeNetworking() {
    std::shared_ptr<NetworkingProxy> proxy;
    std::uint32_t ocuSubscription = NO_SUBSCRIPTION;
    std::uint32_t statusSubscription = NO_SUBSCRIPTION;
    {
        MutexGuard guard(m_networkingMutex);
        proxy = m_networkingProxy;
        ocuSubscription = std::exchange(m_ocuStateSubscription, NO_SUBSCRIPTION);
        statusSubscription = std::exchange(m_proxyStatusSubscription, NO_SUBSCRIPTION);
    }
    if (!proxy) {
        return;
    }
    if (ocuSubscription != NO_SUBSCRIPTION) {
        proxy->getOcuConnStateChangeEvent().unsubscribe(ocuSubscription);
    }
    if (statusSubscription != NO_SUBSCRIPTION) {
        proxy->getProxyStatusEvent().unsubscribe(statusSubscription);
    }
}

// ---- wiring ----

void OnlineServiceClient::setRsiClient(std::shared_ptr<IRSIClientWrapper> const& rsiClient) {
    m_rsiClient = rsiClient;
}

void OnlineServiceClient::setConditionManager(std::shared_ptr<IConditionManager> const& conditionManager) {
    m_conditionManager = conditionManager;
}

void OnlineServiceClient::setSubscriptionManager(std::shared_ptr<SubscriptionManager> const& subscriptionManager) {
    m_subscriptionManager = subscriptionManager;
}

void OnlineServiceClient::setUsecases(std::unique_ptr<UsecaseTable>& usecases) {
    MutexGuard guard(m_usecaseMutex);
    m_usecases = std::move(usecases);
}

void OnlineServiceClient::setTransitions(std::unique_ptr<TransitionTable>& transitions) {
    MutexGuard guard(m_stateMutex);
    m_transitions = std::move(transitions);
}

void OnlineServiceClient::setSkipConditions(std::unique_ptr<SkipConditionList>& skipConditions) {
    MutexGuard guard(m_stateMutex);
    m_skipConditions = std::move(skipConditions);
}

// ---- request flags ----

bool OnlineServiceClient::exchangeFlag(std::atomic<bool>& flag, bool value) {
    bool expected = !value;
    return flag.compare_exchange_strong(expected, value);
}

void OnlineServiceClient::setStopRequested(bool stopRequested) {
    if (!exchangeFlag(m_stopRequested, stopRequested)) {
        return;
    }
    updateUsecase();
    // Whatever the walk to DESTROYED still awaits completes through `notifyConditions`.
    m_started.store(false);
}

void OnlineServiceClient::setPaused(bool paused) {
    if (exchangeFlag(m_paused, paused)) {
        updateUsecase();
    }
}

void OnlineServiceClient::setDisconnected(bool disconnected) {
    if (exchangeFlag(m_disconnected, disconnected)) {
        updateUsecase();
    }
}

void OnlineServiceClient::setDisableReasonActive(bool disableReasonActive) {
    if (exchangeFlag(m_disableReasonActive, disableReasonActive)) {
        updateUsecase();
    }
}

// ---- the run-state machine ----

UseCase OnlineServiceClient::usecaseFromFlags() const {
    if (m_stopRequested.load()) {
        return UseCase::SHUTDOWN;
    }
    if (m_disconnected.load()) {
        return UseCase::DISCONNECT;
    }
    if (m_disableReasonActive.load()) {
        return UseCase::DISABLEREASON;
    }
    return m_paused.load() ? UseCase::PAUSE : UseCase::RUNNING;
}

void OnlineServiceClient::updateUsecase() {
    {
        // Deriving under the lock keeps a slower caller from storing an outdated use case.
        MutexGuard guard(m_usecaseMutex);
        UseCase const usecase = usecaseFromFlags();
        if (usecase == m_usecase) {
            return;
        }
        m_stateLogger << LogLevel::Info << "Change usecase " << toString(usecase);
        m_usecase = usecase;
    }
    updateRunState();
}

bool OnlineServiceClient::getNextRunState(RunState& next) {
    Transition transition;
    if (!nextTransition(transition)) {
        return false;
    }
    next = transition.second;
    return true;
}

bool OnlineServiceClient::nextTransition(Transition& transition) {
    MutexGuard usecaseGuard(m_usecaseMutex);
    MutexGuard stateGuard(m_stateMutex);
    auto const* transitions = transitionsOf(m_usecase);
    if (transitions == nullptr) {
        m_stateLogger << LogLevel::Error << "No state transitions defined for current usecase " << toString(m_usecase);
        return false;
    }
    for (auto const& candidate : *transitions) {
        if (candidate.first == m_runstate) {
            transition = candidate;
            return true;
        }
    }
    return false;
}

std::vector<Transition> const* OnlineServiceClient::transitionsOf(UseCase usecase) const {
    if (!m_usecases) {
        return nullptr;
    }
    auto const found = m_usecases->find(usecase);
    return found != m_usecases->end() ? &found->second : nullptr;
}

std::vector<ConditionRequest> const* OnlineServiceClient::conditionsOf(Transition const& transition) const {
    if (!m_transitions) {
        return nullptr;
    }
    auto const found = m_transitions->find(transition);
    return found != m_transitions->end() ? &found->second : nullptr;
}

bool OnlineServiceClient::requestConditions(Transition const& transition) {
    return requestTransitionConditions(transition, std::nullopt) == ConditionRequestResult::WAITING;
}

OnlineServiceClient::ConditionRequestResult OnlineServiceClient::requestTransitionConditions(
    Transition const& transition, std::optional<RunState> still) {
    std::vector<ConditionRequest> conditions;
    {
        MutexGuard guard(m_stateMutex);
        // The walk asks under the same lock that records the request, so a transition another
        // thread has already left behind is neither requested nor remembered as awaited.
        if (still && m_runstate != *still) {
            return ConditionRequestResult::STALE;
        }
        auto const* required = conditionsOf(transition);
        if (required == nullptr) {
            m_stateLogger << LogLevel::Error << "State transition " << toString(transition) << " not allowed!";
        } else {
            m_stateLogger << LogLevel::Info << "Request state transition conditions for " << toString(transition);
            conditions = *required;
            m_requestedTransition = transition;
        }
    }
    if (!conditions.empty()) {
        if (m_conditionManager) {  // `startup` makes sure; a direct call before it only records
            for (auto const& [name, value] : conditions) {
                m_conditionManager->requestCondition(name, value);
            }
        }
        return ConditionRequestResult::WAITING;
    }
    // Also how an unlisted transition (DISCONNECTED -> DESTROYED) is taken.
    m_stateLogger << LogLevel::Warning << "No conditions found";
    return ConditionRequestResult::NO_CONDITIONS;
}

void OnlineServiceClient::updateRunState() {
    if (!m_started.load()) {
        return;
    }
    {
        MutexGuard guard(m_stateMutex);
        m_walkRequested = true;
        if (m_walking) {
            return;  // the walking thread goes round once more
        }
        m_walking = true;
    }
    for (;;) {
        {
            MutexGuard guard(m_stateMutex);
            if (!m_walkRequested) {
                m_walking = false;
                return;
            }
            m_walkRequested = false;
        }
        walk();
    }
}

void OnlineServiceClient::walk() {
    Transition last;
    {
        MutexGuard guard(m_stateMutex);
        last = m_requestedTransition;
    }
    Transition candidate;
    while (nextTransition(candidate)) {
        if (candidate == last) {
            return;  // requested before; its answer is awaited
        }
        auto const result = requestTransitionConditions(candidate, candidate.first);
        if (result == ConditionRequestResult::WAITING) {
            return;
        }
        if (result == ConditionRequestResult::NO_CONDITIONS && enterRunState(candidate.first, candidate.second)) {
            last = candidate;
        }
    }
}

void OnlineServiceClient::notifyConditions(std::map<ConditionName, bool> const& conditions) {
    bool deliver = false;
    {
        // Checking and entering in one step: a walk that requests another transition meanwhile
        // either sees the new state or makes this report check its own transition.
        MutexGuard guard(m_stateMutex);
        if (!requestedConditionsHold(conditions) || m_runstate == m_requestedTransition.second) {
            return;
        }
        // DESTROYED is final: a late report for the walk that `stop` cut short moves nothing.
        if (m_runstate == RunState::DESTROYED) {
            return;
        }
        switchRunState(std::nullopt, m_requestedTransition.second, deliver);
    }
    if (deliver) {
        deliverRunStates();
    }
    updateRunState();
}

bool OnlineServiceClient::requestedConditionsHold(std::map<ConditionName, bool> const& conditions) const {
    auto const* required = conditionsOf(m_requestedTransition);
    auto const reported = [&](ConditionRequest const& condition) { return conditions.count(condition.first) != 0; };
    bool const checkable = required != nullptr && std::all_of(required->begin(), required->end(), reported);
    if (!checkable) {
        m_stateLogger << LogLevel::Error << "State transition " << toString(m_requestedTransition)
                      << " not allowed, can't check conditions";
        return false;
    }
    return std::all_of(required->begin(), required->end(),
                       [&](auto const& condition) { return conditions.at(condition.first) == condition.second; });
}

void OnlineServiceClient::setAndNotifyRunstate(RunState const& state) {
    enterRunState(std::nullopt, state);
}

bool OnlineServiceClient::enterRunState(std::optional<RunState> from, RunState state) {
    bool deliver = false;
    {
        MutexGuard guard(m_stateMutex);
        if (!switchRunState(from, state, deliver)) {
            return false;
        }
    }
    if (deliver) {
        deliverRunStates();
    }
    return true;
}

bool OnlineServiceClient::switchRunState(std::optional<RunState> from, RunState state, bool& deliver) {
    if (from && m_runstate != *from) {
        return false;
    }
    if (state == RunState::RESUMED) {
        m_stateLogger << LogLevel::Info << "------ RUNNING ------";
    } else if (state == RunState::DESTROYED) {
        m_stateLogger << LogLevel::Info << "------ NOT RUNNING ------";
    }
    m_stateLogger << LogLevel::Debug << "------ NEW STATE " << toString(state) << " ------";
    m_runstate = state;
    m_runStatesToDeliver.push_back(state);
    // One thread at a time delivers, so listeners hear the states in the order they were entered.
    deliver = !m_delivering;
    m_delivering = true;
    return true;
}

void OnlineServiceClient::deliverRunStates() {
    for (;;) {
        RunState state;
        {
            MutexGuard guard(m_stateMutex);
            if (m_runStatesToDeliver.empty()) {
                m_delivering = false;
                return;
            }
            state = m_runStatesToDeliver.front();
            m_runStatesToDeliver.pop_front();
        }
        if (m_notifier) {
            m_notifier->notifyRunState(state);
        }
    }
}

void OnlineServiceClient::removeSkippedConditions() {
    MutexGuard guard(m_stateMutex);  // re-entrant: _removeCondition takes it again
    if (!m_skipConditions) {
        return;
    }
    for (auto const& [skip, condition] : *m_skipConditions) {
        if (skip) {
            _removeCondition(condition);
        }
    }
}

void OnlineServiceClient::_removeCondition(ConditionName name) {
    MutexGuard guard(m_stateMutex);
    if (!m_transitions) {
        return;
    }
    for (auto& [transition, conditions] : *m_transitions) {
        conditions.erase(std::remove_if(conditions.begin(), conditions.end(),
                                        [name](ConditionRequest const& condition) { return condition.first == name; }),
                         conditions.end());
    }
}

// ---- texts and state ----

std::string OnlineServiceClient::toString(RunState state) const {
    try {
        return m_runstateStrings.at(state);
    } catch (std::out_of_range const&) {
        m_stateLogger << LogLevel::Error << "toString: Unknown runstate value: " << static_cast<std::uint32_t>(state);
        return "UNKNOWN_STATE";
    }
}

std::string OnlineServiceClient::toString(UseCase usecase) const {
    try {
        return m_usecaseStrings.at(usecase);
    } catch (std::out_of_range const&) {
        m_stateLogger << LogLevel::Error << "toString: Unknown usecase value: " << static_cast<std::uint32_t>(usecase);
        return "UNKNOWN_USECASE";
    }
}

std::string OnlineServiceClient::toString(Transition const& transition) const {
    return toString(transition.first) + " -> " + toString(transition.second);
}

RunState OnlineServiceClient::getRunState() const {
    MutexGuard guard(m_stateMutex);
    return m_runstate;
}

UseCase OnlineServiceClient::getUsecase() const {
    MutexGuard guard(m_usecaseMutex);
    return m_usecase;
}

}  // namespace qel::onlineservices::framework::core
