#include "SubscriptionTestRig.h"

#include "dataformats/Json.h"
#include "subscriptions/PrivacyItem.h"
#include "support/ManualClock.h"

#include <atomic>
#include <cstdint>
#include <future>
#include <thread>
#include <utility>

namespace qel::test {
namespace {

using namespace rsi::client;

// The base behaviour alone: records every element it is handed, and the thread it ran on.
class ProbeItem : public core::SubscriptionBaseItem {
public:
    ProbeItem(common::logging::Logger const& logger, std::shared_ptr<core::Notifier> const& notifier,
              std::shared_ptr<core::IRSIClientWrapper> const& wrapper)
        : SubscriptionBaseItem(logger, notifier, wrapper) {
        describe("nav", "probes", "things", {{"host", "005F"}, {"name", "nav"}}, "Probe", "prb");
    }
    void processData(Ref const& element) override {
        seen.add({dataformats::json::stringify(element.get()), common::system::currentThreadName()});
    }
    void handleEventElement(std::shared_ptr<Value> const& value) override {
        eventNodes.add(reinterpret_cast<std::uintptr_t>(value.get()));
        SubscriptionBaseItem::handleEventElement(value);
    }
    // Keeps the queue thread busy until `gate` opens.
    void holdQueue(std::shared_future<void> gate) {
        queueWork([gate] { gate.wait(); });
    }
    Recorder<RecordingListener::Heard> seen;
    Recorder<std::uintptr_t> eventNodes;  // where each element event's data lived
};

class SubscriptionBaseItemTest : public SubscriptionTestRig {
protected:
    std::shared_ptr<ProbeItem> item = makeItem<ProbeItem>();
    Match const resource{RequestTypeSubscribeResource};
    Match const element{RequestTypeSubscribeElement};

    // Handed over as temporaries, which reach the same handling as references do.
    void answer(std::uint32_t id, bool succeeded) {
        Response response;
        response.setId(id);
        item->handleResponse(RequestState(succeeded ? 1 : 0, "refused"), std::move(response));
    }
};

TEST_F(SubscriptionBaseItemTest, ResourceEventSelectsTheElementEachConfirmationIsReportedAndUnsubscribeEndsBoth) {
    subscribe(*item);
    ASSERT_EQ(rsi->subscriptions().size(), 1u);
    EXPECT_EQ(rsi->subscriptions()[0].request.queryParameters,
              (std::map<std::string, std::string>{{"host", "005F"}, {"name", "nav"}}));
    EXPECT_EQ(subscribed.size(), 0u);  // a confirmed resource alone is not reported

    push(*item, resource,
         R"([{"id":"e1","name":"nav","host":"0A"},{"id":"e2","name":"x"},{"id":"e3","host":"005F","name":"nav"}])");
    ASSERT_EQ(item->seen.size(), 1u);
    EXPECT_EQ(item->seen.all()[0].what, R"({"host":"005F","id":"e3","name":"nav"})");
    EXPECT_EQ(item->seen.all()[0].thread, "prb:nav");
    EXPECT_TRUE(log.contains(LogLevel::Error,
                             "(Probe/nav) RSI Event received with 3 elements. Should not happen. Filtering again."));
    drain();
    auto const elementRequest = rsi->subscriptions().back().request;
    EXPECT_EQ(elementRequest.type, RequestTypeSubscribeElement);
    EXPECT_EQ(elementRequest.requestId, 2u);
    EXPECT_EQ(elementRequest.element, "e3");
    EXPECT_EQ(subscribed.all(), std::vector<bool>{true});

    push(*item, resource, R"([{"id":"e3","name":"radio"}])");  // one element is taken, filter or not
    push(*item, resource, R"([{"id":"x","name":"radio"},{"id":"y","name":"nav"}])");
    EXPECT_EQ(item->seen.size(), 2u);
    EXPECT_EQ(subscribed.all(), (std::vector<bool>{true, true}));
    EXPECT_EQ(rsi->subscriptions().size(), 2u);

    // Unsubscribing ends both subscriptions, the element's first, and answers false.
    std::uint32_t const resourceId = rsi->lastSubscriptionId(resource);
    std::uint32_t const elementId = rsi->lastSubscriptionId(element);
    Recorder<bool> released;
    item->unsubscribe(core::RSISubscriptionCallback{[&](bool v) { released.add(v); }});
    drain();
    EXPECT_EQ(rsi->unsubscribed(), (std::vector<std::uint32_t>{elementId, resourceId}));
    EXPECT_EQ(released.all(), (std::vector<bool>{false, false, false}));  // element, resource, the final answer
}

TEST_F(SubscriptionBaseItemTest, FailureReportsFalseOnlyForFlagsThatWereSet) {
    ManualClock clock;  // the wrapper's own retry of the refused subscription never comes due
    rsi->replyTo(resource, Reply().withState(0, "refused"));
    subscribe(*item);
    answer(1, false);
    EXPECT_EQ(subscribed.size(), 0u);
    EXPECT_TRUE(log.contains(LogLevel::Error,
                             "(Probe/nav) Subscription to resource  failed. Aborting subscription attempt."));

    answer(1, true);
    answer(2, true);
    answer(1, false);  // both flags fall: one false each
    EXPECT_EQ(subscribed.all(), (std::vector<bool>{true, false, false}));
    EXPECT_FALSE(item->isElementSubscribed());
    drain();
    EXPECT_TRUE(rsi->unsubscribed().empty());  // a failure ends nothing at the wrapper
}

TEST_F(SubscriptionBaseItemTest, EventDataReachesTheQueueUncopiedAndOutlivesTheResponse) {
    // No subscribe first: only an unsubscribe makes events stale.
    std::promise<void> open;
    item->holdQueue(open.get_future().share());
    std::uintptr_t received = 0;
    {
        Response response;
        response.setId(2);
        response.setData(dataformats::json::parse(R"({"type":"data","data":{"id":"e1","value":"blue"}})"));
        received = reinterpret_cast<std::uintptr_t>(response.getData(false));
        item->handleEvent(RequestState(RequestStateSucceeded, ""), response);
    }  // the RSI thread is done with the response before the queue reads the event
    open.set_value();
    ASSERT_TRUE(item->waitForQueue(5000));
    EXPECT_EQ(item->eventNodes.all(), std::vector<std::uintptr_t>{received});
    ASSERT_EQ(item->seen.size(), 1u);
    EXPECT_EQ(item->seen.all()[0].what, R"({"id":"e1","value":"blue"})");
    EXPECT_TRUE(
        log.contains(LogLevel::Info, R"((Probe/nav) Event: {"data":{"id":"e1","value":"blue"},"type":"data"})"));
}

TEST(RSISubscriptionCallback, AFunctionThatReplacesItselfFinishesItsCall) {
    core::RSISubscriptionCallback callback;
    auto const heard = std::make_shared<std::vector<bool>>();
    callback.setFunction([&callback, heard](bool value) {
        callback.setFunction(nullptr);  // lets go of the stored function while it runs...
        heard->push_back(value);        // ...whose captures are still needed here
    });
    EXPECT_TRUE(callback.call(true));
    EXPECT_FALSE(callback.call(false));
    EXPECT_EQ(*heard, std::vector<bool>{true});
}

TEST_F(SubscriptionBaseItemTest, ItemsDestroyedWhileEventsArriveGoQuietly) {
    for (int round = 0; round < 20; ++round) {
        auto victim = std::make_shared<ProbeItem>(logger, notifier, wrapper);
        subscribe(*victim);
        std::uint32_t const id = rsi->lastSubscriptionId(resource);
        std::atomic<bool> stop{false};
        std::thread pusher([&] {
            while (!stop.load() && rsi->pushData(id, R"([{"id":"e1"}])")) {
            }
        });
        EXPECT_TRUE(victim->seen.waitFor(1));
        victim->shutdown();  // as its owner does: the queue is joined while events keep coming
        victim.reset();      // the last owner may also be the pusher, inside the event handler
        stop.store(true);
        pusher.join();
    }
    EXPECT_TRUE(rsi->waitForUnsubscribeCalls(40));
}

// The privacy item confirms its element without a request of its own: the unsubscribe collector
// hears no confirmation from events still coming.
TEST_F(SubscriptionBaseItemTest, UnsubscribeCollectorHearsNoConfirmationWhileEventsKeepComing) {
    auto const privacy = makeItem<core::PrivacyItem>("nav");
    for (int round = 0; round < 30; ++round) {
        Recorder<bool> confirmed;
        privacy->subscribe(core::RSISubscriptionCallback{[&](bool value) { confirmed.add(value); }});
        drain();
        std::uint32_t const id = rsi->lastSubscriptionId(resource);
        std::atomic<bool> stop{false};
        std::thread pusher([&] {
            while (!stop.load() && rsi->pushData(id, R"([{"id":"g-1","name":"nav"}])")) {
            }
        });
        ASSERT_TRUE(confirmed.waitFor(1));
        Recorder<bool> released;
        privacy->unsubscribe(core::RSISubscriptionCallback{[&](bool value) { released.add(value); }});
        ASSERT_TRUE(privacy->waitForQueue(5000));  // events queued before the unsubscribe have run
        stop.store(true);
        pusher.join();
        ASSERT_TRUE(privacy->waitForQueue(5000));
        EXPECT_EQ(released.all(), (std::vector<bool>{false, false, false})) << "round " << round;
        EXPECT_EQ(confirmed.all(), std::vector<bool>{true}) << "round " << round;
    }
}

}  // namespace
}  // namespace qel::test
