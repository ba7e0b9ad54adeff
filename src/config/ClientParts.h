// Everything the factory builds for one client, in one place, so that the condition actions can
// capture what they need and the client owns it all through them.
//
// Contract: filled once by the factory, read-only afterwards. The lists are shared so that the
// actions that capture them keep them alive as long as the condition manager lives.
#pragma once

#include "core/ConditionManager.h"
#include "core/Notifier.h"
#include "rsi/RSIClientWrapper.h"
#include "rsi/RSIEntry.h"
#include "rsi/RSIEntryManager.h"
#include "rsi/RSIServiceManager.h"
#include "subscriptions/SubscriptionManager.h"

#include <memory>
#include <vector>

namespace qel::onlineservices::framework::core {

using EntryList = std::vector<std::shared_ptr<RSIEntry>>;
using ItemList = SubscriptionManager::Items;

struct ClientParts {
    std::shared_ptr<RSIClientWrapper> rsiClient;
    std::shared_ptr<RSIServiceManager> serviceManager;
    std::shared_ptr<RSIEntryManager> entryManager;
    std::shared_ptr<Notifier> notifier;
    std::shared_ptr<SubscriptionManager> subscriptionManager;

    std::shared_ptr<ItemList> privacyItems = std::make_shared<ItemList>();
    std::shared_ptr<ItemList> serviceItems = std::make_shared<ItemList>();
    std::shared_ptr<ItemList> tokenItems = std::make_shared<ItemList>();
    std::shared_ptr<ItemList> kvsItems = std::make_shared<ItemList>();
    std::shared_ptr<ItemList> jobItems = std::make_shared<ItemList>();

    std::shared_ptr<EntryList> kvsEntries = std::make_shared<EntryList>();
    std::shared_ptr<EntryList> capabilityEntries = std::make_shared<EntryList>();
    std::shared_ptr<EntryList> jobEntries = std::make_shared<EntryList>();
    std::shared_ptr<EntryList> operationEntries = std::make_shared<EntryList>();
};

// The actions that fulfil each condition request, bound to `parts`.
std::unique_ptr<ConditionActionTable> buildConditionActions(ClientParts const& parts);

}  // namespace qel::onlineservices::framework::core
