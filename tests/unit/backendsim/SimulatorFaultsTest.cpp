#include "BackendSimulator.h"

#include <boost/asio/connect.hpp>
#include <boost/asio/ip/tcp.hpp>
#include <boost/beast/core.hpp>
#include <boost/beast/http.hpp>
#include <boost/beast/websocket.hpp>
#include <gtest/gtest.h>

#include <cstdint>
#include <memory>
#include <string>
#include <vector>

namespace qel::test {
namespace {

namespace beast = boost::beast;
namespace http = beast::http;
namespace websocket = beast::websocket;
namespace net = boost::asio;
using tcp = net::ip::tcp;
using sim::backend::BackendSimulator;

// A bare WebSocket client on the simulator's subscription path, read only when the test says so.
class RawWebSocket {
public:
    RawWebSocket(net::io_context& ioc, std::uint16_t port) : m_ws(ioc) {
        m_ws.next_layer().connect(tcp::endpoint(net::ip::address_v4::loopback(), port));
        m_ws.handshake("127.0.0.1", "/subscriptions");
        m_ws.read_message_max(64 * 1024 * 1024);
    }
    void send(std::string const& text) { m_ws.write(net::buffer(text)); }
    // The next message, or empty with `error` set once the connection ended.
    std::string read(beast::error_code& error) {
        beast::flat_buffer buffer;
        m_ws.read(buffer, error);
        return error ? std::string() : beast::buffers_to_string(buffer.data());
    }
    websocket::close_reason const& closeReason() const { return m_ws.reason(); }

private:
    websocket::stream<tcp::socket> m_ws;
};

class SimulatorFaultsTest : public ::testing::Test {
protected:
    void SetUp() override {
        ASSERT_TRUE(simulator.loadScenario(R"({"kvs":[{"id":"kvs-1","name":"units","value":"metric"}]})"));
        ASSERT_TRUE(simulator.start());
    }

    // Status of a GET on a fresh connection.
    unsigned get(std::string const& target) {
        tcp::socket socket(ioc);
        socket.connect(tcp::endpoint(net::ip::address_v4::loopback(), simulator.port()));
        http::request<http::empty_body> request{http::verb::get, target, 11};
        request.set(http::field::host, "127.0.0.1");
        http::write(socket, request);
        beast::flat_buffer buffer;
        http::response<http::string_body> answer;
        http::read(socket, buffer, answer);
        return answer.result_int();
    }

    net::io_context ioc;
    BackendSimulator simulator;
};

TEST_F(SimulatorFaultsTest, CloseFollowsTheMessagesAlreadySentAndDropsLaterOnes) {
    RawWebSocket client(ioc, simulator.port());
    // Large enough to stay in flight while the client does not read.
    std::vector<std::string> const messages{std::string(3 * 1024 * 1024, 'a'), std::string(3 * 1024 * 1024, 'b'),
                                            std::string(3 * 1024 * 1024, 'c')};
    for (auto const& message : messages) {
        EXPECT_EQ(simulator.sendRawToWebSockets(message), 1u);
    }
    EXPECT_EQ(simulator.closeAllWebSockets(), 1u);
    simulator.closeAllWebSockets();  // a second close while the first waits is no fault
    simulator.sendRawToWebSockets("too late");

    beast::error_code error;
    for (auto const& expected : messages) {
        std::string const received = client.read(error);
        ASSERT_FALSE(error) << error.message();
        EXPECT_EQ(received.size(), expected.size());
        EXPECT_EQ(received, expected);
    }
    EXPECT_EQ(client.read(error), "");
    EXPECT_EQ(error, websocket::error::closed);
    EXPECT_EQ(client.closeReason().code, websocket::close_code::going_away);
}

TEST_F(SimulatorFaultsTest, SurvivesItsFaultsAndAStopWithClientsConnectedThenServesAgain) {
    simulator.failNext("/onlinekvs/items", 500, 2);
    EXPECT_EQ(get("/onlinekvs/items"), 500u);
    EXPECT_EQ(get("/onlinekvs/items"), 500u);
    EXPECT_EQ(get("/onlinekvs/items"), 200u);

    simulator.clearReceived();
    std::vector<std::unique_ptr<RawWebSocket>> clients;
    for (int i = 0; i < 3; ++i) {
        clients.push_back(std::make_unique<RawWebSocket>(ioc, simulator.port()));
        clients.back()->send(R"({"type":"subscribe","ref":1,"path":"/onlinekvs/items/kvs-1","query":{}})");
    }
    // A request held by a delay, writes in flight and a close waiting for them, then the stop.
    simulator.delayAnswers("/onlinekvs/items", 60000);
    tcp::socket held(ioc);
    held.connect(tcp::endpoint(net::ip::address_v4::loopback(), simulator.port()));
    http::request<http::empty_body> request{http::verb::get, "/onlinekvs/items", 11};
    request.set(http::field::host, "127.0.0.1");
    http::write(held, request);
    ASSERT_TRUE(simulator.waitForReceived(4));  // three subscribes and the held request
    EXPECT_EQ(simulator.subscriptionCount(), 3u);
    EXPECT_EQ(simulator.sendRawToWebSockets(std::string(4 * 1024 * 1024, 'x')), 3u);
    EXPECT_EQ(simulator.sendRawToWebSockets(R"({"type":"event","subscriptionId":1,"event":{}})"), 3u);
    EXPECT_EQ(simulator.closeAllWebSockets(), 3u);
    simulator.stop();
    EXPECT_FALSE(simulator.isRunning());
    EXPECT_EQ(simulator.subscriptionCount(), 0u);

    // Every client sees its connection end; none hangs.
    for (auto const& client : clients) {
        beast::error_code error;
        while (!error) {
            client->read(error);
        }
    }
    beast::flat_buffer buffer;
    http::response<http::string_body> answer;
    beast::error_code heldError;
    http::read(held, buffer, answer, heldError);
    EXPECT_TRUE(heldError) << "the held request was never answered";

    // Faults and records survive the restart; connections do not.
    std::uint16_t const port = simulator.port();
    ASSERT_TRUE(simulator.start(port));
    simulator.delayAnswers("/onlinekvs/items", 0);
    simulator.failNext("/onlinekvs/items", 503);
    EXPECT_EQ(get("/onlinekvs/items"), 503u);
    EXPECT_EQ(get("/onlinekvs/items"), 200u);
    RawWebSocket fresh(ioc, simulator.port());
    fresh.send(R"({"type":"subscribe","ref":9,"path":"/onlinekvs/items/kvs-1","query":{}})");
    beast::error_code error;
    std::string const ack = fresh.read(error);
    ASSERT_FALSE(error) << error.message();
    EXPECT_NE(ack.find(R"("ref":9)"), std::string::npos) << ack;
    EXPECT_NE(ack.find(R"("status":200)"), std::string::npos) << ack;
}

}  // namespace
}  // namespace qel::test
