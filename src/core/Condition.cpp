#include "core/Condition.h"

namespace qel::onlineservices::framework::core {

std::map<ConditionName, std::string> const Condition::m_conditionStrings{
    {ConditionName::POSTED_CAPABILITIES, "POSTED_CAPABILITIES"},
    {ConditionName::POSTED_JOBENTRIES, "POSTED_JOBENTRIES"},
    {ConditionName::POSTED_KVS, "POSTED_KVS"},
    {ConditionName::POSTED_OPERATION_ENTRIES, "POSTED_OPERATION_ENTRIES"},
    {ConditionName::RSI_BACKENDJOBS_AVAILABLE, "RSI_BACKENDJOBS_AVAILABLE"},
    {ConditionName::RSI_CAPABILITIESMANAGEMENT_AVAILABLE, "RSI_CAPABILITIESMANAGEMENT_AVAILABLE"},
    {ConditionName::RSI_ONLINEKVS_AVAILABLE, "RSI_ONLINEKVS_AVAILABLE"},
    {ConditionName::RSI_SERVICEMANAGEMENT_AVALAIABLE, "RSI_SERVICEMANAGEMENT_AVALAIABLE"},
    {ConditionName::RSI_TOKENMANAGEMENT_AVAILABLE, "RSI_TOKENMANAGEMENT_AVAILABLE"},
    {ConditionName::SUBSCRIBED_KVS, "SUBSCRIBED_KVS"},
    {ConditionName::SUBSCRIBED_PRIVACYSETUP, "SUBSCRIBED_PRIVACYSETUP"},
    {ConditionName::SUBSCRIBED_SERVICEMANAGEMENT, "SUBSCRIBED_SERVICEMANAGEMENT"},
    {ConditionName::SUBSCRIBED_TOKENMANAGEMENT, "SUBSCRIBED_TOKENMANAGEMENT"},
    {ConditionName::SUBSCRIBED_BACKENDJOBS, "SUBSCRIBED_BACKENDJOBS"},
    {ConditionName::CONNECTED_NETWORKING, "CONNECTED_NETWORKING"},
};

std::string toString(ConditionName name) {
    auto const found = Condition::m_conditionStrings.find(name);
    return found != Condition::m_conditionStrings.end() ? found->second : "INVALID_CONDITION";
}

}  // namespace qel::onlineservices::framework::core
