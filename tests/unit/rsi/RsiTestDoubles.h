// Recording stand-ins for the RSI transport's callers and for the wrapper itself.
#pragma once

#include "core/IUpdateConditionCallback.h"
#include "dataformats/Json.h"
#include "rsi/EventHandler.h"
#include "rsi/IRSIClientWrapper.h"
#include "rsi/ResponseHandler.h"

#include <chrono>
#include <condition_variable>
#include <memory>
#include <mutex>
#include <string>
#include <vector>

namespace qel::test {

using rsi::client::RequestState;
using rsi::client::Response;

// One answer or event as a handler saw it.
struct Received {
    std::int32_t stateValue;
    std::string stateNote;
    std::int16_t status;
    std::uint32_t id;
    std::string body;  // "null" when there was none
};

// Waits use real time only as a safety limit.
template <typename T>
class Recorder {
public:
    void add(T value) {
        {
            std::lock_guard<std::mutex> lock(m_mutex);
            m_values.push_back(std::move(value));
        }
        m_changed.notify_all();
    }
    std::vector<T> all() const {
        std::lock_guard<std::mutex> lock(m_mutex);
        return m_values;
    }
    std::size_t size() const { return all().size(); }
    bool waitFor(std::size_t count, std::uint32_t limitMs = 5000) const {
        std::unique_lock<std::mutex> lock(m_mutex);
        return m_changed.wait_for(lock, std::chrono::milliseconds(limitMs), [&] { return m_values.size() >= count; });
    }

private:
    mutable std::mutex m_mutex;
    mutable std::condition_variable m_changed;
    std::vector<T> m_values;  // guarded by m_mutex
};

class RecordingHandler : public rsi::client::ResponseHandler, public rsi::client::EventHandler {
public:
    using rsi::client::ResponseHandler::handleResponse;
    void handleResponse(RequestState const& state, Response const& response) override {
        responses.add(receive(state, response));
    }
    using rsi::client::EventHandler::handleEvent;
    void handleEvent(RequestState const& state, Response const& response) override {
        events.add(receive(state, response));
    }

    Recorder<Received> responses;
    Recorder<Received> events;

private:
    static Received receive(RequestState const& state, Response const& response) {
        return {state.value, state.note, response.getStatus(), response.getId(),
                dataformats::json::stringify(response.getData(false))};
    }
};

class RecordingCallback : public onlineservices::framework::core::IUpdateConditionCallback {
public:
    void notify(bool value) override { values.add(value); }
    Recorder<bool> values;
};

// A wrapper that only records; the test answers each request itself, with any status.
class ScriptedWrapper : public onlineservices::framework::core::IRSIClientWrapper {
public:
    struct Sent {
        std::shared_ptr<rsi::client::Request> request;
        std::weak_ptr<rsi::client::ResponseHandler> handler;
    };

    void sendRequest(std::shared_ptr<rsi::client::Request> const& request,
                     std::weak_ptr<rsi::client::ResponseHandler> const& handler) override {
        sent.push_back({request, handler});
    }
    unsigned int subscribe(std::shared_ptr<rsi::client::Request> const&,
                           std::weak_ptr<rsi::client::ResponseHandler> const&,
                           std::weak_ptr<rsi::client::EventHandler> const&) override {
        return 0;
    }
    void unsubscribe(unsigned int) override {}
    void disconnect() override {}
    void start() override {}
    void stop() override {}

    // Answers request `index` as the wrapper would (state succeeded); false if its handler is gone.
    bool answer(std::size_t index, std::int16_t status, std::string const& body = "",
                std::string const& location = "") const {
        auto const handler = sent.at(index).handler.lock();
        if (!handler) {
            return false;
        }
        Response response;
        response.setStatus(status);
        response.setLocation(location);
        if (!body.empty()) {
            response.setData(dataformats::json::parse(body));
        }
        handler->handleResponse(RequestState(rsi::client::RequestStateSucceeded, ""), response);
        return true;
    }

    std::vector<Sent> sent;  // test thread only
};

}  // namespace qel::test
