#include "SubscriptionTestRig.h"

#include "subscriptions/KVSItem.h"

#include <chrono>
#include <future>
#include <thread>

namespace qel::test {
namespace {

using namespace rsi::client;
using core::KVSUpdateStatus;

class KVSItemTest : public SubscriptionTestRig {
protected:
    std::shared_ptr<core::KVSItem> item = makeItem<core::KVSItem>("color");
    Match const element{RequestTypeSubscribeElement, "onlinekvs"};

    void subscribeToItem() {
        item->handleURI("k-1");
        subscribe(*item);
    }
};

TEST_F(KVSItemTest, ValuesReachTheListenerOnTheQueueAndUpdatesWaitForTheSubscription) {
    EXPECT_EQ(item->update("green"), KVSUpdateStatus::KVS_SERVICE_UNAVAILABLE);
    EXPECT_EQ(rsi->requests().size(), 0u);
    subscribeToItem();
    ASSERT_EQ(rsi->subscriptions().size(), 1u);  // the element alone, never the whole resource
    EXPECT_EQ(rsi->subscriptions()[0].request.element, "k-1");
    EXPECT_EQ(subscribed.all(), std::vector<bool>{true});

    push(*item, element, R"({"id":"k-1","value":"red","upToDate":true,"newJobFromBackend":true})");
    EXPECT_EQ(listener->whats(), std::vector<std::string>{"kvs color red"});  // and no read
    push(*item, element, R"([{"id":"k-1","value":"wrapped","upToDate":true}])");  // not unwrapped here
    EXPECT_EQ(listener->heard.size(), 1u);
    EXPECT_TRUE(log.contains(LogLevel::Info, "(Key-Value-Storage/color) Received event without "
                                             "newJobFromBackend/upToDate, no reaction"));
    EXPECT_EQ(log.countPrefix(LogLevel::Warning, "(Key-Value-Storage/color) Array received"), 0u);

    rsi->replyTo({RequestTypeGetResource, "onlinekvs"},
                 Reply(200, R"({"data":[{"id":"k-0","value":"no"},{"id":"k-1","value":"blue"}]})"), 1);
    push(*item, element, R"({"id":"k-1","newJobFromBackend":true})");
    drain();
    ASSERT_TRUE(listener->heard.waitFor(2));
    EXPECT_EQ(listener->whats()[1], "kvs color blue");
    EXPECT_TRUE(listener->allOn("kvs:color"));
    EXPECT_EQ(requestsOfType(RequestTypeGetResource).size(), 1u);

    EXPECT_EQ(item->update("green"), KVSUpdateStatus::UPDATE_OK);
    auto const writes = requestsOfType(RequestTypePostElement);
    ASSERT_EQ(writes.size(), 1u);
    EXPECT_EQ(writes[0].element, "k-1");
    EXPECT_EQ(writes[0].body, R"({"value":"green"})");
}

TEST_F(KVSItemTest, ElementIsSubscribedUnderTheIdKnownAtThatTime) {
    subscribe(*item);  // no id yet: the element is subscribed under the empty one
    ASSERT_EQ(rsi->subscriptions().size(), 1u);
    EXPECT_EQ(rsi->subscriptions()[0].request.element, "");
    item->handleURI("k-2");  // taken for later requests; the subscription stays as it is
    drain();
    EXPECT_EQ(rsi->subscriptions().size(), 1u);
    EXPECT_TRUE(rsi->unsubscribed().empty());
    EXPECT_TRUE(log.contains(LogLevel::Info, "(Key-Value-Storage/color) Element set: k-2"));
}

// The one test that waits out the update time-out.
TEST_F(KVSItemTest, UpdateWithoutAnswerGivesUpAfterThreeSecondsAndItsLateAnswerCompletesNoOtherUpdate) {
    subscribeToItem();
    rsi->replyTo({RequestTypePostElement}, Reply(200).heldFor(60000), 1);
    rsi->replyTo({RequestTypePostElement}, Reply(201), 1);
    auto const start = std::chrono::steady_clock::now();
    EXPECT_EQ(item->update("green"), KVSUpdateStatus::UPDATE_REQUEST_FAILED);
    auto const waited = std::chrono::steady_clock::now() - start;
    EXPECT_GE(waited, std::chrono::milliseconds(core::KVSItem::UPDATE_REQUEST_TIMEOUT_MS));
    EXPECT_LT(waited, std::chrono::milliseconds(core::KVSItem::UPDATE_REQUEST_TIMEOUT_MS + 2000));
    EXPECT_TRUE(log.contains(LogLevel::Error, "Update request timeout after 3000ms"));

    // The next update waits behind the first, which the backend then accepts late.
    auto next = std::async(std::launch::async, [this] { return item->update("blue"); });
    auto const limit = std::chrono::steady_clock::now() + std::chrono::seconds(5);
    while (wrapper->queuedJobCount() == 0 && std::chrono::steady_clock::now() < limit) {
        std::this_thread::yield();
    }
    ASSERT_EQ(wrapper->queuedJobCount(), 1u);
    rsi->releaseHeld();
    EXPECT_EQ(next.get(), KVSUpdateStatus::UPDATE_OK);
    // Its own answer only: the first update's late one completed nothing.
    EXPECT_EQ(log.countPrefix(LogLevel::Info, "(Key-Value-Storage/color) Update KVS item succeeded."), 1u);
    EXPECT_EQ(requestsOfType(RequestTypePostElement).size(), 2u);
}

}  // namespace
}  // namespace qel::test
