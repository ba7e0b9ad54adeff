// Helpers of the host RSI integration tests: a handler that records what it receives, a log sink
// that lets a test wait for a line, and the simulator scenario the tests share. Waits use real
// time only as a safety limit.
#pragma once

#include "common/Logger.h"
#include "dataformats/Json.h"
#include "rsi/EventHandler.h"
#include "rsi/Request.h"
#include "rsi/ResponseHandler.h"
#include "rsi/host/HostRsiClient.h"

#include <algorithm>
#include <chrono>
#include <condition_variable>
#include <memory>
#include <mutex>
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
    return options;
}

// One answer or event as a handler saw it.
struct Seen {
    std::int32_t state;
    std::int16_t status;
    std::uint32_t id;
    std::string body;  // JSON text; "null" without data
    std::string location;
};

class RecordingHandler : public rsi::client::ResponseHandler, public rsi::client::EventHandler {
public:
    using rsi::client::ResponseHandler::handleResponse;
    void handleResponse(rsi::client::RequestState const& state, rsi::client::Response const& response) override {
        add(m_responses, state, response);
    }
    using rsi::client::EventHandler::handleEvent;
    void handleEvent(rsi::client::RequestState const& state, rsi::client::Response const& response) override {
        add(m_events, state, response);
    }

    bool waitForResponses(std::size_t count) const { return waitFor(m_responses, count); }
    bool waitForEvents(std::size_t count) const { return waitFor(m_events, count); }
    std::vector<Seen> responses() const { return copy(m_responses); }
    std::vector<Seen> events() const { return copy(m_events); }

private:
    void add(std::vector<Seen>& list, rsi::client::RequestState const& state, rsi::client::Response const& response) {
        {
            std::lock_guard<std::mutex> const lock(m_mutex);
            list.push_back({state.value, response.getStatus(), response.getId(),
                            dataformats::json::stringify(response.getData(false)), response.getLocation()});
        }
        m_changed.notify_all();
    }
    bool waitFor(std::vector<Seen> const& list, std::size_t count) const {
        std::unique_lock<std::mutex> lock(m_mutex);
        return m_changed.wait_for(lock, std::chrono::milliseconds(WAIT_LIMIT_MS), [&] { return list.size() >= count; });
    }
    std::vector<Seen> copy(std::vector<Seen> const& list) const {
        std::lock_guard<std::mutex> const lock(m_mutex);
        return list;
    }

    mutable std::mutex m_mutex;
    mutable std::condition_variable m_changed;
    std::vector<Seen> m_responses;  // guarded by m_mutex
    std::vector<Seen> m_events;     // guarded by m_mutex
};

// Installed while it lives; lets a test wait until a line was logged (at Info or above).
class LogWaiter {
public:
    LogWaiter() { common::logging::LogConfig::addSink(m_sink); }
    ~LogWaiter() { common::logging::LogConfig::removeSink(m_sink); }
    LogWaiter(LogWaiter const&) = delete;
    LogWaiter& operator=(LogWaiter const&) = delete;

    std::size_t count(std::string const& line) const { return m_sink->count(line); }
    bool waitFor(std::string const& line, std::size_t count = 1) const { return m_sink->waitFor(line, count); }

private:
    class Sink : public common::logging::LogSink {
    public:
        void write(common::logging::LogEntry const& entry) override {
            {
                std::lock_guard<std::mutex> const lock(m_mutex);
                m_lines.emplace_back(entry.message);
            }
            m_changed.notify_all();
        }
        std::size_t count(std::string const& line) const {
            std::lock_guard<std::mutex> const lock(m_mutex);
            return countLocked(line);
        }
        bool waitFor(std::string const& line, std::size_t count) const {
            std::unique_lock<std::mutex> lock(m_mutex);
            return m_changed.wait_for(lock, std::chrono::milliseconds(WAIT_LIMIT_MS),
                                      [&] { return countLocked(line) >= count; });
        }

    private:
        std::size_t countLocked(std::string const& line) const {
            return static_cast<std::size_t>(std::count(m_lines.begin(), m_lines.end(), line));
        }

        mutable std::mutex m_mutex;
        mutable std::condition_variable m_changed;
        std::vector<std::string> m_lines;  // guarded by m_mutex
    };

    std::shared_ptr<Sink> m_sink = std::make_shared<Sink>();
};

}  // namespace qel::test
