// Recording stand-ins for the callers of the RSI transport (response and event handlers, condition
// callbacks) and the thread-safe recorder they share. Waits use real time only as a safety limit.
#pragma once

#include "core/IUpdateConditionCallback.h"
#include "dataformats/Json.h"
#include "rsi/EventHandler.h"
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
    std::string location;
};

template <typename T>
class Recorder {
public:
    // Notifies under the lock: a waiter that saw its count may destroy the recorder at once.
    void add(T value) {
        std::lock_guard<std::mutex> lock(m_mutex);
        m_values.push_back(std::move(value));
        m_changed.notify_all();
    }
    std::vector<T> all() const {
        std::lock_guard<std::mutex> lock(m_mutex);
        return m_values;
    }
    std::size_t size() const { return all().size(); }
    bool waitFor(std::size_t count, std::uint32_t limitMs = 5000) const {
        return waitUntil([count](std::vector<T> const& values) { return values.size() >= count; }, limitMs);
    }
    // Until `done(values)` holds; false at the limit.
    template <typename Predicate>
    bool waitUntil(Predicate done, std::uint32_t limitMs = 5000) const {
        std::unique_lock<std::mutex> lock(m_mutex);
        return m_changed.wait_for(lock, std::chrono::milliseconds(limitMs), [&] { return done(m_values); });
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
                dataformats::json::stringify(response.getData(false)), response.getLocation()};
    }
};

class RecordingCallback : public onlineservices::framework::core::IUpdateConditionCallback {
public:
    void notify(bool value) override { values.add(value); }
    Recorder<bool> values;
};

}  // namespace qel::test
