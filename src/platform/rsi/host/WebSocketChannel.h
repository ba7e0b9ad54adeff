// The host client's subscriptions, all carried by one WebSocket.
//
// Contract: thread-safe. `subscribe` connects on demand, sends one subscribe message and waits,
// bounded by the time-out, for the backend's acknowledgement. It fills the response with the
// acknowledgement's status and data and the request's id, sets the state to succeeded for a 2xx
// verdict, and returns the client's own id of the subscription (0 when none was made; a
// connection that could not be made, the name lookup included, is answered 503 as a request
// that was not sent; a missing acknowledgement like a gateway time-out, 504). Events of a live
// subscription go to its handler on the reader thread exactly as the backend sent them; an event
// over `WebSocketLimits::maxEventBytes` is refused with a log line naming its subscription, and
// the connection stays for the others. When the connection ends, every live subscription
// receives one {"type":"error"} event and is forgotten; the next `subscribe` reconnects.
// `unsubscribe` of a live id sends one unsubscribe message; any other id is ignored. Ids are never
// reused by one channel. `cancel(caller)` ends the `subscribe` that thread `caller` runs at once,
// its connect broken off or its wait for the acknowledgement ended, with no subscription made (a
// subscribe still waiting for another thread's connect ends when that connect does). `subscribe`
// is refused on the reader
// thread. The channel may be destroyed there (a handler let go of the last owner during an event):
// nothing touches the channel after a handler returned.
#pragma once

#include "common/Logger.h"
#include "dataformats/Ref.h"
#include "dataformats/TreeReturn.h"
#include "rsi/EventHandler.h"
#include "rsi/Request.h"
#include "rsi/RequestState.h"
#include "rsi/Response.h"
#include "rsi/host/NameResolver.h"
#include "rsi/host/RsiEndpoint.h"
#include "rsi/host/WebSocketLink.h"
#include "rsi/host/WebSocketSession.h"

#include <condition_variable>
#include <cstddef>
#include <cstdint>
#include <map>
#include <memory>
#include <mutex>
#include <string>
#include <string_view>
#include <thread>

namespace qel::rsi::client::host {

class WebSocketChannel {
public:
    // `lookup` finds the host's addresses (empty: the system's); `link` makes the connection
    // (empty: a `WebSocketSession` to the endpoint).
    WebSocketChannel(RsiEndpoint endpoint, std::uint32_t timeoutMs, WebSocketLimits const& limits,
                     NameResolver::Lookup lookup = {}, WebSocketLink::Factory link = {});
    ~WebSocketChannel();
    WebSocketChannel(WebSocketChannel const&) = delete;
    WebSocketChannel& operator=(WebSocketChannel const&) = delete;

    // `timeoutMs` 0 selects the channel's default.
    std::uint32_t subscribe(Request const& request, Response& response, RequestState& state,
                            std::weak_ptr<EventHandler> const& handler, std::uint32_t timeoutMs);
    void unsubscribe(std::uint32_t subscriptionId);
    void cancel(std::thread::id caller);

private:
    struct Pending {
        std::weak_ptr<EventHandler> handler;
        std::uint32_t requestId = 0;
        std::string target;
        bool done = false;
        std::int16_t status = 0;
        std::unique_ptr<dataformats::data::Value> data;
        std::uint32_t subscriptionId = 0;  // ours; 0 when refused
        std::string note;
    };
    struct Live {
        std::uint32_t backendId = 0;
        std::uint32_t requestId = 0;
        std::weak_ptr<EventHandler> handler;
        std::string target;  // names the subscription in log lines
    };

    bool ensureConnected(std::uint32_t timeoutMs, std::string& error);
    bool isCancelled(std::thread::id caller) const;  // m_mutex held
    std::uint32_t fail(std::string const& description, std::string const& note, std::int16_t status,
                       Response& response, RequestState& state);
    void onMessage(std::string_view text);
    void onAcknowledgement(dataformats::data::Ref message);
    // Takes the parsed message: its event moves on into the response without a copy.
    void onEvent(std::unique_ptr<dataformats::data::Value> message, std::size_t size);
    void onClosed(std::string const& reason);

    common::logging::Logger const m_logger{"rsi.host.websocket"};
    RsiEndpoint const m_endpoint;
    std::uint32_t const m_timeoutMs;
    WebSocketLimits const m_limits;
    WebSocketLink::Factory const m_link;
    NameResolver m_resolver;
    // Events go to the items' threads; their trees come back to be freed on the reader thread.
    std::shared_ptr<dataformats::data::TreeReturn> const m_trees =
        std::make_shared<dataformats::data::TreeReturn>();

    std::mutex m_connectMutex;  // serialises connecting; taken before m_mutex
    std::mutex m_mutex;
    std::condition_variable m_acknowledged;
    std::unique_ptr<WebSocketLink> m_session;        // guarded by m_mutex
    bool m_open = false;                              // guarded by m_mutex
    bool m_shuttingDown = false;                      // guarded by m_mutex
    std::uint64_t m_nextReference = 1;                // guarded by m_mutex
    std::uint32_t m_nextSubscriptionId = 1;           // guarded by m_mutex
    std::map<std::uint64_t, Pending> m_pending;       // by reference; guarded by m_mutex
    std::map<std::uint32_t, Live> m_live;             // by our id; guarded by m_mutex
    std::map<std::uint32_t, std::uint32_t> m_idByBackendId;  // guarded by m_mutex
    std::map<std::thread::id, bool> m_callers;  // threads in `subscribe`: cancelled?; guarded by m_mutex
    WebSocketLink* m_connecting = nullptr;      // the link `ensureConnected` makes; guarded by m_mutex
    std::thread::id m_connectingThread;         // guarded by m_mutex
};

}  // namespace qel::rsi::client::host
