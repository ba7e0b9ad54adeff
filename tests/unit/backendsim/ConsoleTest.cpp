#include "BackendSimulator.h"

#include <boost/asio/ip/tcp.hpp>
#include <boost/beast/core.hpp>
#include <boost/beast/http.hpp>
#include <boost/beast/websocket.hpp>
#include <gtest/gtest.h>
#include <nlohmann/json.hpp>

#include <chrono>
#include <functional>
#include <string>

namespace qel::test {
namespace {

namespace beast = boost::beast;
namespace http = beast::http;
namespace websocket = beast::websocket;
namespace net = boost::asio;
using tcp = net::ip::tcp;
using Json = nlohmann::json;
using sim::backend::BackendSimulator;

class BackendConsoleTest : public ::testing::Test {
protected:
    void SetUp() override {
        ASSERT_TRUE(simulator.loadScenario(
            R"({"services":[{"name":"nav","baseUrl":"https://nav"}],)"
            R"("kvs":[{"id":"kvs-1","name":"units","value":"metric"}]})"));
        ASSERT_TRUE(simulator.start());
    }

    // "status body" of one request on a fresh connection.
    std::string request(http::verb verb, std::string const& target, std::string const& body = {},
                        std::string const& origin = {}) {
        tcp::socket socket(ioc);
        socket.connect(tcp::endpoint(net::ip::address_v4::loopback(), simulator.port()));
        http::request<http::string_body> message{verb, target, 11};
        message.set(http::field::host, host());
        if (!origin.empty()) {
            message.set(http::field::origin, origin);
        }
        message.body() = body;
        message.prepare_payload();
        http::write(socket, message);
        beast::flat_buffer buffer;
        http::response<http::string_body> answer;
        http::read(socket, buffer, answer);
        return std::to_string(answer.result_int()) + " " + answer.body();
    }

    std::string host() const { return "127.0.0.1:" + std::to_string(simulator.port()); }

    net::io_context ioc;
    BackendSimulator simulator;
};

// A WebSocket client whose reads give up after a few seconds (real time, as a safety limit)
// instead of hanging the suite.
class Client {
public:
    Client(net::io_context& ioc, std::uint16_t port, char const* path) : m_ioc(ioc), m_ws(ioc) {
        m_ws.next_layer().connect(tcp::endpoint(net::ip::address_v4::loopback(), port));
        m_ws.handshake("127.0.0.1", path);
    }
    void send(std::string const& text) { m_ws.write(net::buffer(text)); }
    // The first message for which `wanted` holds; null when the connection ended or went quiet first.
    Json readUntil(std::function<bool(Json const&)> const& wanted) {
        for (;;) {
            beast::flat_buffer buffer;
            bool done = false;
            beast::error_code error;
            m_ws.async_read(buffer, [&](beast::error_code const& result, std::size_t) {
                error = result;
                done = true;
            });
            m_ioc.restart();
            m_ioc.run_for(std::chrono::seconds(5));
            if (!done) {
                m_ws.next_layer().close();
                m_ioc.restart();
                m_ioc.run();
                return nullptr;
            }
            if (error) {
                return nullptr;
            }
            Json const message = Json::parse(beast::buffers_to_string(buffer.data()), nullptr, false);
            if (wanted(message)) {
                return message;
            }
        }
    }

private:
    net::io_context& m_ioc;
    websocket::stream<tcp::socket> m_ws;
};

TEST_F(BackendConsoleTest, ControlRequestsAreCheckedFieldByField) {
    struct Case {
        http::verb verb;
        char const* target;
        char const* body;
        char const* answer;
    };
    Case const cases[] = {
        {http::verb::post, "/_control/pushJob", "{}",
         R"(400 {"error":"\"name\" is missing or not a non-empty string"})"},
        {http::verb::post, "/_control/availability", R"({"service":"nav"})",
         R"(400 {"error":"\"available\" is missing or not true or false"})"},
        {http::verb::post, "/_control/disableReasons", R"({"service":"nav","reasons":"license"})",
         R"(400 {"error":"\"reasons\" is missing or not a list of texts"})"},
        {http::verb::post, "/_control/disableReasons", R"({"service":"none","reasons":[]})",
         R"(400 {"error":"no such service"})"},
        {http::verb::post, "/_control/kvs", R"({"item":"units","value":3})",
         R"(400 {"error":"\"value\" is missing or not a text"})"},
        {http::verb::post, "/_control/failNext", R"({"path":"*","status":42})",
         R"(400 {"error":"\"status\" must be an HTTP status from 100 to 599"})"},
        {http::verb::post, "/_control/failNext", R"({"path":"*","status":500,"count":-1})",
         R"(400 {"error":"\"count\" is missing or not a whole number up to 1000000"})"},
        {http::verb::post, "/_control/delay", R"({"path":"*"})",
         R"(400 {"error":"\"ms\" is missing or not a whole number up to 600000"})"},
        {http::verb::post, "/_control/rotateToken", R"({"token":["x"]})",
         R"(400 {"error":"\"token\" is missing or not a non-empty string"})"},
        {http::verb::post, "/_control/kvs", "[1,", R"(400 {"error":"the body must be a JSON object"})"},
        {http::verb::get, "/_control/nosuch", "", R"(404 {"error":"no such control endpoint"})"},
        {http::verb::get, "/_control/../backend.js", "", R"(404 {"error":"no such control endpoint"})"},
        {http::verb::get, "/_control/pushJob", "", R"(405 {"error":"control changes are POST requests"})"},
        {http::verb::post, "/_control/state", "{}", R"(405 {"error":"control changes are POST requests"})"},
        {http::verb::post, "/_control/kvs", R"({"item":"units","value":"imperial"})", R"(200 {"status":"ok"})"},
    };
    for (auto const& each : cases) {
        EXPECT_EQ(request(each.verb, each.target, each.body), each.answer) << each.target << " " << each.body;
    }
    // A page of another site may not drive the simulator; the console's own page may.
    EXPECT_EQ(request(http::verb::post, "/_control/closeWebSockets", "{}", "http://attacker.example"),
              R"(403 {"error":"refused: sent by another site's page"})");
    EXPECT_EQ(request(http::verb::post, "/_control/closeWebSockets", "{}", "http://" + host()), R"(200 {"closed":0})");
    std::string const page = request(http::verb::get, "/_control/");
    EXPECT_EQ(page.substr(0, 4), "200 ");
    EXPECT_NE(page.find("<script src=\"backend.js\">"), std::string::npos);
}

TEST_F(BackendConsoleTest, FeedPushesTheStateAfterEachChange) {
    Client page(ioc, simulator.port(), "/_control/feed");
    Json const first = page.readUntil([](Json const&) { return true; });
    ASSERT_TRUE(first.is_object());
    EXPECT_EQ(first.value(Json::json_pointer("/kvs/0/value"), ""), "metric");
    EXPECT_EQ(first.value("clients", Json()), Json::array());

    Client application(ioc, simulator.port(), "/subscriptions");
    application.send(R"({"type":"subscribe","ref":1,"path":"/onlinekvs/items/kvs-1","query":{}})");
    Json const subscribed = page.readUntil([](Json const& state) {
        return state.value(Json::json_pointer("/clients/0/subscriptions/0/path"), "") == "/onlinekvs/items/kvs-1";
    });
    ASSERT_TRUE(subscribed.is_object()) << "no state with the client's subscription";

    EXPECT_EQ(simulator.pushJob(R"({"name":"nav"})").empty(), false);
    ASSERT_TRUE(simulator.setKvsValue("units", "imperial"));
    Json const changed = page.readUntil([](Json const& state) {
        return state.value(Json::json_pointer("/kvs/0/value"), "") == "imperial";
    });
    ASSERT_TRUE(changed.is_object()) << "no state with the new value";
    EXPECT_EQ(changed.value(Json::json_pointer("/jobs/0/acknowledged"), Json("absent")), nullptr);
    EXPECT_EQ(changed.value(Json::json_pointer("/received/0/method"), ""), "subscribe");
    Json kinds = Json::array();
    for (auto const& event : changed.value("activity", Json::array())) {
        kinds.push_back(event.value("kind", "") + ": " + event.value("detail", ""));
    }
    EXPECT_EQ(kinds, Json({"subscribed: /onlinekvs/items/kvs-1 (client 1)", "kvs: units = imperial (backend)"}));

    EXPECT_EQ(simulator.closeAllWebSockets(), 1u);
    EXPECT_EQ(application.readUntil([](Json const&) { return false; }), nullptr);  // answers the close
    Json const lost = page.readUntil([](Json const& state) { return state.value("clients", Json::array()).empty(); });
    ASSERT_TRUE(lost.is_object()) << "no state without the client";
    EXPECT_EQ(lost.value(Json::json_pointer("/activity/2/detail"), ""), "1 subscription(s) of client 1");
}

}  // namespace
}  // namespace qel::test
