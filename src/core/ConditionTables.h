// The fixed precondition table of the condition manager, for the factory to hand over.
//
// Contract: returns a fresh table each call. Requests that are not listed (every request for
// false, the availability, privacy and networking requests) have no preconditions.
#pragma once

#include "core/ConditionManager.h"

#include <memory>

namespace qel::onlineservices::framework::core {

std::unique_ptr<PreconditionTable> buildPreconditionTable();

}  // namespace qel::onlineservices::framework::core
