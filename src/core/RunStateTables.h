// The fixed tables that drive the client's run-state machine, for the factory to hand over.
//
// Contract: every builder returns a fresh table. The use-case table lists, per use case, the
// transitions towards its goal, searched front to back for the first whose "from" is the current
// state; the transition table lists, per transition, the conditions (with their values) that
// must hold before it is taken, in the order they are requested; the skip list names the
// conditions the client must not wait for, given the configuration and what the factory actually
// has to subscribe and post.
#pragma once

#include "config/FrameworkConfig.h"
#include "core/Condition.h"
#include "core/UseCase.h"

#include <onlineservices/framework/RunState.h>

#include <map>
#include <memory>
#include <utility>
#include <vector>

namespace qel::onlineservices::framework::core {

using Transition = std::pair<RunState, RunState>;
using UsecaseTable = std::map<UseCase, std::vector<Transition>>;
using TransitionTable = std::map<Transition, std::vector<ConditionRequest>>;
// (skip, condition): a condition whose skip value is true is removed from every transition.
using SkipConditionList = std::vector<std::pair<bool const, ConditionName>>;

// What the factory built for one client: true where the list is not empty.
struct ClientWorkload {
    bool hasServiceItems = false;
    bool hasTokenItems = false;
    bool hasPrivacyItems = false;
    bool hasJobItems = false;
    bool hasKvsItems = false;
    bool hasKvsEntries = false;
    bool hasJobEntries = false;
    bool hasOperationEntries = false;
    bool hasCapabilities = false;
};

std::unique_ptr<UsecaseTable> buildUsecaseTable();
std::unique_ptr<TransitionTable> buildTransitionTable();
std::unique_ptr<SkipConditionList> buildSkipConditions(FrameworkSubConfig const& config,
                                                       ClientWorkload const& workload);

}  // namespace qel::onlineservices::framework::core
