// The framework's RSI wrapper over the host client, against the backend simulator on loopback.
#include "BackendSimulator.h"
#include "IntegrationSupport.h"
#include "dataformats/Value.h"
#include "support/ManualClock.h"
#include "support/RsiWorkerDriver.h"

#include <gtest/gtest.h>

#include <algorithm>

namespace qel::test {
namespace {

using namespace rsi::client;
using onlineservices::framework::core::RSIClientWrapper;
using sim::backend::BackendSimulator;

constexpr std::uint32_t FIRST_RETRY_MS = 10000;

class WrapperOverHostTest : public ::testing::Test {
protected:
    void SetUp() override {
        ASSERT_TRUE(simulator.loadScenario(SCENARIO));
        ASSERT_TRUE(simulator.start());
        wrapper = startWrapperOver(std::make_shared<host::HostRsiClient>(clientOptions(simulator.port())));
    }
    void TearDown() override { wrapper->stop(); }

    unsigned subscribeToToken() {
        unsigned const id = wrapper->subscribe(tokenSubscription(), handler, handler);
        EXPECT_TRUE(handler->responses.waitFor(1));
        EXPECT_TRUE(handler->events.waitFor(1));
        return id;
    }

    // The error event arms the retry on the reader thread just after logging "Retrying in 10s", so a
    // step may land before the retry was stamped; a later step then makes it due.
    bool stepUntilResponses(std::size_t count) {
        if (!log.waitFor("Retrying in 10s")) {
            return false;
        }
        for (int step = 0; step < 100 && handler->responses.size() < count; ++step) {
            clock.advance(FIRST_RETRY_MS + 1);
            if (!runWorkerLoop(*wrapper)) {
                return false;
            }
        }
        return handler->responses.waitFor(count);
    }

    LogWaiter log;
    ManualClock clock;
    BackendSimulator simulator;
    std::shared_ptr<RSIClientWrapper> wrapper;
    std::shared_ptr<RecordingHandler> handler = std::make_shared<RecordingHandler>();
};

TEST_F(WrapperOverHostTest, RequestsTravelAsHttpAndAnswersComeBack) {
    auto read = makeRequest(RequestTypeGetElement, 3, "servicemanagement", "services");
    read->queryParameters = {{"serviceHostSystem", "005F"}, {"name", "demoservice"}};
    auto create = makeRequest(RequestTypePostResource, 5, "capabilitiesmanagement", "capabilities");
    auto body = std::make_unique<dataformats::data::Object>();
    body->setNew("name", std::make_unique<dataformats::data::String>("seat heating"));
    create->data = std::move(body);
    wrapper->sendRequest(read, handler);
    wrapper->sendRequest(create, handler);

    ASSERT_TRUE(handler->responses.waitFor(2));
    auto const responses = handler->responses.all();
    EXPECT_EQ(responses[0].status, 200);
    EXPECT_EQ(responses[0].id, 3u);
    EXPECT_NE(responses[0].body.find("https://demo.example.com"), std::string::npos);
    EXPECT_EQ(responses[0].body.find("0033"), std::string::npos) << "the query filters the list";
    EXPECT_EQ(responses[1].status, 201);
    EXPECT_EQ(responses[1].id, 5u);
    EXPECT_EQ(responses[1].location.rfind("/capabilitiesmanagement/capabilities/", 0), 0u);

    auto const received = simulator.received();
    ASSERT_EQ(received.size(), 2u);
    EXPECT_EQ(received[0].target, "/servicemanagement/services/?name=demoservice&serviceHostSystem=005F");
    EXPECT_EQ(received[1].method, "POST");
    EXPECT_EQ(received[1].body, R"({"name":"seat heating"})");
}

TEST_F(WrapperOverHostTest, EventsArriveInOrderAsSentAndUnsubscribeIsSentOnce) {
    unsigned const id = subscribeToToken();
    auto const response = handler->responses.all().at(0);
    EXPECT_EQ(response.stateValue, RequestStateSucceeded);
    EXPECT_EQ(response.body, R"({"status":"ok"})");

    for (auto const* token : {"second", "third", "fourth"}) {
        simulator.rotateToken("tok-1", token);
    }
    ASSERT_TRUE(handler->events.waitFor(4));
    auto const events = handler->events.all();
    EXPECT_EQ(events[1].body,
              R"({"data":{"id":"tok-1","name":"demoservice","token":"second",)"
              R"("uri":"/tokenmanagement/accessTokens/tok-1"},"type":"data"})");
    EXPECT_NE(events[2].body.find(R"("token":"third")"), std::string::npos);
    EXPECT_NE(events[3].body.find(R"("token":"fourth")"), std::string::npos);
    EXPECT_EQ(events[3].id, 2u);

    wrapper->unsubscribe(id);
    ASSERT_TRUE(drainWorker(*wrapper));
    ASSERT_TRUE(simulator.waitForReceived(2));
    EXPECT_EQ(simulator.received()[1].method, "unsubscribe");
    EXPECT_EQ(simulator.subscriptionCount(), 0u);
    wrapper->unsubscribe(id);
    ASSERT_TRUE(drainWorker(*wrapper));
    EXPECT_EQ(simulator.received().size(), 2u);
}

TEST_F(WrapperOverHostTest, Injected500IsRetriedOnTheClockAnd504IsNot) {
    simulator.failNext("/onlinekvs/items/kvs-1", 500);
    wrapper->sendRequest(kvsRead(), handler);
    ASSERT_TRUE(drainWorker(*wrapper));
    EXPECT_TRUE(handler->responses.all().empty());
    clock.advance(FIRST_RETRY_MS);
    ASSERT_TRUE(runWorkerLoop(*wrapper));
    EXPECT_EQ(simulator.received().size(), 1u) << "not due at exactly the delay";
    clock.advance(1);
    ASSERT_TRUE(runWorkerLoop(*wrapper));
    ASSERT_TRUE(handler->responses.waitFor(1));
    EXPECT_EQ(handler->responses.all()[0].status, 200);
    EXPECT_NE(handler->responses.all()[0].body.find(R"("value":"v1")"), std::string::npos);

    simulator.failNext("/onlinekvs/items/kvs-1", 504);
    wrapper->sendRequest(kvsRead(), handler);
    ASSERT_TRUE(handler->responses.waitFor(2));
    EXPECT_EQ(handler->responses.all()[1].status, 504);
    clock.advance(10 * FIRST_RETRY_MS);
    ASSERT_TRUE(runWorkerLoop(*wrapper));
    EXPECT_EQ(simulator.received().size(), 3u);
}

TEST_F(WrapperOverHostTest, ClosedWebSocketEndsInErrorEventAndResubscriptionAfterTheDelay) {
    subscribeToToken();
    EXPECT_EQ(simulator.closeAllWebSockets(), 1u);
    ASSERT_TRUE(log.waitFor("Subscription websocket closed"));
    EXPECT_EQ(log.count("Subscription websocket closed"), 1u);

    ASSERT_TRUE(stepUntilResponses(2));
    EXPECT_EQ(handler->responses.all()[1].stateValue, RequestStateSucceeded);
    ASSERT_TRUE(handler->events.waitFor(2));
    simulator.rotateToken("tok-1", "after-reconnect");
    ASSERT_TRUE(handler->events.waitFor(3));
    EXPECT_NE(handler->events.all()[2].body.find("after-reconnect"), std::string::npos);
}

TEST_F(WrapperOverHostTest, RequestMadeWhileTheBackendIsDownIsRetriedAndAnsweredOnceItIsBack) {
    subscribeToToken();
    std::uint16_t const port = simulator.port();
    simulator.stop();
    ASSERT_TRUE(log.waitFor("Subscription websocket closed"));
    simulator.clearReceived();

    wrapper->sendRequest(kvsRead(), handler);
    ASSERT_TRUE(log.waitFor("RSI request failed with HTTP 503"));
    ASSERT_TRUE(drainWorker(*wrapper));
    EXPECT_EQ(handler->responses.size(), 1u) << "a request that was not sent is retried, not answered";
    clock.advance(FIRST_RETRY_MS + 1);
    ASSERT_TRUE(runWorkerLoop(*wrapper));
    EXPECT_EQ(log.count("RSI request failed with HTTP 503"), 2u) << "still down: tried again on the schedule";

    ASSERT_TRUE(simulator.start(port));
    ASSERT_TRUE(stepUntilResponses(3));  // the retried request and the re-subscription
    auto const responses = handler->responses.all();
    auto const answered = std::find_if(responses.begin(), responses.end(),
                                       [](Received const& response) { return response.id == 4; });
    ASSERT_NE(answered, responses.end());
    EXPECT_EQ(answered->status, 200);
    EXPECT_NE(answered->body.find(R"("value":"v1")"), std::string::npos);
    simulator.rotateToken("tok-1", "back-again");
    ASSERT_TRUE(handler->events.waitFor(3));
    EXPECT_NE(handler->events.all().back().body.find("back-again"), std::string::npos);
    std::size_t reads = 0;
    for (auto const& received : simulator.received()) {
        reads += received.target == "/onlinekvs/items/kvs-1" ? 1 : 0;
    }
    EXPECT_EQ(reads, 1u);
}

TEST_F(WrapperOverHostTest, MisbehavingBackendIsLoggedAndSurvived) {
    subscribeToToken();
    simulator.sendRawToWebSockets("this is not json");
    simulator.sendRawToWebSockets(R"({"type":"greeting"})");
    simulator.sendRawToWebSockets(R"({"type":"event","subscriptionId":999,"event":{"type":"data","data":1}})");
    ASSERT_TRUE(log.waitFor("Dropped event for unknown subscription 999"));
    EXPECT_EQ(log.count("Refused WebSocket message that is not valid JSON (16 bytes)"), 1u);
    EXPECT_EQ(log.count("Refused WebSocket message of unknown type 'greeting'"), 1u);

    simulator.rotateToken("tok-1", "still-flowing");
    ASSERT_TRUE(handler->events.waitFor(2));
    EXPECT_EQ(handler->events.all().size(), 2u);

    simulator.sendRawToWebSockets(std::string(100 * 1024, 'x'));
    ASSERT_TRUE(log.waitFor("Refused WebSocket message that is not valid JSON (102400 bytes)"));
    simulator.rotateToken("tok-1", "flowing-after-a-big-message");
    ASSERT_TRUE(handler->events.waitFor(3));

    simulator.sendRawToWebSockets(std::string(300 * 1024, 'x'));
    ASSERT_TRUE(log.waitFor("Refused WebSocket message over 262144 bytes; closing the connection"));
    ASSERT_TRUE(log.waitFor("Subscription websocket closed"));
}

}  // namespace
}  // namespace qel::test
