// Arbitrary text as a WebSocket message from the backend to the host client's channel, which holds
// one live subscription. The channel runs as in the product except for its link: instead of a
// socket and a reader thread, the link hands each message to the channel on the fuzzer's thread,
// as the reader thread would, so that a run costs what the message handling costs. After the
// input a marker event follows; it must reach the subscription's handler, or the input broke the
// channel. Every "@ID" in the input becomes the live subscription's backend id, so inputs can
// address it. A sanitizer report, a lost marker or a hang is a finding.
#include "FuzzQuiet.h"
#include "dataformats/Json.h"
#include "dataformats/Ref.h"
#include "rsi/RequestType.h"
#include "rsi/host/WebSocketChannel.h"

#include <atomic>
#include <condition_variable>
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <memory>
#include <mutex>
#include <string>
#include <thread>

namespace {

using namespace qel::rsi::client;
using qel::dataformats::data::Ref;

constexpr std::uint32_t TIMEOUT_MS = 5000;
constexpr std::uint32_t BACKEND_ID = 7;

// Records the marker of the last data event.
class MarkerHandler : public EventHandler {
public:
    void handleEvent(RequestState const& /*state*/, Response const& response) override {
        Ref const event(response.getData(false));
        if (event("data").hasObjectKey("fuzzMarker")) {
            marker = event("data")("fuzzMarker").asInteger();
        }
    }

    std::int64_t marker = 0;  // touched on the fuzzer's thread only, after the subscription
};

// The channel's link without a network. What the channel sends is kept until the next send; the
// subscribe is answered by the rig.
class DirectLink : public host::WebSocketLink {
public:
    explicit DirectLink(Callbacks callbacks) : m_callbacks(std::move(callbacks)) {}

    bool connect(std::vector<std::string> const& /*addresses*/, std::uint32_t /*timeoutMs*/,
                 std::string& /*error*/) override {
        return true;
    }
    void start() override {}
    void send(std::string message) override {
        {
            std::lock_guard<std::mutex> const lock(m_mutex);
            m_sent = std::move(message);
        }
        m_changed.notify_all();
    }
    void close() override {}

    // As the reader thread: one message from the backend.
    void deliver(std::string const& message) const { m_callbacks.onMessage(message); }
    std::string waitForSent() {
        std::unique_lock<std::mutex> lock(m_mutex);
        m_changed.wait(lock, [&] { return !m_sent.empty(); });
        return m_sent;
    }

private:
    Callbacks const m_callbacks;
    std::mutex m_mutex;
    std::condition_variable m_changed;
    std::string m_sent;  // guarded by m_mutex
};

struct Rig {
    Rig() {
        host::RsiEndpoint endpoint;
        endpoint.host = "127.0.0.1";
        host::WebSocketLimits limits;
        limits.maxEventBytes = 1024;  // inputs reach the over-size refusal too
        channel = std::make_unique<host::WebSocketChannel>(
            endpoint, TIMEOUT_MS, limits, host::NameResolver::Lookup{},
            [this](host::WebSocketLink::Callbacks callbacks) {
                auto made = std::make_unique<DirectLink>(std::move(callbacks));
                madeLink = made.get();
                return made;
            });
        subscribe();
    }

    // Once: nothing but the link could end the subscription, and this one never does. The
    // subscribe waits for its acknowledgement, which the rig delivers meanwhile.
    void subscribe() {
        std::uint32_t subscriptionId = 0;
        std::thread subscriber([&] {
            Request request;
            request.type = RequestTypeSubscribeElement;
            request.requestId = 1;
            request.service = "onlinekvs";
            request.resource = "items";
            request.element = "k-1";
            Response response;
            RequestState state;
            subscriptionId = channel->subscribe(request, response, state, handler, TIMEOUT_MS);
        });
        while ((link = madeLink.load()) == nullptr) {
            std::this_thread::yield();
        }
        auto const subscribeMessage = qel::dataformats::json::parse(link->waitForSent());
        auto const reference = Ref(subscribeMessage.get())("ref").asInteger();
        link->deliver(R"({"type":"ack","status":200,"ref":)" + std::to_string(reference) +
                      R"(,"subscriptionId":)" + std::to_string(BACKEND_ID) + "}");
        subscriber.join();
        if (subscriptionId == 0) {
            std::abort();
        }
    }

    std::shared_ptr<MarkerHandler> handler = std::make_shared<MarkerHandler>();
    std::atomic<DirectLink*> madeLink{nullptr};  // owned by the channel; made on the subscriber thread
    DirectLink* link = nullptr;                  // the same, for the fuzzer's thread
    std::unique_ptr<host::WebSocketChannel> channel;
    std::int64_t marker = 0;
};

std::string withBackendId(std::string text) {
    std::string const id = std::to_string(BACKEND_ID);
    for (auto at = text.find("@ID"); at != std::string::npos; at = text.find("@ID", at + id.size())) {
        text.replace(at, 3, id);
    }
    return text;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(std::uint8_t const* data, std::size_t size) {
    qel::fuzz::silenceLogging();
    static Rig rig;
    rig.link->deliver(withBackendId(std::string(reinterpret_cast<char const*>(data), size)));
    std::int64_t const marker = ++rig.marker;
    rig.link->deliver(R"({"type":"event","subscriptionId":)" + std::to_string(BACKEND_ID) +
                      R"(,"event":{"type":"data","data":{"fuzzMarker":)" + std::to_string(marker) + "}}}");
    if (rig.handler->marker != marker) {
        std::abort();  // the input cost the channel its subscription
    }
    return 0;
}
