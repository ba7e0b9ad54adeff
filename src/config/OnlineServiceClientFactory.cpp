#include <onlineservices/framework/OnlineServiceClientFactory.h>

#include "common/Error.h"
#include "common/Logger.h"
#include "common/Thread.h"
#include "config/ClientEntries.h"
#include "config/ClientParts.h"
#include "config/ConfigReader.h"
#include "config/FrameworkConfig.h"
#include "core/ConditionTables.h"
#include "core/OnlineServiceClient.h"
#include "core/RunStateTables.h"
#include "subscriptions/JobItem.h"
#include "subscriptions/KVSItem.h"
#include "subscriptions/PrivacyItem.h"
#include "subscriptions/ServiceItem.h"
#include "subscriptions/TokenItem.h"

#include <algorithm>
#include <chrono>
#include <exception>
#include <functional>
#include <future>

namespace qel::onlineservices::framework::core {

using qel::common::errors::Error;
using qel::common::logging::Logger;
using qel::common::logging::LogLevel;
using qel::common::system::currentThreadName;
using qel::common::system::handOverTeardown;
using qel::common::system::isFrameworkThread;
using qel::common::system::joinRetiredThreads;
using qel::common::system::makeThreadOwner;
using qel::common::system::makeThreadOwnerNotifying;

std::string const OnlineServiceClientFactory::SERVICE_CAPABILITIES = "capabilitiesmanagement";
std::string const OnlineServiceClientFactory::RESOURCE_CAPABILITIES = "capabilities";
std::string const OnlineServiceClientFactory::SERVICE_BACKENDJOBS = "backendjobs";
std::string const OnlineServiceClientFactory::RESOURCE_JOBENTRY = "jobEntries";
std::string const OnlineServiceClientFactory::RESOURCE_OPERATIONENTRY = "operationEntries";
std::string const OnlineServiceClientFactory::SERVICE_KVSITEM = "onlinekvs";
std::string const OnlineServiceClientFactory::RESOURCE_KVSITEM = "items";
std::string const OnlineServiceClientFactory::DIAGNOSIS_ADDRESS_VOK = "005F";

namespace {

std::shared_ptr<FrameworkConfig> mergeConfig(OnlineServiceClientConfig const& config) {
    auto merged = std::make_shared<FrameworkConfig>();
    merged->serviceIds = config.serviceIds;
    merged->auxiliaryIds = config.auxiliaryIds;
    merged->jobEntries = config.jobEntries;
    merged->operationEntries = config.operationEntries;
    merged->capabilities = config.capabilities;
    merged->kvsItems = config.kvsItems;
    merged->iniFilePath = config.iniFilePath;
    ConfigReader const reader(merged->iniFilePath);
    static_cast<FrameworkSubConfig&>(*merged) = reader.getSubConfig();
    if (!merged->serviceIds.empty()) {
        // Both loggers carry the application's name; the status logger loses its suffix on purpose.
        merged->loggerName = "framework_" + merged->serviceIds.front();
        merged->statusLoggerName = merged->loggerName;
    }
    return merged;
}

void addServiceItems(ClientParts& parts, Logger const& logger, std::string const& serviceId) {
    parts.privacyItems->push_back(std::make_shared<PrivacyItem>(logger, parts.notifier, parts.rsiClient, serviceId));
    auto service = std::make_shared<ServiceItem>(logger, parts.notifier, parts.rsiClient, serviceId);
    parts.subscriptionManager->addService(serviceId, service);
    parts.serviceItems->push_back(service);
    auto token = std::make_shared<TokenItem>(logger, parts.notifier, parts.rsiClient, serviceId);
    service->setTokenHandler(token);
    parts.tokenItems->push_back(token);
}

void addKvsItem(ClientParts& parts, Logger const& logger, std::string const& key) {
    auto item = std::make_shared<KVSItem>(logger, parts.notifier, parts.rsiClient, key);
    parts.subscriptionManager->addKVSItem(key, item);
    parts.kvsItems->push_back(item);
    parts.kvsEntries->push_back(makeKvsEntry(key, std::weak_ptr<IURIHandler>(item)));
}

ClientParts buildParts(std::shared_ptr<FrameworkConfig> const& config, Logger const& logger,
                       std::function<void()> rsiClientDeleted) {
    ClientParts parts;
    // Owners of threads that an event handler may hold last, on a framework thread.
    parts.rsiClient =
        makeThreadOwnerNotifying<RSIClientWrapper>("RSIClientWrapper", std::move(rsiClientDeleted), config);
    parts.serviceManager = std::make_shared<RSIServiceManager>(config, parts.rsiClient);
    parts.entryManager = std::make_shared<RSIEntryManager>(config, parts.rsiClient);
    parts.notifier = std::make_shared<Notifier>(config);
    parts.subscriptionManager =
        makeThreadOwner<SubscriptionManager>("SubscriptionManager", config, parts.notifier, parts.rsiClient);
    for (auto const& serviceId : config->serviceIds) {
        addServiceItems(parts, logger, serviceId);
    }
    for (auto const& key : config->kvsItems) {
        addKvsItem(parts, logger, key);
    }
    CapabilityKeyParser capabilityKeys;
    for (auto const& [key, value] : config->capabilities) {
        parts.capabilityEntries->push_back(capabilityKeys.makeEntry(key, value));
    }
    // Null entries are refused once everything is built; they get neither item nor entry.
    for (auto const& job : config->jobEntries) {
        if (job) {
            parts.jobItems->push_back(std::make_shared<JobItem>(logger, parts.notifier, parts.rsiClient, job->name));
            parts.jobEntries->push_back(makeJobEntry(*job));
        }
    }
    for (auto const& operation : config->operationEntries) {
        if (operation) {
            parts.operationEntries->push_back(makeOperationEntry(*operation));
        }
    }
    return parts;
}

ClientWorkload workloadOf(ClientParts const& parts) {
    ClientWorkload workload;
    workload.hasServiceItems = !parts.serviceItems->empty();
    workload.hasTokenItems = !parts.tokenItems->empty();
    workload.hasPrivacyItems = !parts.privacyItems->empty();
    workload.hasJobItems = !parts.jobItems->empty();
    workload.hasKvsItems = !parts.kvsItems->empty();
    workload.hasKvsEntries = !parts.kvsEntries->empty();
    workload.hasJobEntries = !parts.jobEntries->empty();
    workload.hasOperationEntries = !parts.operationEntries->empty();
    workload.hasCapabilities = !parts.capabilityEntries->empty();
    return workload;
}

void refuseNullEntries(FrameworkConfig const& config) {
    auto const isNull = [](auto const& entry) { return !entry; };
    if (std::any_of(config.jobEntries.begin(), config.jobEntries.end(), isNull)) {
        Error("job entry object invalid!").raise();
    }
    if (std::any_of(config.operationEntries.begin(), config.operationEntries.end(), isNull)) {
        Error("operation entry object invalid!").raise();
    }
}

// Builds the client on `parts` and starts its RSI worker; raises an Error on a refused configuration.
std::shared_ptr<OnlineServiceClient> assemble(std::shared_ptr<FrameworkConfig> const& config, ClientParts const& parts,
                                              std::shared_ptr<ConditionManager> const& conditions) {
    refuseNullEntries(*config);
    auto client = std::make_shared<OnlineServiceClient>(config, parts.notifier);
    client->setRsiClient(parts.rsiClient);
    client->setConditionManager(conditions);
    client->setSubscriptionManager(parts.subscriptionManager);
    auto usecases = buildUsecaseTable();
    auto transitions = buildTransitionTable();
    auto skips = buildSkipConditions(*config, workloadOf(parts));
    client->setUsecases(usecases);
    client->setTransitions(transitions);
    client->setSkipConditions(skips);
    parts.notifier->addListener(std::weak_ptr<IServiceDataListener>(client));
    conditions->addConditionListener(client);
    parts.rsiClient->start();
    return client;
}

std::shared_ptr<OnlineServiceClient> create(std::shared_ptr<FrameworkConfig> const& config, Logger const& logger,
                                            std::function<void()> rsiClientDeleted) {
    ClientParts const parts = buildParts(config, logger, std::move(rsiClientDeleted));
    auto conditions = std::make_shared<ConditionManager>(config, buildConditionActions(parts), buildPreconditionTable());
    if (config->serviceIds.empty()) {
        logger << LogLevel::Error << "Could not create OnlineServiceClient, no serviceIds given in OnlineServiceClientConfig";
        return nullptr;
    }
    try {
        auto client = assemble(config, parts, conditions);
        logger << LogLevel::Info << "Successfully created OnlineServiceClient";
        return client;
    } catch (Error const& error) {
        logger << LogLevel::Error << "OnlineServiceClient creation failed: " << error.what();
    }
    return nullptr;
}

// The handle the application owns. Framework threads hold the client only for a call; letting
// the handle go on the application's thread stops the client and joins its threads there. Let go
// on a framework thread (a listener dropped the last handle), the same is done by a teardown
// thread, since no thread can join itself.
std::shared_ptr<IOnlineServiceClient> applicationHandle(std::shared_ptr<OnlineServiceClient> const& client,
                                                        std::shared_future<void> rsiClientGone) {
    return std::shared_ptr<IOnlineServiceClient>(client.get(), [owned = client, rsiClientGone](IOnlineServiceClient*) mutable {
        auto releaseAndDrop = [owned = std::move(owned)]() mutable {
            owned->release();
            owned.reset();
        };
        if (!isFrameworkThread()) {
            releaseAndDrop();
            // An RSI event handler may have held the RSI client last for a moment; its teardown
            // thread (and the reader thread it joins) end before the release returns.
            rsiClientGone.wait_for(std::chrono::seconds(2));
            joinRetiredThreads();
            return;
        }
        handOverTeardown("Client handle released on framework thread " + currentThreadName() +
                             ": a listener must not drop the application's last handle; teardown handed to another thread",
                         std::move(releaseAndDrop));
    });
}

}  // namespace

std::shared_ptr<IOnlineServiceClient> OnlineServiceClientFactory::createOnlineServiceClient(
    OnlineServiceClientConfig const& config) {
    try {
        auto const merged = mergeConfig(config);
        Logger logger(merged->loggerName);
        auto rsiClientDeleted = std::make_shared<std::promise<void>>();
        std::shared_future<void> rsiClientGone = rsiClientDeleted->get_future().share();
        auto client = create(merged, logger, [rsiClientDeleted] { rsiClientDeleted->set_value(); });
        printConfig(logger, merged);
        return client ? applicationHandle(client, std::move(rsiClientGone)) : nullptr;
    } catch (std::exception const& error) {
        // Nothing may escape to the application; a failure of the platform is a failed creation.
        Logger(config.serviceIds.empty() ? "framework" : "framework_" + config.serviceIds.front())
            << LogLevel::Error << "OnlineServiceClient creation failed: " << error.what();
    }
    return nullptr;
}

void OnlineServiceClientFactory::printConfig(Logger& logger, std::shared_ptr<FrameworkConfig> const& config) {
    auto const line = [&logger](std::string const& text) { logger << LogLevel::Info << text; };
    auto const flag = [](bool value) { return std::string(value ? "true" : "false"); };
    FrameworkConfig const& c = *config;
    line("+--------------------------- Client Configuration ---------------------------------");
    line("|  ServiceIds: " + serialize(c.serviceIds));
    line("|  KVS items: " + serialize(c.kvsItems));
    line(std::string("|  Capabilities: ") + (c.capabilities.empty() ? "<none>" : ""));
    for (auto const& [key, value] : c.capabilities) {
        line("|     " + key + " : " + value);
    }
    line(std::string("|  JobEntries: ") + (c.jobEntries.empty() ? "<none>" : ""));
    for (auto const& job : c.jobEntries) {
        if (job) {
            line("|     " + job->name);
            line("|        ServiceId: " + job->serviceId);
            line("|        PayloadSchema: " + job->payloadSchema);
        }
    }
    line(std::string("|  OperationEntries: ") + (c.operationEntries.empty() ? "<none>" : ""));
    for (auto const& operation : c.operationEntries) {
        if (operation) {
            line("|     " + operation->name);
            line("|        ServiceId: " + operation->serviceId);
            line("|        PayloadFormat: " + operation->payloadFormat);
            line("|        PayloadSchema: " + operation->payloadSchema);
        }
    }
    line("|");
    line("|  Inifile path: " + c.iniFilePath);
    line("+--------------------------- Ini Configuration -----------------------------------");
    line("|  Skip capabilities: " + flag(c.skipCapabilities));
    line("|  Skip jobEntries: " + flag(c.skipJobEntries));
    line("|  Skip operationEntries: " + flag(c.skipOperationEntries));
    line("|  Skip servicelist subscription: " + flag(c.skipServiceSubscription));
    line("|  Skip token subscription: " + flag(c.skipTokenSubscription));
    line("|  Skip privacy setup subscription: " + flag(c.skipPrivacySubscription));
    line("|  Skip KVS subscription: " + flag(c.skipKVSSubscription));
    line("|  Skip Job subscription: " + flag(c.skipJobSubscription));
    line("|  Skip Networking registration: " + flag(c.skipNetworkingRegistration));
    line("|");
    line("|  RSI Subscription retry count: " + std::to_string(c.tryCountSubscriptions));
    line("|  RSI Request retry count: " + std::to_string(c.tryCountRequests));
    line("|");
    line("|  Ignore disable reasons: " + flag(c.ignoreDisableReasons));
    line("+----------------------------------------------------------------------------------");
}

std::string OnlineServiceClientFactory::serialize(std::vector<std::string> const& values) {
    if (values.empty()) {
        return "<none>";
    }
    std::string text = values.front();
    for (std::size_t i = 1; i < values.size(); ++i) {
        text += ", " + values[i];
    }
    return text;
}

std::vector<std::string> OnlineServiceClientFactory::_split(std::string const& text, char delimiter) {
    std::vector<std::string> pieces;
    std::size_t start = 0;
    while (start < text.size()) {
        auto const end = text.find(delimiter, start);
        if (end == std::string::npos) {
            pieces.push_back(text.substr(start));
            break;
        }
        pieces.push_back(text.substr(start, end - start));
        start = end + 1;
    }
    return pieces;
}

}  // namespace qel::onlineservices::framework::core
