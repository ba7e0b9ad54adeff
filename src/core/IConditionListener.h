// Receives the values of all known conditions whenever one of them was reported.
//
// Contract: called on the thread that reported the condition, with the manager's listener lock
// held; the listener may call `IConditionManager::requestCondition` from inside (the lock is
// re-entrant) but must not wait for another thread that reports conditions. A condition that
// was never reported is absent from the map.
#pragma once

#include "core/Condition.h"

#include <map>

namespace qel::onlineservices::framework::core {

class IConditionListener {
public:
    virtual ~IConditionListener() = default;
    virtual void notifyConditions(std::map<ConditionName, bool> const& conditions) = 0;
};

}  // namespace qel::onlineservices::framework::core
