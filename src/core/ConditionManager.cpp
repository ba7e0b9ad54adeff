#include "core/ConditionManager.h"

#include <algorithm>

namespace qel::onlineservices::framework::core {

using qel::common::logging::LogLevel;
using qel::common::system::MutexGuard;

namespace {

char const* boolText(bool value) {
    return value ? "true" : "false";
}

std::string loggerName(std::shared_ptr<FrameworkConfig> const& config) {
    return (config ? config->loggerName : FrameworkSubConfig().loggerName) + ".ConditionManager";
}

}  // namespace

ConditionManager::ConditionManager(std::shared_ptr<FrameworkConfig> const& config,
                                   std::unique_ptr<ConditionActionTable> actions,
                                   std::unique_ptr<PreconditionTable> preconditions)
    : m_logger(loggerName(config)),
      m_actions(actions ? std::move(actions) : std::make_unique<ConditionActionTable>()),
      m_preconditions(preconditions ? std::move(preconditions) : std::make_unique<PreconditionTable>()) {}

ConditionManager::~ConditionManager() = default;

void ConditionManager::addConditionListener(std::shared_ptr<IConditionListener> const& listener) {
    MutexGuard guard(m_listenerMutex);
    m_listeners.push_back(listener);
}

void ConditionManager::requestCondition(ConditionName const& name, bool value) {
    {
        // Check and queue in one step, so a report that lands in between cannot miss the request.
        MutexGuard guard(m_valuesMutex);
        if (!requestPreconditionsFulfilled(name, value)) {
            m_pendingRequests.emplace_back(name, value);
            return;
        }
    }
    m_logger << LogLevel::Info << "Request condition: " << toString(name) << " : " << boolText(value);
    ConditionAction const action = findAction({name, value});
    if (!action) {
        m_logger << LogLevel::Warning << "No action defined for condition " << toString(name) << " : "
                 << boolText(value);
        return;
    }
    auto callback = makeCallback(name);
    addAnchor(callback->dropAnchor());
    action(callback);
}

bool ConditionManager::requestPreconditionsFulfilled(ConditionName name, bool value) {
    auto const found = m_preconditions->find({name, value});
    if (found == m_preconditions->end()) {
        m_logger << LogLevel::Debug << "No preconditions for requesting " << toString(name) << " : "
                 << boolText(value);
        return true;
    }
    MutexGuard guard(m_valuesMutex);
    try {
        return std::all_of(found->second.begin(), found->second.end(), [this](ConditionRequest const& required) {
            return m_conditionValues.at(required.first) == required.second;
        });
    } catch (std::out_of_range const&) {
        // Never reported yet: not allowed so far.
        return false;
    }
}

void ConditionManager::onUpdateCondition(ConditionName name, bool value) {
    m_logger << LogLevel::Info << "Condition event: " << toString(name) << " : " << boolText(value);
    {
        MutexGuard guard(m_valuesMutex);
        m_conditionValues[name] = value;
    }
    notifyListeners();

    std::vector<ConditionRequest> pending;
    {
        MutexGuard guard(m_valuesMutex);
        pending.swap(m_pendingRequests);
    }
    for (auto const& request : pending) {
        requestCondition(request.first, request.second);
    }
}

void ConditionManager::notifyListeners() {
    MutexGuard listenerGuard(m_listenerMutex);
    std::vector<std::shared_ptr<IConditionListener>> live;
    for (auto it = m_listeners.begin(); it != m_listeners.end();) {
        if (auto listener = it->lock()) {
            live.push_back(std::move(listener));
            ++it;
        } else {
            it = m_listeners.erase(it);
        }
    }
    std::map<ConditionName, bool> values;
    {
        MutexGuard valuesGuard(m_valuesMutex);
        values = m_conditionValues;
    }
    for (auto const& listener : live) {
        listener->notifyConditions(values);
    }
}

void ConditionManager::addAnchor(std::shared_ptr<UpdateConditionCallbackAnchor> const& anchor) {
    MutexGuard guard(m_valuesMutex);
    m_anchors.erase(std::remove_if(m_anchors.begin(), m_anchors.end(),
                                   [](auto const& held) { return held->isCallbackReleased(); }),
                    m_anchors.end());
    m_anchors.push_back(anchor);
}

ConditionAction ConditionManager::findAction(ConditionRequest const& request) const {
    auto const found = m_actions->find(request);
    return found != m_actions->end() ? found->second : ConditionAction();
}

std::shared_ptr<UpdateConditionCallback> ConditionManager::makeCallback(ConditionName name) {
    // Weak, so that a report racing with the manager's destruction finds nobody to call.
    return std::make_shared<UpdateConditionCallback>([manager = weak_from_this(), name](bool value) {
        if (auto const self = manager.lock()) {
            self->onUpdateCondition(name, value);
        }
    });
}

}  // namespace qel::onlineservices::framework::core
