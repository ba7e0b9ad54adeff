// Helpers of the host RSI integration tests: a log sink that lets a test wait for a line, and the
// simulator scenario the tests share. Waits use real time only as a safety limit.
#pragma once

#include "common/Logger.h"
#include "rsi/Request.h"
#include "rsi/host/HostRsiClient.h"
#include "support/RsiRecorders.h"

#include <algorithm>
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

inline std::shared_ptr<rsi::client::Request> makeRequest(std::uint32_t type, std::uint32_t requestId,
                                                        std::string service, std::string resource = {},
                                                        std::string element = {}) {
    auto request = std::make_shared<rsi::client::Request>();
    request->type = type;
    request->requestId = requestId;
    request->service = std::move(service);
    request->resource = std::move(resource);
    request->element = std::move(element);
    return request;
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
