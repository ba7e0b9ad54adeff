// Shutting the RSI worker down while its call hangs on a backend that accepts connections and
// never answers: the call is cut short, not waited out, and its job reports as cancelled.
#include "IntegrationSupport.h"
#include "RawPeer.h"
#include "rsi/RSIClientWrapper.h"
#include "rsi/SharedRsiClient.h"

#include <gtest/gtest.h>

#include <boost/beast/websocket.hpp>

#include <chrono>

namespace qel::test {
namespace {

using namespace rsi::client;
using onlineservices::framework::FrameworkConfig;
using onlineservices::framework::core::RSIClientWrapper;

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

class StalledBackendTest : public ::testing::Test {
protected:
    void startWrapper(std::uint16_t port) {
        client = std::make_shared<host::HostRsiClient>(clientOptions(port, LONG_TIMEOUT_MS));
        SetSharedRsiClient(client);
        auto config = std::make_shared<FrameworkConfig>();
        config->loggerName = "framework_stalled";
        wrapper = std::make_shared<RSIClientWrapper>(config);
        SetSharedRsiClient(nullptr);  // the wrapper keeps its client
        wrapper->start();
    }

    // Milliseconds on a steady clock.
    template <typename Action>
    static std::int64_t timed(Action&& action) {
        auto const started = std::chrono::steady_clock::now();
        action();
        return std::chrono::duration_cast<std::chrono::milliseconds>(std::chrono::steady_clock::now() - started)
            .count();
    }

    std::shared_ptr<RecordingHandler> handler = std::make_shared<RecordingHandler>();
    std::shared_ptr<host::HostRsiClient> client;
    std::shared_ptr<RSIClientWrapper> wrapper;
};

TEST_F(StalledBackendTest, StopCutsAnUnansweredRequestShortAndReportsItCancelled) {
    RawPeer backend(stayQuiet);
    startWrapper(backend.port());
    wrapper->sendRequest(makeRequest(RequestTypeGetElement, 4, "onlinekvs", "items", "kvs-1"), handler);
    wrapper->subscribe(makeRequest(RequestTypeSubscribeElement, 2, "tokenmanagement", "accessTokens", "tok-1"),
                       handler, handler);
    ASSERT_TRUE(backend.waitForConnections(1));

    EXPECT_LT(timed([&] { wrapper->stop(); }), SHUTDOWN_BOUND_MS);
    auto const responses = handler->responses.all();
    ASSERT_EQ(responses.size(), 1u) << "the queued subscription is dropped unheard";
    EXPECT_EQ(responses[0].stateValue, RequestStateSucceeded);
    EXPECT_EQ(responses[0].status, 0) << "an empty response";
    EXPECT_EQ(responses[0].body, "null");
    EXPECT_LT(timed([&] {
                  wrapper.reset();
                  client.reset();
              }),
              SHUTDOWN_BOUND_MS);
}

TEST_F(StalledBackendTest, DestroyingTheWorkerCutsAStalledWebSocketHandshakeShort) {
    RawPeer backend(stayQuiet);
    startWrapper(backend.port());
    wrapper->subscribe(makeRequest(RequestTypeSubscribeElement, 2, "tokenmanagement", "accessTokens", "tok-1"),
                       handler, handler);
    ASSERT_TRUE(backend.waitForConnections(1));

    EXPECT_LT(timed([&] {
                  wrapper.reset();
                  client.reset();
              }),
              SHUTDOWN_BOUND_MS);
    auto const responses = handler->responses.all();
    ASSERT_EQ(responses.size(), 1u);
    EXPECT_EQ(responses[0].stateValue, 0);
    EXPECT_EQ(responses[0].status, 0);
}

TEST_F(StalledBackendTest, StopCutsShortASubscriptionThatIsNeverAcknowledged) {
    auto backend = std::make_unique<RawPeer>(acceptWebSocketThenStayQuiet);
    startWrapper(backend->port());
    wrapper->subscribe(makeRequest(RequestTypeSubscribeElement, 2, "tokenmanagement", "accessTokens", "tok-1"),
                       handler, handler);
    ASSERT_TRUE(backend->waitForConnections(1));

    EXPECT_LT(timed([&] { wrapper->stop(); }), SHUTDOWN_BOUND_MS);
    auto const responses = handler->responses.all();
    ASSERT_EQ(responses.size(), 1u);
    EXPECT_EQ(responses[0].stateValue, 0);
    EXPECT_EQ(responses[0].status, 0);
    backend.reset();  // lets the client's WebSocket go without a close handshake to wait for
}

}  // namespace
}  // namespace qel::test
