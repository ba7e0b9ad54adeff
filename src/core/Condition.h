// The named conditions the run-state machine waits for, and their printable names.
//
// Contract: the numbers and the strings are fixed (log readers and the condition tables rely on
// them, including the misspelt "RSI_SERVICEMANAGEMENT_AVALAIABLE"). `toString` never fails: a
// value outside the list prints as "INVALID_CONDITION".
#pragma once

#include <cstdint>
#include <map>
#include <string>
#include <utility>

namespace qel::onlineservices::framework::core {

enum class ConditionName : std::uint32_t {
    POSTED_CAPABILITIES = 0,
    POSTED_JOBENTRIES = 1,
    POSTED_KVS = 2,
    POSTED_OPERATION_ENTRIES = 3,
    RSI_BACKENDJOBS_AVAILABLE = 4,
    RSI_CAPABILITIESMANAGEMENT_AVAILABLE = 5,
    RSI_ONLINEKVS_AVAILABLE = 6,
    RSI_SERVICEMANAGEMENT_AVALAIABLE = 7,
    RSI_TOKENMANAGEMENT_AVAILABLE = 8,
    SUBSCRIBED_KVS = 9,
    SUBSCRIBED_PRIVACYSETUP = 10,
    SUBSCRIBED_SERVICEMANAGEMENT = 11,
    SUBSCRIBED_TOKENMANAGEMENT = 12,
    SUBSCRIBED_BACKENDJOBS = 13,
    CONNECTED_NETWORKING = 14,
};

// A request to make a condition true or false; also a required (condition, value) of a table.
using ConditionRequest = std::pair<ConditionName, bool>;

std::string toString(ConditionName name);

// One condition with its current value.
class Condition {
public:
    static std::map<ConditionName, std::string> const m_conditionStrings;

    explicit Condition(ConditionName name) : m_name(name) {}

    void setValue(bool value) { m_value = value; }
    bool getValue() const { return m_value; }
    ConditionName getName() const { return m_name; }

private:
    ConditionName m_name;
    bool m_value = false;
};

}  // namespace qel::onlineservices::framework::core
