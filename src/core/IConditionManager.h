// What the run-state machine needs of the condition manager.
//
// Contract: `requestCondition` asks for a condition to become `value`; it returns once the
// request is started or queued, and the outcome arrives later through the manager's listeners.
// A manager that answers synchronously may call its listeners before `requestCondition` returns,
// on the caller's thread, so callers must not hold a lock of their own across the call.
#pragma once

#include "core/Condition.h"

namespace qel::onlineservices::framework::core {

class IConditionManager {
public:
    virtual ~IConditionManager() = default;
    virtual void requestCondition(ConditionName const& name, bool value) = 0;
};

}  // namespace qel::onlineservices::framework::core
