// The merged configuration every component of one client shares read-only.
#pragma once

#include <onlineservices/framework/OnlineServiceClientConfig.h>

#include <cstdint>
#include <memory>
#include <string>
#include <utility>
#include <vector>

namespace qel::onlineservices::framework {

// The settings that come from the framework ini file, with their defaults.
struct FrameworkSubConfig {
    std::string rsiServiceIpAddress;         // RSI_SERVICE / IP_ADDRESS
    std::uint16_t rsiServicePort = 0;        // RSI_SERVICE / PORT
    bool skipServiceSubscription = false;    // SUBSCRIPTION_CONFIG / SKIP_SERVICE_SUBSCRIPTION
    bool skipTokenSubscription = false;      // SUBSCRIPTION_CONFIG / SKIP_TOKEN_SUBSCRIPTION
    bool skipPrivacySubscription = false;    // SUBSCRIPTION_CONFIG / SKIP_PRIVACY_SUBSCRIPTION
    bool skipJobSubscription = false;        // SUBSCRIPTION_CONFIG / SKIP_JOB_SUBSCRIPTION
    bool skipKVSSubscription = false;        // SUBSCRIPTION_CONFIG / SKIP_KVS
    bool skipNetworkingRegistration = false; // SUBSCRIPTION_CONFIG / SKIP_NETWORKING_REGISTRATION
    bool skipCapabilities = false;           // SUBSCRIPTION_CONFIG / SKIP_CAPABILITIES
    bool skipJobEntries = false;             // SUBSCRIPTION_CONFIG / SKIP_JOB_ENTRIES
    bool skipOperationEntries = false;       // SUBSCRIPTION_CONFIG / SKIP_OPERATION_ENTRIES
    std::int32_t tryCountSubscriptions = 3;  // RSI_CONFIG / TRY_COUNT_SUBSCRIPTIONS, at least 1
    std::int32_t tryCountRequests = 3;       // RSI_CONFIG / TRY_COUNT_REQUESTS, at least 1
    bool ignoreDisableReasons = false;       // TEST_CONFIG / IGNORE_DISABLE_REASONS
    std::string loggerName = "framework";
    std::string statusLoggerName = "framework_status";
};

// The ini settings plus the application's own description.
struct FrameworkConfig : FrameworkSubConfig {
    std::vector<std::string> serviceIds;
    std::vector<std::string> auxiliaryIds;
    std::vector<std::shared_ptr<core::JobEntry>> jobEntries;
    std::vector<std::shared_ptr<core::OperationEntry>> operationEntries;
    std::vector<std::pair<std::string, std::string>> capabilities;
    std::vector<std::string> kvsItems;
    std::string iniFilePath;  // as the application passed it
};

}  // namespace qel::onlineservices::framework
