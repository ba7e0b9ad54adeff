// The host RSI client against the backend simulator on loopback, next to raw Beast clients doing
// the same work: one request round trip, and events from the simulator to a handler.
//   HostRsi_RequestRoundTrip / RawBeast_RequestRoundTrip   -> request overhead of the client
//   HostRsi_EventThroughput  / RawBeast_EventThroughput    -> event overhead (items_per_second)
#include "BackendSimulator.h"
#include "common/Logger.h"
#include "rsi/host/HostRsiClient.h"
#include "rsi/host/RsiWireFormat.h"

#include <benchmark/benchmark.h>
#include <boost/asio/connect.hpp>
#include <boost/asio/ip/tcp.hpp>
#include <boost/beast/core.hpp>
#include <boost/beast/http.hpp>
#include <boost/beast/websocket.hpp>

#include <condition_variable>
#include <mutex>
#include <string>

namespace {

namespace beast = boost::beast;
namespace http = beast::http;
namespace net = boost::asio;
using tcp = net::ip::tcp;
using namespace qel::rsi::client;
using qel::common::logging::LogConfig;
using qel::common::logging::LogLevel;
using qel::sim::backend::BackendSimulator;

constexpr int EVENTS_PER_BATCH = 200;
constexpr char const* SCENARIO = R"({
  "tokens": [{"id": "tok-1", "name": "nav", "token": "t0"}],
  "services": [{"name": "nav", "baseUrl": "https://nav.example.com/api/v2", "privacyGroups": ["location"]},
               {"name": "weather", "baseUrl": "https://weather.example.com/api/v1"}]
})";

// Several threads take part (client, simulator), so the figures are wall-clock time.
// One simulator for the whole run, quiet so that logging does not dominate the figures.
BackendSimulator& simulator() {
    static BackendSimulator* const instance = [] {
        LogConfig::setThreshold(LogLevel::Warning);
        static BackendSimulator running;
        running.loadScenario(SCENARIO);
        running.start();
        return &running;
    }();
    return *instance;
}

Request serviceListRequest() {
    Request request;
    request.type = RequestTypeGetElement;
    request.service = "servicemanagement";
    request.resource = "services";
    request.queryParameters = {{"name", "nav"}, {"serviceHostSystem", "005F"}};
    return request;
}

host::HostRsiClient::Options options() {
    host::HostRsiClient::Options result;
    result.endpoint.port = simulator().port();
    return result;
}

void HostRsi_RequestRoundTrip(benchmark::State& state) {
    host::HostRsiClient client(options());
    Request const request = serviceListRequest();
    for (auto _ : state) {
        Response response;
        client.request(request, response);
        if (response.getStatus() != 200) {
            state.SkipWithError("request failed");
            break;
        }
        benchmark::DoNotOptimize(response.getData(false));
    }
}
BENCHMARK(HostRsi_RequestRoundTrip)->UseRealTime();

void RawBeast_RequestRoundTrip(benchmark::State& state) {
    net::io_context ioc;
    tcp::socket socket(ioc);
    socket.connect(tcp::endpoint(net::ip::address_v4::loopback(), simulator().port()));
    socket.set_option(tcp::no_delay(true));
    http::request<http::empty_body> request{http::verb::get, host::wire::targetOf(serviceListRequest()), 11};
    request.set(http::field::host, "127.0.0.1");
    request.set(http::field::accept, "application/json");
    beast::flat_buffer buffer;
    for (auto _ : state) {
        http::write(socket, request);
        http::response<http::string_body> response;
        http::read(socket, buffer, response);
        if (response.result_int() != 200) {
            state.SkipWithError("request failed");
            break;
        }
        benchmark::DoNotOptimize(response.body().data());
    }
}
BENCHMARK(RawBeast_RequestRoundTrip)->UseRealTime();

class CountingHandler : public EventHandler {
public:
    using EventHandler::handleEvent;
    void handleEvent(RequestState const& /*state*/, Response const& /*response*/) override {
        {
            std::lock_guard<std::mutex> const lock(m_mutex);
            ++m_count;
        }
        m_changed.notify_one();
    }
    void waitFor(long count) {
        std::unique_lock<std::mutex> lock(m_mutex);
        m_changed.wait(lock, [&] { return m_count >= count; });
    }

private:
    std::mutex m_mutex;
    std::condition_variable m_changed;
    long m_count = 0;  // guarded by m_mutex
};

void HostRsi_EventThroughput(benchmark::State& state) {
    host::HostRsiClient client(options());
    auto const handler = std::make_shared<CountingHandler>();
    Request request;
    request.type = RequestTypeSubscribeElement;
    request.service = "tokenmanagement";
    request.resource = "accessTokens";
    request.element = "tok-1";
    Response response;
    RequestState subscribed;
    std::uint32_t const id = client.subscribe(request, response, subscribed, handler, 0, 0);
    long expected = 1;  // the initial event
    for (auto _ : state) {
        for (int i = 0; i < EVENTS_PER_BATCH; ++i) {
            simulator().rotateToken("tok-1");
        }
        expected += EVENTS_PER_BATCH;
        handler->waitFor(expected);
    }
    client.unsubscribe(id);
    state.SetItemsProcessed(state.iterations() * EVENTS_PER_BATCH);
}
BENCHMARK(HostRsi_EventThroughput)->Unit(benchmark::kMillisecond)->UseRealTime();

void RawBeast_EventThroughput(benchmark::State& state) {
    net::io_context ioc;
    beast::websocket::stream<tcp::socket> ws(ioc);
    ws.next_layer().connect(tcp::endpoint(net::ip::address_v4::loopback(), simulator().port()));
    ws.next_layer().set_option(tcp::no_delay(true));
    ws.handshake("127.0.0.1", "/subscriptions");
    ws.write(net::buffer(std::string(R"({"type":"subscribe","ref":1,"path":"/tokenmanagement/accessTokens/tok-1"})")));
    beast::flat_buffer buffer;
    for (int i = 0; i < 2; ++i) {  // the acknowledgement and the initial event
        ws.read(buffer);
        buffer.consume(buffer.size());
    }
    for (auto _ : state) {
        for (int i = 0; i < EVENTS_PER_BATCH; ++i) {
            simulator().rotateToken("tok-1");
        }
        for (int i = 0; i < EVENTS_PER_BATCH; ++i) {
            ws.read(buffer);
            benchmark::DoNotOptimize(buffer.data().data());
            buffer.consume(buffer.size());
        }
    }
    ws.close(beast::websocket::close_code::normal);
    state.SetItemsProcessed(state.iterations() * EVENTS_PER_BATCH);
}
BENCHMARK(RawBeast_EventThroughput)->Unit(benchmark::kMillisecond)->UseRealTime();

}  // namespace
