#include "rsi/host/WebSocketChannel.h"

#include "dataformats/Json.h"
#include "rsi/host/RsiWireFormat.h"

#include <chrono>
#include <utility>

namespace qel::rsi::client::host {
namespace {

using common::logging::LogLevel;
using dataformats::data::Integer;
using dataformats::data::Object;
using dataformats::data::Ref;
using dataformats::data::String;
using dataformats::data::Value;

constexpr std::int16_t SERVICE_UNAVAILABLE = 503;  // nothing was sent
constexpr std::int16_t GATEWAY_TIMEOUT = 504;      // sent, not acknowledged

bool isSuccess(std::int64_t status) {
    return status >= 200 && status <= 299;
}

std::string subscribeMessage(std::uint64_t reference, Request const& request) {
    Object message;
    message.setNew("type", std::make_unique<String>(wire::SUBSCRIBE));
    message.setNew("ref", std::make_unique<Integer>(static_cast<std::int64_t>(reference)));
    message.setNew("path", std::make_unique<String>(wire::pathOf(request)));
    auto query = std::make_unique<Object>();
    for (auto const& [key, value] : request.queryParameters) {
        query->setNew(key, std::make_unique<String>(value));
    }
    message.setNew("query", std::move(query));
    return dataformats::json::stringify(&message);
}

std::string unsubscribeMessage(std::uint32_t backendId) {
    Object message;
    message.setNew("type", std::make_unique<String>(wire::UNSUBSCRIBE));
    message.setNew("subscriptionId", std::make_unique<Integer>(backendId));
    return dataformats::json::stringify(&message);
}

std::unique_ptr<Value> errorEvent() {
    auto event = std::make_unique<Object>();
    event->setNew("type", std::make_unique<String>("error"));
    return event;
}

}  // namespace

WebSocketChannel::WebSocketChannel(RsiEndpoint endpoint, std::uint32_t timeoutMs, WebSocketLimits const& limits,
                                   NameResolver::Lookup lookup, WebSocketLink::Factory link)
    : m_endpoint(std::move(endpoint)),
      m_timeoutMs(timeoutMs),
      m_limits(limits),
      m_link(std::move(link)),
      m_resolver(m_endpoint.host, std::move(lookup)) {}

WebSocketChannel::~WebSocketChannel() {
    std::unique_ptr<WebSocketLink> session;
    {
        std::lock_guard<std::mutex> const lock(m_mutex);
        m_shuttingDown = true;
        m_open = false;  // the reader may still answer a late acknowledgement until it is joined
        session = std::move(m_session);
    }
    // Its destructor closes the connection and joins the reader thread, outside our lock.
    session.reset();
}

std::uint32_t WebSocketChannel::subscribe(Request const& request, Response& response, RequestState& state,
                                          std::weak_ptr<EventHandler> const& handler, std::uint32_t timeoutMs) {
    std::uint32_t const timeout = timeoutMs != 0 ? timeoutMs : m_timeoutMs;
    std::string const description = "SUBSCRIBE " + wire::targetOf(request);
    response.setId(request.requestId);
    if (WebSocketSession::isReaderThread()) {
        m_logger << LogLevel::Error << "Refused " << description << " from the WebSocket reader thread";
        state = RequestState(RequestStateFailed, "subscribe from the reader thread refused");
        return 0;
    }
    std::thread::id const caller = std::this_thread::get_id();
    // Registered for `cancel` while this call lasts.
    struct CallerScope {
        WebSocketChannel& channel;
        std::thread::id caller;
        ~CallerScope() {
            std::lock_guard<std::mutex> const lock(channel.m_mutex);
            channel.m_callers.erase(caller);
        }
    };
    {
        std::lock_guard<std::mutex> const lock(m_mutex);
        m_callers[caller] = false;
    }
    CallerScope const scope{*this, caller};

    std::string error;
    if (!ensureConnected(timeout, error)) {
        std::unique_lock<std::mutex> lock(m_mutex);
        bool const cancelled = isCancelled(caller);
        lock.unlock();
        return fail(description,
                    cancelled ? "not sent, cancelled"
                              : "not sent, WebSocket connect to " + m_endpoint.text() + " failed: " + error,
                    SERVICE_UNAVAILABLE, response, state);
    }

    std::unique_lock<std::mutex> lock(m_mutex);
    if (isCancelled(caller)) {
        lock.unlock();
        return fail(description, "not sent, cancelled", SERVICE_UNAVAILABLE, response, state);
    }
    if (!m_open) {
        lock.unlock();
        return fail(description, "not sent, WebSocket closed", SERVICE_UNAVAILABLE, response, state);
    }
    std::uint64_t const reference = m_nextReference++;
    Pending& pending = m_pending[reference];
    pending.handler = handler;
    pending.requestId = request.requestId;
    pending.target = wire::targetOf(request);
    m_session->send(subscribeMessage(reference, request));
    bool const answered = m_acknowledged.wait_for(lock, std::chrono::milliseconds(timeout), [&] {
        return m_pending[reference].done || isCancelled(caller);
    });
    Pending result = std::move(m_pending[reference]);
    m_pending.erase(reference);
    lock.unlock();

    if (answered && !result.done) {
        // A late acknowledgement finds no one waiting and is unsubscribed at the backend.
        return fail(description, "cancelled before the acknowledgement", GATEWAY_TIMEOUT, response, state);
    }
    if (!answered) {
        return fail(description, "no acknowledgement within " + std::to_string(timeout) + " ms", GATEWAY_TIMEOUT,
                    response, state);
    }
    response.setStatus(result.status);
    response.setData(std::move(result.data));
    if (result.subscriptionId == 0) {
        m_logger << LogLevel::Warning << description << ": " << result.note;
        state = RequestState(RequestStateFailed, result.note);
        return 0;
    }
    state = RequestState(RequestStateSucceeded, "");
    return result.subscriptionId;
}

void WebSocketChannel::cancel(std::thread::id caller) {
    {
        std::lock_guard<std::mutex> const lock(m_mutex);
        auto const call = m_callers.find(caller);
        if (call == m_callers.end()) {
            return;
        }
        call->second = true;
        if (m_connecting != nullptr && m_connectingThread == caller) {
            m_connecting->cancelConnect();
        }
    }
    m_acknowledged.notify_all();
}

bool WebSocketChannel::isCancelled(std::thread::id caller) const {
    auto const call = m_callers.find(caller);
    return call != m_callers.end() && call->second;
}

void WebSocketChannel::unsubscribe(std::uint32_t subscriptionId) {
    std::lock_guard<std::mutex> const lock(m_mutex);
    auto const live = m_live.find(subscriptionId);
    if (live == m_live.end()) {
        m_logger << LogLevel::Debug << "Unsubscribe of unknown or ended subscription " << subscriptionId;
        return;
    }
    std::uint32_t const backendId = live->second.backendId;
    m_idByBackendId.erase(backendId);
    m_live.erase(live);
    if (m_open) {
        m_session->send(unsubscribeMessage(backendId));
    }
}

bool WebSocketChannel::ensureConnected(std::uint32_t timeoutMs, std::string& error) {
    std::lock_guard<std::mutex> const connectLock(m_connectMutex);
    std::unique_ptr<WebSocketLink> previous;
    {
        std::lock_guard<std::mutex> const lock(m_mutex);
        if (m_open) {
            return true;
        }
        if (m_shuttingDown) {
            error = "client shutting down";
            return false;
        }
        previous = std::move(m_session);
    }
    // The previous connection has ended; its reader thread finishes delivering the error events.
    previous.reset();

    WebSocketLink::Callbacks callbacks{[this](std::string_view text) { onMessage(text); },
                                       [this](std::string const& reason) { onClosed(reason); }};
    std::unique_ptr<WebSocketLink> session =
        m_link ? m_link(std::move(callbacks))
               : std::make_unique<WebSocketSession>(m_endpoint, m_limits, std::move(callbacks));
    auto const found = m_resolver.resolve(timeoutMs);
    if (!found.error.empty()) {
        error = "name lookup failed: " + found.error;
        return false;
    }
    {
        std::lock_guard<std::mutex> const lock(m_mutex);
        if (isCancelled(std::this_thread::get_id())) {
            error = "cancelled";
            return false;
        }
        m_connecting = session.get();
        m_connectingThread = std::this_thread::get_id();
    }
    bool const connected = session->connect(found.addresses, timeoutMs, error);
    std::lock_guard<std::mutex> const lock(m_mutex);
    m_connecting = nullptr;
    if (!connected) {
        return false;
    }
    m_logger << LogLevel::Info << "WebSocket connected to " << m_endpoint.text();
    m_session = std::move(session);
    m_open = true;
    // Started under the lock so that a connection lost at once is seen after `m_open` was set.
    m_session->start();
    return true;
}

std::uint32_t WebSocketChannel::fail(std::string const& description, std::string const& note, std::int16_t status,
                                     Response& response, RequestState& state) {
    m_logger << LogLevel::Warning << description << ": " << note << "; answering " << status;
    response.setStatus(status);
    state = RequestState(RequestStateFailed, note);
    return 0;
}

void WebSocketChannel::onMessage(std::string_view text) {
    auto message = dataformats::json::parse(text);
    if (message == nullptr) {
        m_logger << LogLevel::Warning << "Refused WebSocket message that is not valid JSON (" << text.size()
                 << " bytes)";
        return;
    }
    Ref const root(message.get());
    std::string const type = root("type").asString();
    if (type == wire::EVENT) {
        onEvent(std::move(message), text.size());
    } else if (type == wire::ACK) {
        onAcknowledgement(root);
    } else {
        m_logger << LogLevel::Warning << "Refused WebSocket message of unknown type '" << type << "'";
    }
}

void WebSocketChannel::onAcknowledgement(Ref message) {
    auto const reference = static_cast<std::uint64_t>(message("ref").asInteger());
    std::int64_t const status = message("status").asInteger();
    auto const backendId = static_cast<std::uint32_t>(message("subscriptionId").asInteger());
    std::lock_guard<std::mutex> const lock(m_mutex);
    auto const pending = m_pending.find(reference);
    if (pending == m_pending.end()) {
        m_logger << LogLevel::Warning << "Late or unknown acknowledgement " << reference;
        if (isSuccess(status) && backendId != 0 && m_open) {
            m_session->send(unsubscribeMessage(backendId));
        }
        return;
    }
    Pending& entry = pending->second;
    entry.done = true;
    entry.status = static_cast<std::int16_t>(status);
    entry.data = message("data").get() != nullptr ? message("data").get()->copy() : nullptr;
    if (!isSuccess(status)) {
        entry.note = "subscription refused with status " + std::to_string(status);
    } else if (backendId == 0) {
        entry.note = "acknowledgement without subscription id";
    } else {
        // Registered before the next message is read, so the first event finds its handler.
        entry.subscriptionId = m_nextSubscriptionId++;
        m_live[entry.subscriptionId] = Live{backendId, entry.requestId, entry.handler, entry.target};
        m_idByBackendId[backendId] = entry.subscriptionId;
    }
    m_acknowledged.notify_all();
}

// The whole message was read (up to the connection's own, larger bound) before this bound is
// applied: so the event can be refused alone and named, while the connection other
// subscriptions share stays open, which a bound on the transport's reads would not allow.
void WebSocketChannel::onEvent(std::unique_ptr<Value> message, std::size_t size) {
    auto const backendId = static_cast<std::uint32_t>(Ref(message.get())("subscriptionId").asInteger());
    // A message whose "type" could be read is an object.
    std::unique_ptr<Value> event = static_cast<Object&>(*message).take("event");
    if (event == nullptr || event->kind() != Value::Kind::Object) {
        m_logger << LogLevel::Warning << "Refused event without an event object for subscription " << backendId;
        return;
    }
    bool const tooBig = size > m_limits.maxEventBytes;
    bool known = false;
    std::weak_ptr<EventHandler> target;
    std::uint32_t requestId = 0;
    std::string path;  // copied only to name a refused event
    {
        std::lock_guard<std::mutex> const lock(m_mutex);
        auto const id = m_idByBackendId.find(backendId);
        if (id != m_idByBackendId.end()) {
            Live const& live = m_live[id->second];
            known = true;
            target = live.handler;
            requestId = live.requestId;
            if (tooBig) {
                path = live.target;
            }
        }
    }
    if (!known) {
        m_logger << LogLevel::Warning << "Dropped event for unknown subscription " << backendId;
        return;
    }
    if (tooBig) {
        m_logger << LogLevel::Warning << "Refused event of " << size << " bytes, over " << m_limits.maxEventBytes
                 << ", for subscription " << backendId << " (" << path << ")";
        return;
    }
    // Last use of the channel: releasing the handler may destroy it.
    auto const trees = m_trees;
    if (auto const handler = target.lock()) {
        Response response;
        response.setStatus(200);
        response.setId(requestId);
        response.setSharedData(trees->share(std::move(event)));
        handler->handleEvent(RequestState(RequestStateSucceeded, ""), response);
    }
    // After the hand-over, so that freeing earlier events does not delay this one.
    trees->freeReturned();
}

void WebSocketChannel::onClosed(std::string const& reason) {
    m_trees->freeReturned();
    std::map<std::uint32_t, Live> lost;
    bool shuttingDown = false;
    {
        std::lock_guard<std::mutex> const lock(m_mutex);
        m_open = false;
        shuttingDown = m_shuttingDown;
        lost.swap(m_live);
        m_idByBackendId.clear();
        for (auto& [reference, pending] : m_pending) {
            if (!pending.done) {
                pending.done = true;
                pending.status = GATEWAY_TIMEOUT;
                pending.note = "WebSocket closed: " + reason;
            }
        }
        m_acknowledged.notify_all();
    }
    if (shuttingDown) {
        return;
    }
    m_logger << LogLevel::Warning << "WebSocket closed (" << reason << "); ending " << lost.size()
             << " subscription(s)";
    // From here on only locals: releasing a handler may destroy the channel.
    for (auto const& [id, live] : lost) {
        if (auto const handler = live.handler.lock()) {
            Response response;
            response.setId(live.requestId);
            response.setData(errorEvent());
            handler->handleEvent(RequestState(RequestStateSucceeded, ""), response);
        }
    }
}

}  // namespace qel::rsi::client::host
