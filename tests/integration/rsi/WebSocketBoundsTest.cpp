// The subscription WebSocket against a backend of the test's own that breaks the protocol, goes
// silent or sends over-size events while keeping TCP open: the client ends the link in bounded
// time, tells every subscription, and never waits on the backend to let go.
#include "IntegrationSupport.h"
#include "dataformats/Json.h"
#include "dataformats/Ref.h"
#include "rsi/RequestType.h"
#include "rsi/host/WebSocketSession.h"

#include <gtest/gtest.h>

#include <boost/asio/ip/tcp.hpp>
#include <boost/asio/read.hpp>
#include <boost/asio/write.hpp>
#include <boost/beast/core.hpp>
#include <boost/beast/websocket.hpp>

#include <chrono>
#include <functional>
#include <future>
#include <thread>
#include <vector>

namespace qel::test {
namespace {

namespace net = boost::asio;
namespace beast = boost::beast;
namespace websocket = beast::websocket;
using tcp = net::ip::tcp;
using namespace rsi::client;
using host::HostRsiClient;
using Clock = std::chrono::steady_clock;
using ServerStream = websocket::stream<tcp::socket>;

constexpr auto TWO_SECONDS = std::chrono::milliseconds(2000);
constexpr std::uint32_t FIRST_BACKEND_ID = 7;

// One WebSocket on a free loopback port. Acknowledges the first `subscriptions` subscribes with
// backend ids 7, 8, ...; once `go` is called runs `act` on the open stream; then keeps TCP open,
// reading raw bytes without answering (no pong, no close frame), until the client closes its end.
class ScriptedBackend {
public:
    using Act = std::function<void(ServerStream&)>;

    ScriptedBackend(int subscriptions, Act act) : m_acceptor(m_ioc, {net::ip::make_address("127.0.0.1"), 0}) {
        m_thread = std::thread([this, subscriptions, act = std::move(act)] { serve(subscriptions, act); });
    }
    ~ScriptedBackend() {
        if (!m_started) {
            m_go.set_value();  // lets the thread on, without acting
        }
        m_thread.join();
    }
    ScriptedBackend(ScriptedBackend const&) = delete;
    ScriptedBackend& operator=(ScriptedBackend const&) = delete;

    std::uint16_t port() const { return m_acceptor.local_endpoint().port(); }
    void go() {
        if (!m_started) {
            m_started = true;
            m_go.set_value();
        }
    }
    // True once the client closed the TCP connection, within the limit.
    bool clientClosedWithin(std::chrono::milliseconds limit) {
        return m_clientClosedFuture.wait_for(limit) == std::future_status::ready;
    }

private:
    void serve(int subscriptions, Act const& act) {
        tcp::socket socket(m_ioc);
        m_acceptor.accept(socket);
        ServerStream ws(std::move(socket));
        beast::error_code error;
        ws.accept(error);
        for (int count = 0; !error && count < subscriptions; ++count) {
            beast::flat_buffer buffer;
            ws.read(buffer, error);
            auto const message = dataformats::json::parse(beast::buffers_to_string(buffer.data()));
            std::string const ack = R"({"type":"ack","status":200,"ref":)" +
                                    std::to_string(dataformats::data::Ref(message.get())("ref").asInteger()) +
                                    R"(,"subscriptionId":)" + std::to_string(FIRST_BACKEND_ID + count) + "}";
            ws.text(true);
            ws.write(net::buffer(ack), error);
        }
        m_goFuture.wait();
        if (!error && m_started) {
            act(ws);
        }
        drainUntilClosed(ws.next_layer());
    }

    void drainUntilClosed(tcp::socket& socket) {
        std::vector<char> sink(4096);
        std::function<void()> readMore = [&] {
            socket.async_read_some(net::buffer(sink), [&](beast::error_code const& error, std::size_t) {
                if (error) {
                    m_clientClosed.set_value();
                } else {
                    readMore();
                }
            });
        };
        readMore();
        m_ioc.restart();
        m_ioc.run_for(std::chrono::seconds(5));
    }

    net::io_context m_ioc;
    tcp::acceptor m_acceptor;
    std::promise<void> m_go;
    std::shared_future<void> m_goFuture = m_go.get_future().share();
    bool m_started = false;  // touched by the test thread only
    std::promise<void> m_clientClosed;
    std::shared_future<void> m_clientClosedFuture = m_clientClosed.get_future().share();
    std::thread m_thread;
};

HostRsiClient::Options boundedOptions(std::uint16_t port) {
    auto options = clientOptions(port);
    options.webSocket.maxEventBytes = 1024;
    options.webSocket.maxMessageBytes = 4096;
    return options;
}

void writeRaw(ServerStream& ws, std::vector<unsigned char> const& bytes) {
    net::write(ws.next_layer(), net::buffer(bytes));
}

void writeText(ServerStream& ws, std::string const& text) {
    ws.text(true);
    ws.write(net::buffer(text));
}

std::string event(std::uint32_t backendId, std::string const& data) {
    return R"({"type":"event","subscriptionId":)" + std::to_string(backendId) +
           R"(,"event":{"type":"data","data":")" + data + R"("}})";
}

class WebSocketBoundsTest : public ::testing::Test {
protected:
    void subscribeBoth(HostRsiClient& client) {
        for (auto const& [handler, element] : {std::pair{first, "a"}, std::pair{second, "b"}}) {
            Response response;
            RequestState state;
            auto const request = makeRequest(RequestTypeSubscribeElement, 2, "svc", "res", element);
            ASSERT_NE(client.subscribe(*request, response, state, handler, 0, 0), 0u);
        }
    }
    bool bothEnded(std::chrono::milliseconds limit) {
        auto const isError = [](std::vector<Received> const& events) {
            return !events.empty() && events.back().body == R"({"type":"error"})";
        };
        auto const ms = static_cast<std::uint32_t>(limit.count());
        return first->events.waitUntil(isError, ms) && second->events.waitUntil(isError, ms);
    }

    LogWaiter log;
    std::shared_ptr<RecordingHandler> first = std::make_shared<RecordingHandler>();
    std::shared_ptr<RecordingHandler> second = std::make_shared<RecordingHandler>();
};

TEST_F(WebSocketBoundsTest, ProtocolViolationsEndTheLinkAtOnceWhileTheBackendKeepsTcpOpen) {
    struct Violation {
        char const* name;
        std::vector<unsigned char> frame;
        char const* reason;
    };
    std::vector<Violation> const violations = {
        {"message over the bound", {0x81, 0x7E, 0x20, 0x00}, "message over 4096 bytes refused"},
        {"reserved opcode", {0x83, 0x00}, "protocol violation: The WebSocket frame contained an illegal opcode"},
        {"reserved bit", {0xA1, 0x00}, "protocol violation: The WebSocket frame contained illegal reserved bits"},
        {"masked frame", {0x81, 0x81, 0x01, 0x02, 0x03, 0x04, 'a' ^ 0x01},
         "protocol violation: The WebSocket frame was masked"},
        {"invalid UTF-8", {0x81, 0x02, 0xC3, 0x28},
         "protocol violation: The WebSocket frame payload was not valid utf8"},
    };
    for (auto const& violation : violations) {
        SCOPED_TRACE(violation.name);
        first = std::make_shared<RecordingHandler>();
        second = std::make_shared<RecordingHandler>();
        LogWaiter lines;  // of this round only
        ScriptedBackend backend(2, [&](ServerStream& ws) { writeRaw(ws, violation.frame); });
        auto client = std::make_unique<HostRsiClient>(boundedOptions(backend.port()));
        subscribeBoth(*client);
        backend.go();
        EXPECT_TRUE(bothEnded(TWO_SECONDS));
        EXPECT_TRUE(backend.clientClosedWithin(TWO_SECONDS)) << "the socket is closed, not left to the backend";
        auto const destroying = Clock::now();
        client.reset();
        EXPECT_LT(Clock::now() - destroying, TWO_SECONDS);
        EXPECT_EQ(lines.count("WebSocket closed (" + std::string(violation.reason) + "); ending 2 subscription(s)"),
                  1u);
        EXPECT_EQ(first->events.size(), 1u) << "exactly one error event each";
        EXPECT_EQ(second->events.size(), 1u);
    }
}

TEST_F(WebSocketBoundsTest, SilentLinkIsNoticedWithinTheIdleBound) {
    ScriptedBackend backend(2, [](ServerStream&) {});  // then reads, never answers a ping
    auto options = boundedOptions(backend.port());
    options.webSocket.idleTimeoutMs = 300;
    HostRsiClient client(options);
    subscribeBoth(client);
    auto const silentFrom = Clock::now();
    backend.go();
    ASSERT_TRUE(bothEnded(TWO_SECONDS));
    auto const noticedAfter = Clock::now() - silentFrom;
    EXPECT_GE(noticedAfter, std::chrono::milliseconds(250)) << "not before the bound";
    EXPECT_LT(noticedAfter, std::chrono::milliseconds(1000));
    EXPECT_TRUE(log.waitFor("WebSocket closed (nothing received within 300 ms); ending 2 subscription(s)"));
    EXPECT_TRUE(backend.clientClosedWithin(TWO_SECONDS));
}

TEST_F(WebSocketBoundsTest, IdleLinkThatAnswersPingsStays) {
    ScriptedBackend backend(2, [](ServerStream& ws) {
        // Reading answers the client's pings; three idle bounds pass without any data.
        beast::flat_buffer buffer;
        bool ended = false;
        ws.async_read(buffer, [&](beast::error_code const&, std::size_t) { ended = true; });
        auto& ioc = static_cast<net::io_context&>(ws.get_executor().context());
        ioc.run_for(std::chrono::milliseconds(600));
        std::string const text = event(FIRST_BACKEND_ID, "still here");
        ws.text(true);
        ws.async_write(net::buffer(text), [](beast::error_code const&, std::size_t) {});
        // Until the client closes, so that its pings keep being answered.
        while (!ended && ioc.run_one_for(std::chrono::seconds(5)) != 0) {
        }
        ws.next_layer().close();  // the end of file is taken: nothing is left to drain
    });
    auto options = boundedOptions(backend.port());
    options.webSocket.idleTimeoutMs = 200;
    HostRsiClient client(options);
    subscribeBoth(client);
    backend.go();
    ASSERT_TRUE(first->events.waitFor(1));
    EXPECT_EQ(first->events.all()[0].body, R"({"data":"still here","type":"data"})");
    EXPECT_EQ(second->events.size(), 0u) << "no error event";
}

// The backend then never answers the close handshake: destroying the client does not wait for it.
TEST_F(WebSocketBoundsTest, OverSizeEventIsRefusedAloneAndTheOthersKeepFlowing) {
    ScriptedBackend backend(2, [](ServerStream& ws) {
        writeText(ws, event(FIRST_BACKEND_ID, std::string(2000, 'x')));  // 2,069 bytes in all
        writeText(ws, event(FIRST_BACKEND_ID + 1, "to the second"));
        writeText(ws, event(FIRST_BACKEND_ID, "small again"));
    });
    auto client = std::make_unique<HostRsiClient>(boundedOptions(backend.port()));
    subscribeBoth(*client);
    backend.go();
    ASSERT_TRUE(first->events.waitFor(1));
    ASSERT_TRUE(second->events.waitFor(1));
    EXPECT_EQ(first->events.all()[0].body, R"({"data":"small again","type":"data"})");
    EXPECT_EQ(second->events.all()[0].body, R"({"data":"to the second","type":"data"})");
    EXPECT_EQ(log.count("Refused event of 2069 bytes, over 1024, for subscription 7 (/svc/res/a)"), 1u);
    EXPECT_EQ(log.count("WebSocket closed"), 0u);

    auto const destroying = Clock::now();
    client.reset();
    EXPECT_LT(Clock::now() - destroying, std::chrono::milliseconds(500));
    EXPECT_TRUE(backend.clientClosedWithin(TWO_SECONDS));
}

// The close frame is a write like any other: it waits for the messages queued before it.
TEST(WebSocketSessionCloseTest, CloseAfterQueuedMessagesSendsThemAllFirst) {
    std::promise<std::vector<std::string>> received;
    ScriptedBackend backend(0, [&](ServerStream& ws) {
        std::vector<std::string> messages;
        beast::error_code error;
        while (!error) {
            beast::flat_buffer buffer;
            ws.read(buffer, error);
            if (!error) {
                messages.push_back(beast::buffers_to_string(buffer.data()));
            }
        }
        messages.push_back(error == websocket::error::closed ? "<close>" : error.message());
        received.set_value(messages);
    });
    host::RsiEndpoint endpoint;
    endpoint.host = "127.0.0.1";
    endpoint.port = backend.port();
    std::promise<std::string> closed;
    auto closedFor = closed.get_future();
    host::WebSocketSession session(endpoint, host::WebSocketLimits{},
                                   {[](std::string_view) {},
                                    [&](std::string const& reason) { closed.set_value(reason); }});
    std::string error;
    ASSERT_TRUE(session.connect({"127.0.0.1"}, 2000, error)) << error;
    session.start();
    backend.go();
    std::string const big(256 * 1024, 'b');
    session.send("one");
    session.send(big);
    session.send("three");
    session.close();
    session.send("after the close");
    auto result = received.get_future();
    ASSERT_EQ(result.wait_for(TWO_SECONDS), std::future_status::ready);
    std::vector<std::string> const expected = {"one", big, "three", "<close>"};
    EXPECT_EQ(result.get(), expected);
    ASSERT_EQ(closedFor.wait_for(TWO_SECONDS), std::future_status::ready);
    EXPECT_EQ(closedFor.get(), "closed by the client");
}

}  // namespace
}  // namespace qel::test
