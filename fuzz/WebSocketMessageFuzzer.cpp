// Arbitrary text as a WebSocket message from the backend to the host client's channel, which holds
// one live subscription. The backend simulator sends the input as it stands, then a marker event;
// the run ends when the subscription's handler has the marker (the input was dealt with) or its
// error event (the input ended the connection; the next run subscribes again). Every "@ID" in the
// input becomes the live subscription's backend id, so inputs can address it. A sanitizer report
// or a hang is a finding.
#include "BackendSimulator.h"
#include "FuzzQuiet.h"
#include "dataformats/Ref.h"
#include "rsi/RequestType.h"
#include "rsi/host/WebSocketChannel.h"

#include <chrono>
#include <condition_variable>
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <memory>
#include <mutex>
#include <string>

namespace {

using namespace qel::rsi::client;
using qel::dataformats::data::Ref;

constexpr std::uint32_t TIMEOUT_MS = 5000;

// Tells the fuzzer which marker arrived last and whether the subscription ended.
class MarkerHandler : public EventHandler {
public:
    void handleEvent(RequestState const& /*state*/, Response const& response) override { record(response); }
    void handleEvent(RequestState&& /*state*/, Response&& response) override { record(response); }

    void restart() {
        std::lock_guard<std::mutex> const lock(m_mutex);
        m_ended = false;
    }
    // False when the subscription ended before the marker came.
    bool waitForMarker(std::int64_t marker) {
        std::unique_lock<std::mutex> lock(m_mutex);
        if (!m_changed.wait_for(lock, std::chrono::milliseconds(TIMEOUT_MS),
                                [&] { return m_ended || m_marker == marker; })) {
            std::abort();  // neither the marker nor the end: the channel hangs
        }
        return !m_ended;
    }

private:
    void record(Response const& response) {
        Ref const event(response.getData(false));
        std::lock_guard<std::mutex> const lock(m_mutex);
        if (event("type").asString() == "error") {
            m_ended = true;
        } else if (event("data").hasObjectKey("fuzzMarker")) {
            m_marker = event("data")("fuzzMarker").asInteger();
        }
        m_changed.notify_all();
    }

    std::mutex m_mutex;
    std::condition_variable m_changed;
    std::int64_t m_marker = 0;  // guarded by m_mutex
    bool m_ended = false;       // guarded by m_mutex
};

struct Rig {
    Rig() {
        if (!simulator.loadScenario(R"({"kvs":[{"id":"k-1","name":"units","value":"metric"}]})") ||
            !simulator.start()) {
            std::abort();
        }
        host::RsiEndpoint endpoint;
        endpoint.host = "127.0.0.1";
        endpoint.port = simulator.port();
        channel = std::make_unique<host::WebSocketChannel>(endpoint, TIMEOUT_MS, 64 * 1024);
    }
    ~Rig() {
        channel.reset();
        simulator.stop();
    }

    // The simulator numbers its subscriptions 1, 2, ... and only this rig subscribes.
    void ensureSubscribed() {
        if (subscriptionId != 0) {
            return;
        }
        Request request;
        request.type = RequestTypeSubscribeElement;
        request.requestId = 1;
        request.service = "onlinekvs";
        request.resource = "items";
        request.element = "k-1";
        Response response;
        RequestState state;
        handler->restart();
        subscriptionId = channel->subscribe(request, response, state, handler, TIMEOUT_MS);
        if (subscriptionId == 0) {
            std::abort();
        }
        ++backendId;
    }

    qel::sim::backend::BackendSimulator simulator;
    std::unique_ptr<host::WebSocketChannel> channel;
    std::shared_ptr<MarkerHandler> handler = std::make_shared<MarkerHandler>();
    std::uint32_t subscriptionId = 0;  // the channel's; 0 while not subscribed
    std::uint32_t backendId = 0;
    std::int64_t marker = 0;
};

std::string withBackendId(std::string text, std::uint32_t backendId) {
    std::string const id = std::to_string(backendId);
    for (auto at = text.find("@ID"); at != std::string::npos; at = text.find("@ID", at + id.size())) {
        text.replace(at, 3, id);
    }
    return text;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(std::uint8_t const* data, std::size_t size) {
    qel::fuzz::silenceLogging();
    static Rig rig;
    rig.ensureSubscribed();
    std::string const input(reinterpret_cast<char const*>(data), size);
    std::int64_t const marker = ++rig.marker;
    rig.simulator.sendRawToWebSockets(withBackendId(input, rig.backendId));
    rig.simulator.sendRawToWebSockets(R"({"type":"event","subscriptionId":)" + std::to_string(rig.backendId) +
                                      R"(,"event":{"type":"data","data":{"fuzzMarker":)" + std::to_string(marker) +
                                      "}}}");
    if (!rig.handler->waitForMarker(marker)) {
        // An "error" event: the connection ended, or the input said so (then the subscription
        // is still live and goes, so that only one ever is).
        rig.channel->unsubscribe(rig.subscriptionId);
        rig.subscriptionId = 0;
    }
    // The simulator records every message; without this the records grow with every run.
    rig.simulator.clearReceived();
    return 0;
}
