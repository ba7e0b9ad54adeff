#include "dataformats/Value.h"
#include "rsi/RSIClientWrapper.h"
#include "support/InMemoryRsiClient.h"
#include "support/LogCapture.h"
#include "support/ManualClock.h"
#include "support/RsiRecorders.h"
#include "support/RsiWorkerDriver.h"

#include <gtest/gtest.h>

#include <chrono>
#include <thread>

namespace qel::test {
namespace {

using common::logging::LogLevel;
using onlineservices::framework::FrameworkConfig;
using onlineservices::framework::core::RSIClientWrapper;
using namespace rsi::client;

class RsiClientWrapperTest : public ::testing::Test {
protected:
    void SetUp() override { wrapper->start(); }
    void TearDown() override { wrapper->stop(); }

    unsigned int subscribeItems(std::string const& element = {}) {
        auto const type = element.empty() ? RequestTypeSubscribeResource : RequestTypeSubscribeElement;
        return wrapper->subscribe(makeRequest(type, 0, "onlinekvs", "items", element), handler, handler);
    }

    LogCapture log;
    ManualClock clock;
    InMemoryRsiClient::Installation rsi;
    std::shared_ptr<RSIClientWrapper> wrapper = std::make_shared<RSIClientWrapper>(std::make_shared<FrameworkConfig>());
    std::shared_ptr<RecordingHandler> handler = std::make_shared<RecordingHandler>();
};

TEST_F(RsiClientWrapperTest, DescribesRequestsOnOneLine) {
    auto const describe = [](std::shared_ptr<Request> const& request) {
        return RSIClientWrapper::getRequestDescription(*request);
    };
    auto get = makeRequest(RequestTypeGetElement, 0, "onlinekvs", "items", "abc");
    get->queryParameters = {{"b", "2"}, {"a", "1"}};
    EXPECT_EQ(describe(get), "GET onlinekvs/items/abc?a=1&b=2   ");
    auto create = makeRequest(RequestTypePostResource, 0, "capabilitiesmanagement", "capabilities");
    auto body = std::make_unique<dataformats::data::Object>();
    body->setNew("value", std::make_unique<dataformats::data::String>("1"));
    create->data = std::move(body);
    EXPECT_EQ(describe(create), R"(POST capabilitiesmanagement/capabilities   {"value":"1"})");
    EXPECT_EQ(describe(makeRequest(RequestTypePostElement, 0, "backendjobs", "jobs", "j1")),
              "POST backendjobs/jobs/j1   null");
    auto root = makeRequest(RequestTypeSubscribeRoot, 0, "ignored", "ignored");
    root->queryParameters["name"] = "onlinekvs";
    EXPECT_EQ(describe(root), "SUBSCRIBE /?name=onlinekvs   ");
    EXPECT_EQ(describe(makeRequest(RequestTypeGetService, 0, "svc", "r")), "GET svc/   ");
    EXPECT_EQ(describe(makeRequest(99, 0, "svc", "r")), "UNKNOWN <unknown uri>   ");
}

// The fourth try is closed between the client's acknowledgement and the worker's confirmation.
TEST_F(RsiClientWrapperTest, SubscriptionLostWhileARetryIsConfirmedResubscribesOnceOnAFreshSchedule) {
    rsi->replyTo({RequestTypeSubscribeResource}, Reply(503).withState(0, "refused"), 3);
    rsi->replyTo({RequestTypeSubscribeResource}, Reply(200).heldFor(60000), 1);
    subscribeItems();
    ASSERT_TRUE(rsi->waitForSubscribeCalls(1));
    ASSERT_TRUE(drainWorker(*wrapper));
    for (std::size_t tries = 2; tries <= 3; ++tries) {  // the 10 s delays
        clock.advance(10001);
        ASSERT_TRUE(runWorkerLoop(*wrapper));
        ASSERT_EQ(rsi->subscriptions().size(), tries);
    }
    clock.advance(10001);
    std::uint64_t const loop = wrapper->wakeWorker();
    ASSERT_TRUE(rsi->waitForSubscribeCalls(4));
    EXPECT_EQ(rsi->closeConnection(), 1u);
    rsi->releaseHeld();
    ASSERT_TRUE(wrapper->waitForWorkerLoop(loop, WORKER_WAIT_LIMIT_MS));
    ASSERT_TRUE(handler->responses.waitFor(1));
    EXPECT_EQ(handler->responses.all().back().stateValue, 1);

    clock.advance(10000);  // 10 s again, not the 30 s the failures had reached
    ASSERT_TRUE(runWorkerLoop(*wrapper));
    EXPECT_EQ(rsi->subscriptions().size(), 4u);
    clock.advance(1);
    ASSERT_TRUE(runWorkerLoop(*wrapper));
    EXPECT_EQ(rsi->subscriptions().size(), 5u);
    std::size_t const responses = handler->responses.size();
    EXPECT_TRUE(rsi->pushData(1002, "[]"));
    EXPECT_EQ(handler->events.size(), 1u);
    clock.advance(400000);
    ASSERT_TRUE(runWorkerLoop(*wrapper));
    EXPECT_EQ(rsi->subscriptions().size(), 5u);
    EXPECT_EQ(handler->responses.size(), responses);
}

TEST_F(RsiClientWrapperTest, CancelledRequestIsNotTriedAgainAndItsHandlerHearsIt) {
    rsi->replyTo({}, Reply(500), 1);
    auto const request = makeRequest(RequestTypePostElement, 0, "onlinekvs", "items", "k");
    wrapper->sendRequest(request, handler);
    ASSERT_TRUE(rsi->waitForRequests(1));
    ASSERT_TRUE(drainWorker(*wrapper));
    wrapper->cancelRequest(request);
    EXPECT_TRUE(log.contains(LogLevel::Info, "cancelRequest POST onlinekvs/items/k   null"));

    clock.advance(10001);
    ASSERT_TRUE(runWorkerLoop(*wrapper));
    ASSERT_TRUE(handler->responses.waitFor(1));
    EXPECT_EQ(handler->responses.all()[0].status, 0);
    EXPECT_TRUE(log.contains(LogLevel::Warning, "Cancel requested - abort request retry"));
    clock.advance(100000);
    ASSERT_TRUE(runWorkerLoop(*wrapper));
    EXPECT_EQ(rsi->requests().size(), 1u);
    EXPECT_EQ(handler->responses.size(), 1u);

    wrapper->cancelRequest(request);  // settled: nothing left to give up
    EXPECT_EQ(log.count(LogLevel::Info, "cancelRequest POST onlinekvs/items/k   null"), 1u);
}

TEST_F(RsiClientWrapperTest, RetriesEachLostSubscriptionOnceWhenDueNeverOneRemovedAndUnsubscribesEachOnce) {
    EXPECT_EQ(subscribeItems("kept"), 1u);
    unsigned int const removed = subscribeItems("removed");
    unsigned int const untouched = subscribeItems("untouched");
    ASSERT_TRUE(handler->responses.waitFor(3));
    // Client ids 1001..1003 in subscription order.
    EXPECT_TRUE(rsi->pushEvent(1001, R"({"type":"error"})"));
    EXPECT_TRUE(rsi->pushEvent(1002, R"({"type":"error"})"));
    clock.advance(4000);
    EXPECT_TRUE(rsi->pushEvent(1001, R"({"type":"error"})"));  // lost again: its 10 s start anew
    wrapper->unsubscribe(removed);
    ASSERT_TRUE(drainWorker(*wrapper));

    clock.advance(6001);  // 10001 ms after the first loss, 6001 ms after the second
    ASSERT_TRUE(runWorkerLoop(*wrapper));
    EXPECT_EQ(rsi->subscriptions().size(), 3u);

    clock.advance(4000);
    ASSERT_TRUE(runWorkerLoop(*wrapper));
    auto subscriptions = rsi->subscriptions();
    ASSERT_EQ(subscriptions.size(), 4u);
    EXPECT_EQ(subscriptions[3].request.element, "kept");

    clock.advance(100000);
    ASSERT_TRUE(runWorkerLoop(*wrapper));
    EXPECT_EQ(rsi->subscriptions().size(), 4u);
    EXPECT_EQ(handler->responses.size(), 4u);

    // Removing unsubscribes each at the client once, under the id it has there now.
    EXPECT_TRUE(rsi->pushData(1004, "[]"));
    wrapper->unsubscribe(1);
    wrapper->unsubscribe(untouched);
    ASSERT_TRUE(drainWorker(*wrapper));
    EXPECT_EQ(rsi->unsubscribed(), (std::vector<std::uint32_t>{1002, 1004, 1003}));
    EXPECT_FALSE(rsi->pushData(1004, "[]"));
    wrapper->unsubscribe(1);
    wrapper->unsubscribe(42);
    EXPECT_EQ(log.count(LogLevel::Warning, "no subscription found <wrapper> 1"), 1u);
    EXPECT_EQ(log.count(LogLevel::Warning, "no subscription found <wrapper> 42"), 1u);
    EXPECT_EQ(wrapper->queuedJobCount(), 0u);
}

TEST_F(RsiClientWrapperTest, RequestsFailingTogetherAreRetriedInTheirOrderOnceEachAfterTheirDelay) {
    rsi->replyTo({}, Reply(500), 3);
    for (char const* element : {"a", "b", "c"}) {
        wrapper->sendRequest(makeRequest(RequestTypeGetElement, 0, "onlinekvs", "items", element), handler);
    }
    ASSERT_TRUE(rsi->waitForRequests(3));
    ASSERT_TRUE(drainWorker(*wrapper));
    clock.advance(10000);
    ASSERT_TRUE(runWorkerLoop(*wrapper));
    EXPECT_EQ(rsi->requests().size(), 3u) << "not due at exactly the delay";
    EXPECT_EQ(handler->responses.size(), 0u);

    clock.advance(1);
    ASSERT_TRUE(runWorkerLoop(*wrapper));
    ASSERT_TRUE(handler->responses.waitFor(3));
    std::vector<std::string> elements;
    for (auto const& request : rsi->requests()) {
        elements.push_back(request.element);
    }
    EXPECT_EQ(elements, (std::vector<std::string>{"a", "b", "c", "a", "b", "c"}));
    EXPECT_EQ(handler->responses.all()[2].status, 200);

    clock.advance(100000);
    ASSERT_TRUE(runWorkerLoop(*wrapper));
    EXPECT_EQ(rsi->requests().size(), 6u);
    EXPECT_EQ(handler->responses.size(), 3u);
}

TEST_F(RsiClientWrapperTest, DisconnectDropsEverySubscriptionAndRestartsTheIds) {
    EXPECT_EQ(subscribeItems(), 1u);
    EXPECT_EQ(subscribeItems("e1"), 2u);
    ASSERT_TRUE(rsi->waitForSubscribeCalls(2));
    ASSERT_TRUE(drainWorker(*wrapper));

    wrapper->disconnect();
    ASSERT_TRUE(rsi->waitForUnsubscribeCalls(2));
    ASSERT_TRUE(drainWorker(*wrapper));
    auto unsubscribed = rsi->unsubscribed();
    std::sort(unsubscribed.begin(), unsubscribed.end());
    EXPECT_EQ(unsubscribed, (std::vector<std::uint32_t>{1001, 1002}));

    EXPECT_EQ(subscribeItems(), 1u);
    ASSERT_TRUE(rsi->waitForSubscribeCalls(3));
}

TEST_F(RsiClientWrapperTest, StopWithWorkInFlightReturnsPromptlyCallsNoHandlerAfterwardsAndRefusesNewWork) {
    rsi->setDefaultReply(Reply(200).heldFor(60000));
    wrapper->sendRequest(makeRequest(RequestTypeGetElement, 0, "onlinekvs", "items", "held"), handler);
    ASSERT_TRUE(rsi->waitForRequests(1));  // the worker is now inside the client
    std::size_t made = 0;
    for (int i = 0; i < 3; ++i) {
        wrapper->sendRequest(makeRequest(RequestTypeGetElement, 0, "onlinekvs", "items", "queued"), handler);
        made += subscribeItems() != 0 ? 1 : 0;
    }

    std::thread stopper([this] { wrapper->stop(); });
    while (subscribeItems() != 0) {
        ++made;
        std::this_thread::yield();  // until stop has shut the door
    }
    auto const released = std::chrono::steady_clock::now();
    rsi->releaseHeld();
    stopper.join();
    // Any queued job run after the release would have been held for a minute.
    EXPECT_LT(std::chrono::steady_clock::now() - released, std::chrono::seconds(30));

    EXPECT_EQ(handler->responses.size(), 1u);  // the one in flight, before stop returned
    EXPECT_EQ(rsi->requests().size(), 1u);
    EXPECT_TRUE(rsi->subscriptions().empty());
    // Nothing was made at the client; each subscription is still released there once, as id 0.
    EXPECT_EQ(rsi->unsubscribed(), std::vector<std::uint32_t>(made, 0u));
    EXPECT_EQ(rsi->closeConnection(), 0u);
    EXPECT_EQ(handler->events.size(), 0u);

    // Stopped: everything is refused, nothing is queued.
    wrapper->sendRequest(makeRequest(RequestTypeGetResource, 0, "onlinekvs", "items"), handler);
    wrapper->unsubscribe(1);
    EXPECT_EQ(wrapper->queuedJobCount(), 0u);
    EXPECT_TRUE(log.contains(LogLevel::Warning, "subscribe skipped because of shutdown: SUBSCRIBE onlinekvs/items   "));
    EXPECT_TRUE(log.contains(LogLevel::Warning, "sendRequest skipped because of shutdown: GET onlinekvs/items   "));
    EXPECT_FALSE(log.contains(LogLevel::Warning, "no subscription found <wrapper> 1"));
    EXPECT_EQ(rsi->requests().size(), 1u);
    EXPECT_EQ(rsi->unsubscribed(), std::vector<std::uint32_t>(made, 0u));
}

}  // namespace
}  // namespace qel::test
