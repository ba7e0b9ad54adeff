#include "core/ConditionTables.h"

namespace qel::onlineservices::framework::core {

std::unique_ptr<PreconditionTable> buildPreconditionTable() {
    using C = ConditionName;
    auto table = std::make_unique<PreconditionTable>();
    (*table)[{C::SUBSCRIBED_SERVICEMANAGEMENT, true}] = {{C::RSI_SERVICEMANAGEMENT_AVALAIABLE, true}};
    // A service's token URI arrives with the service list, so tokens wait for it.
    (*table)[{C::SUBSCRIBED_TOKENMANAGEMENT, true}] = {{C::RSI_TOKENMANAGEMENT_AVAILABLE, true},
                                                       {C::SUBSCRIBED_SERVICEMANAGEMENT, true}};
    (*table)[{C::SUBSCRIBED_KVS, true}] = {{C::POSTED_KVS, true}, {C::RSI_ONLINEKVS_AVAILABLE, true}};
    (*table)[{C::SUBSCRIBED_BACKENDJOBS, true}] = {{C::RSI_BACKENDJOBS_AVAILABLE, true}};
    (*table)[{C::POSTED_CAPABILITIES, true}] = {{C::RSI_CAPABILITIESMANAGEMENT_AVAILABLE, true}};
    (*table)[{C::POSTED_JOBENTRIES, true}] = {{C::RSI_BACKENDJOBS_AVAILABLE, true}};
    // Operation entries live in the backend-jobs service, not in capabilities management.
    (*table)[{C::POSTED_OPERATION_ENTRIES, true}] = {{C::RSI_BACKENDJOBS_AVAILABLE, true}};
    (*table)[{C::POSTED_KVS, true}] = {{C::RSI_ONLINEKVS_AVAILABLE, true}};
    return table;
}

}  // namespace qel::onlineservices::framework::core
