// Shutting the RSI worker down while its call hangs on a backend that accepts connections and
// never answers: the call is cut short, not waited out, and its job reports as cancelled.
#include "IntegrationSupport.h"
#include "RawPeer.h"

#include <gtest/gtest.h>

#include <boost/beast/websocket.hpp>

namespace qel::test {
namespace {

using namespace rsi::client;

constexpr std::int64_t SHUTDOWN_BOUND_MS = 1500;
constexpr std::uint32_t LONG_TIMEOUT_MS = 20000;  // far beyond the bound: only cancelling can meet it

// Keeps each connection open and silent.
void stayQuiet(RawPeer::Socket& /*connection*/) {}

// Completes the WebSocket handshake, then reads nothing and answers nothing.
void acceptWebSocketThenStayQuiet(RawPeer::Socket& connection) {
    boost::beast::websocket::stream<RawPeer::Socket&> socket(connection);
    boost::system::error_code ignored;
    socket.accept(ignored);
}

struct StalledWorker {
    explicit StalledWorker(RawPeer::Serve serve) : backend(std::make_unique<RawPeer>(std::move(serve))) {}
    std::int64_t destroyMs() {
        return elapsedMs([&] {
            wrapper.reset();
            client.reset();
        });
    }

    std::unique_ptr<RawPeer> backend;
    std::shared_ptr<host::HostRsiClient> client =
        std::make_shared<host::HostRsiClient>(clientOptions(backend->port(), LONG_TIMEOUT_MS));
    std::shared_ptr<onlineservices::framework::core::RSIClientWrapper> wrapper = startWrapperOver(client);
    std::shared_ptr<RecordingHandler> handler = std::make_shared<RecordingHandler>();
};

TEST(StalledBackendTest, StopCutsAnUnansweredRequestShortAndReportsItCancelled) {
    StalledWorker stalled(stayQuiet);
    stalled.wrapper->sendRequest(kvsRead(), stalled.handler);
    stalled.wrapper->subscribe(tokenSubscription(), stalled.handler, stalled.handler);
    ASSERT_TRUE(stalled.backend->waitForConnections(1));

    EXPECT_LT(elapsedMs([&] { stalled.wrapper->stop(); }), SHUTDOWN_BOUND_MS);
    auto const responses = stalled.handler->responses.all();
    ASSERT_EQ(responses.size(), 1u) << "the queued subscription is dropped unheard";
    EXPECT_EQ(responses[0].stateValue, RequestStateSucceeded);
    EXPECT_EQ(responses[0].status, 0) << "an empty response";
    EXPECT_EQ(responses[0].body, "null");
    EXPECT_LT(stalled.destroyMs(), SHUTDOWN_BOUND_MS);
}

// A stalled connect of the WebSocket, cut by destroying the worker, and a subscription never
// acknowledged on an open WebSocket, cut by stopping it.
TEST(StalledBackendTest, ShutdownCutsAStalledSubscriptionShort) {
    for (bool const handshakeStalls : {true, false}) {
        SCOPED_TRACE(handshakeStalls ? "stalled handshake" : "unacknowledged subscription");
        StalledWorker stalled(handshakeStalls ? RawPeer::Serve(stayQuiet)
                                              : RawPeer::Serve(acceptWebSocketThenStayQuiet));
        stalled.wrapper->subscribe(tokenSubscription(), stalled.handler, stalled.handler);
        ASSERT_TRUE(stalled.backend->waitForConnections(1));

        if (handshakeStalls) {
            EXPECT_LT(stalled.destroyMs(), SHUTDOWN_BOUND_MS);
        } else {
            EXPECT_LT(elapsedMs([&] { stalled.wrapper->stop(); }), SHUTDOWN_BOUND_MS);
        }
        auto const responses = stalled.handler->responses.all();
        ASSERT_EQ(responses.size(), 1u);
        EXPECT_EQ(responses[0].stateValue, 0);
        EXPECT_EQ(responses[0].status, 0);
        stalled.backend.reset();  // lets the client's WebSocket go without a close handshake to wait for
    }
}

}  // namespace
}  // namespace qel::test
