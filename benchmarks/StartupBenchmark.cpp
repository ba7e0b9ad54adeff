// Time from `startup` to RESUMED of a factory-built client (1 service, 5 KVS items, 5
// capabilities, 2 job and 2 operation entries) against the backend simulator on loopback, next
// to the same HTTP requests and WebSocket subscribes made one after another by a raw Beast client.
//   Startup_ClientToResumed / Startup_RawBeastRoundTrips  -> the framework's cost over the wire's
// The entries exist at the backend after the first start, so both sides measure the steady case:
// reads and subscribes, no writes. Networking registration is skipped (another process's latency).
#include "BackendSimulator.h"
#include "common/Logger.h"
#include "rsi/SharedRsiClient.h"
#include "rsi/host/HostRsiClient.h"
#include "support/RunStateRecorder.h"

#include <onlineservices/framework/OnlineServiceClientFactory.h>

#include <benchmark/benchmark.h>
#include <boost/asio/ip/tcp.hpp>
#include <boost/beast/core.hpp>
#include <boost/beast/http.hpp>
#include <boost/beast/websocket.hpp>
#include <nlohmann/json.hpp>

#include <chrono>
#include <cstdio>
#include <fstream>
#include <string>
#include <vector>

namespace {

namespace beast = boost::beast;
namespace http = beast::http;
namespace net = boost::asio;
using tcp = net::ip::tcp;
using namespace qel::onlineservices::framework::core;
using qel::common::logging::LogConfig;
using qel::common::logging::LogLevel;
using qel::sim::backend::BackendSimulator;
using qel::sim::backend::ReceivedMessage;

constexpr char const* SCENARIO = R"({
  "tokens": [{"id": "tok-nav", "name": "nav", "token": "t0"}],
  "services": [{"name": "nav", "baseUrl": "https://nav.example.com/api/v2"}],
  "privacyGroups": [{"name": "nav"}],
  "kvs": [{"name": "nav.k1", "owner": "nav", "value": "1"}, {"name": "nav.k2", "owner": "nav", "value": "2"},
          {"name": "nav.k3", "owner": "nav", "value": "3"}, {"name": "nav.k4", "owner": "nav", "value": "4"},
          {"name": "nav.k5", "owner": "nav", "value": "5"}]
})";

std::string iniFile() {
    static std::string const path = [] {
        std::string file = "/tmp/qel-startup-benchmark-" + std::to_string(::getpid()) + ".ini";
        std::ofstream(file) << "[SUBSCRIPTION_CONFIG]\nSKIP_NETWORKING_REGISTRATION=true\n";
        return file;
    }();
    return path;
}

OnlineServiceClientConfig describe() {
    OnlineServiceClientConfig config;
    config.serviceIds = {"nav"};
    config.kvsItems = {"nav.k1", "nav.k2", "nav.k3", "nav.k4", "nav.k5"};
    for (int i = 1; i <= 5; ++i) {
        config.capabilities.emplace_back("005F.nav.cap" + std::to_string(i), std::to_string(i));
    }
    for (auto const* name : {"nav", "navjob"}) {
        config.jobEntries.push_back(std::make_shared<JobEntry>(JobEntry{name, "job.xsd", "nav"}));
    }
    for (auto const* name : {"vehicleState", "route"}) {
        config.operationEntries.push_back(std::make_shared<OperationEntry>(OperationEntry{name, "JSON", "s", "nav"}));
    }
    config.iniFilePath = iniFile();
    return config;
}

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

// Starts a fresh client and returns the time from `startup` to RESUMED; 0 when it never got there.
double startClient() {
    qel::rsi::client::host::HostRsiClient::Options options;
    options.endpoint.port = simulator().port();
    qel::rsi::client::SetSharedRsiClient(std::make_shared<qel::rsi::client::host::HostRsiClient>(options));
    auto client = OnlineServiceClientFactory::createOnlineServiceClient(describe());
    qel::rsi::client::SetSharedRsiClient(nullptr);
    auto states = std::make_shared<qel::test::RunStateRecorder>();
    client->addRunStateListener(states);
    auto const start = std::chrono::steady_clock::now();
    client->startup();
    auto const heard = states->take(RunState::RESUMED);
    auto const elapsed = std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
    return !heard.empty() && heard.back() == RunState::RESUMED ? elapsed : 0.0;
}

// What one steady-state start sends, in order; the first start has written the entries.
std::vector<ReceivedMessage> const& startupMessages() {
    static std::vector<ReceivedMessage> const messages = [] {
        startClient();
        simulator().clearReceived();
        startClient();
        std::vector<ReceivedMessage> sent;
        for (auto const& message : simulator().received()) {
            if (message.channel == "http" || message.method == "subscribe") {
                sent.push_back(message);
            }
        }
        return sent;
    }();
    return messages;
}

void Startup_ClientToResumed(benchmark::State& state) {
    startupMessages();
    for (auto _ : state) {
        double const seconds = startClient();
        if (seconds == 0.0) {
            state.SkipWithError("the client did not reach RESUMED");
            break;
        }
        state.SetIterationTime(seconds);
    }
}
BENCHMARK(Startup_ClientToResumed)->Unit(benchmark::kMillisecond)->UseManualTime();

// Sends one recorded subscribe and reads until its acknowledgement.
void subscribeRaw(beast::websocket::stream<tcp::socket>& ws, beast::flat_buffer& buffer, std::string const& text) {
    auto const ref = nlohmann::json::parse(text).value("ref", 0);
    ws.write(net::buffer(text));
    while (true) {
        ws.read(buffer);
        auto const message = nlohmann::json::parse(beast::buffers_to_string(buffer.data()), nullptr, false);
        buffer.consume(buffer.size());
        if (message.value("type", "") == "ack" && message.value("ref", -1) == ref) {
            return;
        }
    }
}

void requestRaw(tcp::socket& socket, beast::flat_buffer& buffer, ReceivedMessage const& message) {
    http::request<http::string_body> request{http::string_to_verb(message.method), message.target, 11};
    request.set(http::field::host, "127.0.0.1");
    request.set(http::field::content_type, "application/json");
    request.body() = message.body;
    request.prepare_payload();
    http::write(socket, request);
    http::response<http::string_body> response;
    http::read(socket, buffer, response);
    benchmark::DoNotOptimize(nlohmann::json::parse(response.body(), nullptr, false));
}

void Startup_RawBeastRoundTrips(benchmark::State& state) {
    auto const& messages = startupMessages();
    tcp::endpoint const endpoint(net::ip::address_v4::loopback(), simulator().port());
    for (auto _ : state) {
        auto const start = std::chrono::steady_clock::now();
        net::io_context ioc;
        tcp::socket socket(ioc);
        socket.connect(endpoint);
        socket.set_option(tcp::no_delay(true));
        beast::websocket::stream<tcp::socket> ws(ioc);
        ws.next_layer().connect(endpoint);
        ws.next_layer().set_option(tcp::no_delay(true));
        ws.handshake("127.0.0.1", "/subscriptions");
        beast::flat_buffer httpBuffer;
        beast::flat_buffer wsBuffer;
        for (auto const& message : messages) {
            if (message.channel == "http") {
                requestRaw(socket, httpBuffer, message);
            } else {
                subscribeRaw(ws, wsBuffer, message.body);
            }
        }
        state.SetIterationTime(std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count());
        ws.close(beast::websocket::close_code::normal);
    }
    state.counters["round_trips"] = static_cast<double>(messages.size());
}
BENCHMARK(Startup_RawBeastRoundTrips)->Unit(benchmark::kMillisecond)->UseManualTime();

}  // namespace
