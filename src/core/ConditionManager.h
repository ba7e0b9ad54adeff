// Brings named conditions about: checks a request's preconditions, runs the action bound to it,
// records the value the action reports and tells every condition listener all known values.
//
// Contract: create with std::make_shared (callbacks reach the manager through a weak reference).
// A request whose preconditions do not hold waits in the pending list and is re-issued after each
// later condition report, in the order it was queued; there is no time-out. A request without an
// action is logged and otherwise ignored. Values change only through action callbacks; reports
// that arrive after the manager is gone are dropped. Listeners are held weakly and called in
// registration order with the listener lock held (re-entrant, so a listener may request
// conditions from inside `notifyConditions`). No lock is held while an action runs.
#pragma once

#include "common/Logger.h"
#include "common/Mutex.h"
#include "config/FrameworkConfig.h"
#include "core/Condition.h"
#include "core/IConditionListener.h"
#include "core/IConditionManager.h"
#include "core/IUpdateConditionCallback.h"
#include "core/UpdateConditionCallback.h"

#include <functional>
#include <map>
#include <memory>
#include <vector>

namespace qel::onlineservices::framework::core {

// Starts the work that fulfils one request; the outcome goes to the callback, now or later.
using ConditionAction = std::function<void(std::shared_ptr<IUpdateConditionCallback>)>;
using ConditionActionTable = std::map<ConditionRequest, ConditionAction>;
// The (condition, value) pairs that must all hold before a request may run.
using PreconditionTable = std::map<ConditionRequest, std::vector<ConditionRequest>>;

class ConditionManager : public IConditionManager, public std::enable_shared_from_this<ConditionManager> {
public:
    // Null tables count as empty.
    ConditionManager(std::shared_ptr<FrameworkConfig> const& config, std::unique_ptr<ConditionActionTable> actions,
                     std::unique_ptr<PreconditionTable> preconditions);
    ~ConditionManager() override;
    ConditionManager(ConditionManager const&) = delete;
    ConditionManager& operator=(ConditionManager const&) = delete;

    void addConditionListener(std::shared_ptr<IConditionListener> const& listener);

    void requestCondition(ConditionName const& name, bool value) override;
    bool requestPreconditionsFulfilled(ConditionName name, bool value);
    // Where every action's callback reports.
    void onUpdateCondition(ConditionName name, bool value);
    void notifyListeners();
    // Keeps a callback live; prunes anchors of callbacks that nobody holds any more.
    void addAnchor(std::shared_ptr<UpdateConditionCallbackAnchor> const& anchor);

private:
    ConditionAction findAction(ConditionRequest const& request) const;
    std::shared_ptr<UpdateConditionCallback> makeCallback(ConditionName name);

    qel::common::logging::Logger m_logger;
    // Re-entrant: a synchronous action reports from inside a request.
    qel::common::system::Mutex m_valuesMutex;
    qel::common::system::Mutex m_listenerMutex;
    std::unique_ptr<ConditionActionTable> const m_actions;         // read-only after construction
    std::unique_ptr<PreconditionTable> const m_preconditions;     // read-only after construction
    std::vector<ConditionRequest> m_pendingRequests;               // guarded by m_valuesMutex
    std::vector<std::weak_ptr<IConditionListener>> m_listeners;    // guarded by m_listenerMutex
    std::map<ConditionName, bool> m_conditionValues;               // guarded by m_valuesMutex
    std::vector<std::shared_ptr<UpdateConditionCallbackAnchor>> m_anchors;  // guarded by m_valuesMutex
};

}  // namespace qel::onlineservices::framework::core
