#include "SubscriptionTestRig.h"

#include "subscriptions/KVSItem.h"
#include "subscriptions/SubscriptionManager.h"

namespace qel::test {
namespace {

// Keeps the callback it was handed, so that the test answers for it.
class HeldItem : public core::SubscriptionBaseItem {
public:
    using SubscriptionBaseItem::SubscriptionBaseItem;
    void processData(Ref const&) override {}
    void subscribe(core::RSISubscriptionCallback const& callback) override { answer = callback.getFunction(); }
    void unsubscribe(core::RSISubscriptionCallback const& callback) override { answer = callback.getFunction(); }
    core::RSISubscriptionCallback::Function answer;
};

class SubscriptionManagerTest : public SubscriptionTestRig {
protected:
    core::SubscriptionManager manager{config, notifier, wrapper};
    std::vector<std::shared_ptr<HeldItem>> held;

    // Subscribes (or unsubscribes) `count` items, answers for them in turn, returns what the condition heard.
    std::vector<bool> fold(bool subscribe, std::vector<bool> const& answers) {
        held.clear();
        core::SubscriptionManager::Items items;
        for (std::size_t i = 0; i < answers.size(); ++i) {
            held.push_back(std::make_shared<HeldItem>(logger, notifier, wrapper));
            items.push_back(held.back());
        }
        auto const condition = std::make_shared<RecordingCallback>();
        subscribe ? manager.subscribe(items, condition) : manager.unsubscribe(items, condition);
        for (std::size_t i = 0; i < answers.size(); ++i) {
            held[i]->answer(answers[i]);
        }
        return condition->values.all();
    }
};

TEST_F(SubscriptionManagerTest, ItemAnswersAreFoldedIntoOneAnswerPerCall) {
    EXPECT_EQ(fold(true, {}), std::vector<bool>{true});
    EXPECT_EQ(fold(false, {}), std::vector<bool>{false});
    EXPECT_EQ(fold(true, {true, true, true}), std::vector<bool>{true});
    EXPECT_EQ(fold(true, {true, false, true}), std::vector<bool>{false});
    EXPECT_EQ(fold(false, {false, false}), std::vector<bool>{false});
    EXPECT_EQ(fold(false, {true, false}), std::vector<bool>{true});
}

TEST_F(SubscriptionManagerTest, KvsUpdatesGoToTheItemRegisteredLastUnderTheKey) {
    EXPECT_EQ(manager.updateKVSItem("color", "red"), core::KVS_ITEM_NOT_FOUND);
    EXPECT_TRUE(log.contains(LogLevel::Error, "No KVS item with key <color> existing. Ignoring call."));
    manager.addKVSItem("color", makeItem<core::KVSItem>("first"));
    manager.addKVSItem("color", makeItem<core::KVSItem>("second"));
    EXPECT_EQ(manager.updateKVSItem("color", "red"), core::KVS_SERVICE_UNAVAILABLE);
    EXPECT_TRUE(log.contains(LogLevel::Info, "(Key-Value-Storage/second) Update KVS item. Value: red"));
}

TEST_F(SubscriptionManagerTest, ShutdownJoinsTheQueuesOfTheItemsItHasSeenOnly) {
    auto const subscribedItem = makeItem<core::KVSItem>("subscribed");
    auto const registeredItem = makeItem<core::KVSItem>("registered");
    auto const otherItem = makeItem<core::KVSItem>("other");
    subscribedItem->handleURI("k-1");
    manager.subscribe({subscribedItem}, std::make_shared<RecordingCallback>());
    manager.addKVSItem("registered", registeredItem);
    manager.shutdown();
    EXPECT_FALSE(subscribedItem->waitForQueue(1000));  // the queue refuses work once joined
    EXPECT_FALSE(registeredItem->waitForQueue(1000));
    EXPECT_TRUE(otherItem->waitForQueue(1000));
    manager.shutdown();  // again: nothing left to do
}

}  // namespace
}  // namespace qel::test
