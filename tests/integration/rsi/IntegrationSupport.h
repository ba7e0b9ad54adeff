// Helpers of the host RSI integration tests: the simulator scenario, requests and client options
// they share, a wrapper started over a host client, and a log sink that lets a test wait for a
// line. Waits use real time only as a safety limit.
#pragma once

#include "common/Logger.h"
#include "rsi/RSIClientWrapper.h"
#include "rsi/Request.h"
#include "rsi/RequestType.h"
#include "rsi/SharedRsiClient.h"
#include "rsi/host/HostRsiClient.h"
#include "support/InMemoryRsiClient.h"
#include "support/RsiRecorders.h"

#include <algorithm>
#include <chrono>
#include <memory>
#include <string>
#include <vector>

namespace qel::test {

inline constexpr std::uint32_t WAIT_LIMIT_MS = 5000;

inline constexpr char const* SCENARIO = R"({
  "tokens": [{"id": "tok-1", "name": "demoservice", "token": "first"}],
  "services": [{"name": "demoservice", "baseUrl": "https://demo.example.com"},
               {"name": "demoservice", "serviceHostSystem": "0033"}],
  "kvs": [{"id": "kvs-1", "name": "demo.settings", "value": "v1"}]
})";

// The requests most tests make: one KVS item read and the token subscription.
inline std::shared_ptr<rsi::client::Request> kvsRead() {
    return makeRequest(rsi::client::RequestTypeGetElement, 4, "onlinekvs", "items", "kvs-1");
}
inline std::shared_ptr<rsi::client::Request> tokenSubscription() {
    return makeRequest(rsi::client::RequestTypeSubscribeElement, 2, "tokenmanagement", "accessTokens", "tok-1");
}

inline rsi::client::host::HostRsiClient::Options clientOptions(std::uint16_t port, std::uint32_t timeoutMs = 2000) {
    rsi::client::host::HostRsiClient::Options options;
    options.endpoint.port = port;
    options.requestTimeoutMs = timeoutMs;
    options.subscribeTimeoutMs = timeoutMs;
    options.maxMessageBytes = 64 * 1024;
    options.webSocket.maxEventBytes = 64 * 1024;
    options.webSocket.maxMessageBytes = 256 * 1024;
    return options;
}

// A started wrapper over `client`, which it keeps (the process-wide client is uninstalled again).
inline std::shared_ptr<onlineservices::framework::core::RSIClientWrapper> startWrapperOver(
    std::shared_ptr<rsi::client::host::HostRsiClient> const& client) {
    rsi::client::SetSharedRsiClient(client);
    auto wrapper = std::make_shared<onlineservices::framework::core::RSIClientWrapper>(
        std::make_shared<onlineservices::framework::FrameworkConfig>());
    rsi::client::SetSharedRsiClient(nullptr);
    wrapper->start();
    return wrapper;
}

// Milliseconds `action` took on a steady clock.
template <typename Action>
std::int64_t elapsedMs(Action&& action) {
    auto const started = std::chrono::steady_clock::now();
    action();
    return std::chrono::duration_cast<std::chrono::milliseconds>(std::chrono::steady_clock::now() - started).count();
}

// Installed while it lives; lets a test wait until a line was logged (at Info or above).
class LogWaiter {
public:
    LogWaiter() { common::logging::LogConfig::addSink(m_sink); }
    ~LogWaiter() { common::logging::LogConfig::removeSink(m_sink); }
    LogWaiter(LogWaiter const&) = delete;
    LogWaiter& operator=(LogWaiter const&) = delete;

    std::size_t count(std::string const& line) const { return occurrences(m_sink->lines.all(), line); }
    bool waitFor(std::string const& line, std::size_t count = 1) const {
        return m_sink->lines.waitUntil([&](auto const& lines) { return occurrences(lines, line) >= count; },
                                       WAIT_LIMIT_MS);
    }

private:
    struct Sink : common::logging::LogSink {
        void write(common::logging::LogEntry const& entry) override { lines.add(std::string(entry.message)); }
        Recorder<std::string> lines;
    };
    static std::size_t occurrences(std::vector<std::string> const& lines, std::string const& line) {
        return static_cast<std::size_t>(std::count(lines.begin(), lines.end(), line));
    }

    std::shared_ptr<Sink> m_sink = std::make_shared<Sink>();
};

}  // namespace qel::test
