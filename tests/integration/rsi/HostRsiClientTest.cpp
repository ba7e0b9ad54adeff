// The host RSI client on its own against the backend simulator: time-outs, bounds, refusals.
#include "BackendSimulator.h"
#include "IntegrationSupport.h"

#include <gtest/gtest.h>

#include <chrono>
#include <future>

namespace qel::test {
namespace {

using namespace rsi::client;
using host::HostRsiClient;
using sim::backend::BackendSimulator;

class HostRsiClientTest : public ::testing::Test {
protected:
    void SetUp() override {
        ASSERT_TRUE(simulator.loadScenario(SCENARIO));
        ASSERT_TRUE(simulator.start());
    }

    Response get(HostRsiClient& client, RequestState* state = nullptr) {
        Response response;
        RequestState const result = client.request(*kvsRead(), response);
        if (state != nullptr) {
            *state = result;
        }
        return response;
    }

    std::uint32_t subscribe(HostRsiClient& client, std::shared_ptr<Request> const& request, Response& response,
                            RequestState& state) {
        return client.subscribe(*request, response, state, handler, 0, 0);
    }

    LogWaiter log;
    BackendSimulator simulator;
    std::shared_ptr<RecordingHandler> handler = std::make_shared<RecordingHandler>();
};

TEST_F(HostRsiClientTest, SlowOrOversizedAnswersAreAnsweredLikeAGatewayTimeout) {
    HostRsiClient client(clientOptions(simulator.port(), 300));
    simulator.delayAnswers("/onlinekvs/items/kvs-1", 3000);
    RequestState state;
    EXPECT_EQ(get(client, &state).getStatus(), 504);
    EXPECT_EQ(state.value, RequestStateFailed);
    EXPECT_EQ(state.note, "no answer within 300 ms");
    EXPECT_EQ(log.count("GET /onlinekvs/items/kvs-1: no answer within 300 ms; answering 504"), 1u);

    simulator.delayAnswers("/onlinekvs/items/kvs-1", 0);
    Response const recovered = get(client, &state);
    EXPECT_EQ(recovered.getStatus(), 200) << "a fresh connection after the time-out";
    EXPECT_EQ(recovered.getId(), 4u);
    EXPECT_EQ(state.value, RequestStateSucceeded);

    simulator.setKvsValue("kvs-1", std::string(100 * 1024, 'x'));
    EXPECT_EQ(get(client, &state).getStatus(), 504);
    EXPECT_EQ(state.note, "answer over 65536 bytes refused");
    simulator.setKvsValue("kvs-1", "small again");
    EXPECT_EQ(get(client).getStatus(), 200);
}

TEST_F(HostRsiClientTest, RefusedSubscriptionsCarryTheBackendsVerdict) {
    HostRsiClient client(clientOptions(simulator.port()));
    Response response;
    RequestState state;
    auto const token = tokenSubscription();
    simulator.failNext("/tokenmanagement/accessTokens/tok-1", 503);
    EXPECT_EQ(subscribe(client, token, response, state), 0u);
    EXPECT_EQ(state.value, RequestStateFailed);
    EXPECT_EQ(response.getStatus(), 503);
    EXPECT_EQ(response.getId(), 2u);

    Response unknown;
    auto const missing = makeRequest(RequestTypeSubscribeElement, 2, "tokenmanagement", "accessTokens", "nope");
    EXPECT_EQ(subscribe(client, missing, unknown, state), 0u);
    EXPECT_EQ(unknown.getStatus(), 404);
    client.unsubscribe(12345);

    Response accepted;
    EXPECT_NE(subscribe(client, token, accepted, state), 0u);
    EXPECT_EQ(state.value, RequestStateSucceeded);
    EXPECT_EQ(accepted.getStatus(), 200);
}

TEST_F(HostRsiClientTest, AvailabilityEventsFollowTheService) {
    HostRsiClient client(clientOptions(simulator.port()));
    auto root = makeRequest(RequestTypeSubscribeRoot, 0, "");
    root->queryParameters = {{"name", "onlinekvs"}};
    Response response;
    RequestState state;
    std::uint32_t const id = subscribe(client, root, response, state);
    ASSERT_NE(id, 0u);
    ASSERT_TRUE(handler->events.waitFor(1));
    simulator.setServiceAvailable("onlinekvs", false);
    ASSERT_TRUE(handler->events.waitFor(2));
    auto const events = handler->events.all();
    EXPECT_EQ(events[0].body, R"({"data":[{"name":"onlinekvs","uri":"/onlinekvs/"}],"type":"data"})");
    EXPECT_EQ(events[1].body, R"({"data":[],"type":"data"})");
    EXPECT_EQ(simulator.received()[0].target, "/");
    EXPECT_NE(simulator.received()[0].body.find(R"("query":{"name":"onlinekvs"})"), std::string::npos);
}

TEST_F(HostRsiClientTest, RestartedBackendIsReachedAgainAndAMissingOneIsNotSent) {
    std::uint16_t const port = simulator.port();
    HostRsiClient client(clientOptions(port));
    EXPECT_EQ(get(client).getStatus(), 200);
    simulator.stop();
    ASSERT_TRUE(simulator.start(port));
    EXPECT_EQ(get(client).getStatus(), 200) << "the dead keep-alive connection is replaced";

    simulator.stop();
    RequestState state;
    EXPECT_EQ(get(client, &state).getStatus(), 503) << "a status the framework retries";
    EXPECT_EQ(state.value, RequestStateFailed);
    std::string const where = "127.0.0.1:" + std::to_string(port);
    EXPECT_EQ(state.note.rfind("not sent, connect to " + where + " failed: ", 0), 0u) << state.note;
    Response response;
    auto const token = tokenSubscription();
    EXPECT_EQ(subscribe(client, token, response, state), 0u);
    EXPECT_EQ(response.getStatus(), 503);
    EXPECT_EQ(state.note.rfind("not sent, WebSocket connect to " + where + " failed: ", 0), 0u) << state.note;
}

TEST_F(HostRsiClientTest, HangingNameLookupIsCutOffByTheTimeOutAndNothingIsSent) {
    std::promise<void> release;
    std::shared_future<void> const answered = release.get_future().share();
    auto options = clientOptions(simulator.port(), 300);
    options.endpoint.host = "backend.test";
    options.lookup = [answered](std::string const& /*host*/) {
        answered.wait();
        return host::NameResolver::Result{{"127.0.0.1"}, ""};
    };
    HostRsiClient client(options);
    RequestState state;
    auto const started = std::chrono::steady_clock::now();
    EXPECT_EQ(get(client, &state).getStatus(), 503);
    EXPECT_LT(std::chrono::steady_clock::now() - started, std::chrono::seconds(3));
    EXPECT_EQ(state.note, "not sent, name lookup failed: lookup of backend.test did not finish within 300 ms");
    EXPECT_TRUE(simulator.received().empty());

    release.set_value();
    EXPECT_EQ(get(client).getStatus(), 200) << "the late answer of the lookup is used";
}

// Holds the last reference to the client and lets go of it while handling an event.
class LastOwnerHandler : public EventHandler {
public:
    using EventHandler::handleEvent;
    void handleEvent(RequestState const& /*state*/, Response const& /*response*/) override {
        if (++m_events == 2) {
            client.reset();
            released.set_value();
        }
    }

    std::shared_ptr<HostRsiClient> client;
    std::promise<void> released;

private:
    int m_events = 0;  // touched on the reader thread only
};

TEST_F(HostRsiClientTest, ClientReleasedDuringAnEventShutsDownCleanly) {
    auto const handler = std::make_shared<LastOwnerHandler>();
    handler->client = std::make_shared<HostRsiClient>(clientOptions(simulator.port()));
    auto released = handler->released.get_future();
    Response response;
    RequestState state;
    auto const token = tokenSubscription();
    ASSERT_NE(handler->client->subscribe(*token, response, state, handler, 0, 0), 0u);
    simulator.rotateToken("tok-1");
    ASSERT_EQ(released.wait_for(std::chrono::milliseconds(WAIT_LIMIT_MS)), std::future_status::ready);

    HostRsiClient next(clientOptions(simulator.port()));
    Response again;
    EXPECT_NE(subscribe(next, token, again, state), 0u) << "the orphaned reader thread was joined on the way";
}

}  // namespace
}  // namespace qel::test
