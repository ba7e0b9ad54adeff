#include "config/ClientParts.h"

namespace qel::onlineservices::framework::core {

namespace {

using C = ConditionName;
using Callback = std::shared_ptr<IUpdateConditionCallback>;

void bindPost(ConditionActionTable& table, C name, std::shared_ptr<RSIEntryManager> const& manager,
              std::shared_ptr<EntryList> const& entries) {
    table[{name, true}] = [manager, entries](Callback callback) { manager->post(*entries, callback); };
}

void bindAvailability(ConditionActionTable& table, C name, std::shared_ptr<RSIServiceManager> const& manager,
                      std::string const& service) {
    table[{name, true}] = [manager, service](Callback callback) { manager->subscribe(service, callback); };
}

void bindSubscription(ConditionActionTable& table, C name, std::shared_ptr<SubscriptionManager> const& manager,
                      std::shared_ptr<ItemList> const& items) {
    table[{name, true}] = [manager, items](Callback callback) { manager->subscribe(*items, callback); };
    table[{name, false}] = [manager, items](Callback callback) { manager->unsubscribe(*items, callback); };
}

}  // namespace

std::unique_ptr<ConditionActionTable> buildConditionActions(ClientParts const& parts) {
    auto table = std::make_unique<ConditionActionTable>();
    auto& t = *table;
    bindPost(t, C::POSTED_CAPABILITIES, parts.entryManager, parts.capabilityEntries);
    bindPost(t, C::POSTED_JOBENTRIES, parts.entryManager, parts.jobEntries);
    bindPost(t, C::POSTED_OPERATION_ENTRIES, parts.entryManager, parts.operationEntries);
    bindPost(t, C::POSTED_KVS, parts.entryManager, parts.kvsEntries);

    bindAvailability(t, C::RSI_CAPABILITIESMANAGEMENT_AVAILABLE, parts.serviceManager, "capabilitiesmanagement");
    bindAvailability(t, C::RSI_SERVICEMANAGEMENT_AVALAIABLE, parts.serviceManager, "servicemanagement");
    bindAvailability(t, C::RSI_ONLINEKVS_AVAILABLE, parts.serviceManager, "onlinekvs");
    bindAvailability(t, C::RSI_TOKENMANAGEMENT_AVAILABLE, parts.serviceManager, "tokenmanagement");
    bindAvailability(t, C::RSI_BACKENDJOBS_AVAILABLE, parts.serviceManager, "backendjobs");

    auto const& subscriptions = parts.subscriptionManager;
    bindSubscription(t, C::SUBSCRIBED_SERVICEMANAGEMENT, subscriptions, parts.serviceItems);
    bindSubscription(t, C::SUBSCRIBED_PRIVACYSETUP, subscriptions, parts.privacyItems);
    bindSubscription(t, C::SUBSCRIBED_KVS, subscriptions, parts.kvsItems);
    bindSubscription(t, C::SUBSCRIBED_TOKENMANAGEMENT, subscriptions, parts.tokenItems);
    bindSubscription(t, C::SUBSCRIBED_BACKENDJOBS, subscriptions, parts.jobItems);

    t[{C::CONNECTED_NETWORKING, true}] = [subscriptions](Callback callback) {
        subscriptions->connectNetworking(callback);
    };
    t[{C::CONNECTED_NETWORKING, false}] = [subscriptions](Callback callback) {
        subscriptions->disconnectNetworking(callback);
    };
    return table;
}

}  // namespace qel::onlineservices::framework::core
