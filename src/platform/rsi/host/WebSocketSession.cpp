#include "rsi/host/WebSocketSession.h"

#include "common/Thread.h"
#include "rsi/host/BlockingAsio.h"

#include <boost/asio/post.hpp>
#include <boost/asio/steady_timer.hpp>
#include <boost/beast/core.hpp>
#include <boost/beast/websocket.hpp>

#include <atomic>
#include <chrono>
#include <deque>
#include <mutex>
#include <vector>

namespace qel::rsi::client::host {
namespace {

namespace beast = boost::beast;
namespace websocket = beast::websocket;
namespace net = boost::asio;
using tcp = net::ip::tcp;
using common::logging::LogLevel;

thread_local bool t_isReaderThread = false;

// The backend's TCP stream: a type of our own, so that the WebSocket's teardown below is ours.
class BackendStream : public beast::tcp_stream {
public:
    using beast::tcp_stream::tcp_stream;
};

// The stock client teardown reads until the backend closes TCP, which a stuck or hostile backend
// never does. Ours runs once the close frames were exchanged, or at once after a protocol
// violation, and closes the socket without waiting: the connection is over either way.
template <typename Handler>
void async_teardown(beast::role_type /*role*/, BackendStream& stream, Handler&& handler) {
    beast::error_code ignored;
    stream.socket().shutdown(tcp::socket::shutdown_both, ignored);
    stream.close();
    net::post(stream.get_executor(), beast::bind_front_handler(std::forward<Handler>(handler), beast::error_code{}));
}

}  // namespace

// Everything below `connect` runs on the reader thread only, so it needs no lock.
// Hidden: its members carry Boost types, which the library must not export.
struct __attribute__((visibility("hidden"))) WebSocketSession::Impl {
    Impl(RsiEndpoint endpointIn, WebSocketLimits const& limitsIn, Callbacks callbacksIn)
        : endpoint(std::move(endpointIn)), limits(limitsIn), callbacks(std::move(callbacksIn)) {}

    // Piece by piece, so that a large message arriving slowly still shows the link alive.
    void readNext() {
        ws.async_read_some(buffer, 0, [this](beast::error_code error, std::size_t) { onRead(error); });
    }

    void onRead(beast::error_code const& error) {
        if (error) {
            finish(error);
            return;
        }
        heardNow();
        if (!ws.is_message_done()) {
            readNext();
            return;
        }
        if (orphaned) {
            // Nobody listens any more; the socket closed by the destructor ends the reads.
        } else if (ws.got_text()) {
            // Read straight from the buffer, which the flat buffer keeps in one piece.
            callbacks.onMessage(std::string_view(static_cast<char const*>(buffer.data().data()), buffer.size()));
        } else {
            logger << LogLevel::Warning << "Refused binary WebSocket message of " << buffer.size() << " bytes";
        }
        buffer.consume(buffer.size());
        readNext();
    }

    void enqueue(std::string message) {
        if (ended || closing) {
            return;
        }
        outbox.push_back(std::move(message));
        if (outbox.size() == 1) {
            writeNext();
        }
    }

    void writeNext() {
        ws.text(true);
        ws.async_write(net::buffer(outbox.front()), [this](beast::error_code error, std::size_t) {
            // The buffer of a write in flight stays alive until here.
            if (error || ended) {
                if (error && !ended) {
                    // The pending read ends with the connection and reports the loss.
                    logger << LogLevel::Warning << "WebSocket write failed: " << error.message();
                    beast::get_lowest_layer(ws).close();
                }
                outbox.clear();
                return;
            }
            outbox.pop_front();
            if (!outbox.empty()) {
                writeNext();
            } else if (closing) {
                sendClose();
            }
        });
    }

    // Dead-link detection. A read only notes the time; the timer runs once per half of the idle
    // bound at most, instead of being re-armed on every read.
    void heardNow() {
        lastHeard = std::chrono::steady_clock::now();
        pinged = false;
    }

    void watchLink() {
        if (limits.idleTimeoutMs == 0) {
            return;
        }
        std::chrono::milliseconds const idle(limits.idleTimeoutMs);
        linkTimer.expires_at(lastHeard + (pinged ? idle : idle / 2));
        linkTimer.async_wait([this](beast::error_code error) {
            if (!error && !ended) {
                checkLink();
            }
        });
    }

    void checkLink() {
        if (closing) {
            return;  // the close handshake has its own bound
        }
        std::chrono::milliseconds const idle(limits.idleTimeoutMs);
        auto const quiet = std::chrono::steady_clock::now() - lastHeard;
        if (quiet >= idle) {
            silent = true;
            beast::get_lowest_layer(ws).close();
            return;
        }
        if (quiet >= idle / 2 && !pinged) {
            pinged = true;
            // Control frames may go out beside a message write, but one at a time and never
            // beside the close frame.
            if (!pingInFlight) {
                pingInFlight = true;
                ws.async_ping({}, [this](beast::error_code) { pingInFlight = false; });
            }
        }
        watchLink();
    }

    // The stream allows one write at a time and the close frame is one: with messages still going
    // out, the last write's completion sends it.
    void startClose() {
        if (ended || closing) {
            return;
        }
        closing = true;
        if (outbox.empty()) {
            sendClose();
        }
    }

    void sendClose() {
        ws.async_close(websocket::close_code::normal, [](beast::error_code) {});
    }

    // Without a handshake: every operation ends at once, the pending read with the reason.
    void abort() {
        if (!ended) {
            closing = true;
            beast::get_lowest_layer(ws).close();
        }
    }

    void finish(beast::error_code const& error) {
        ended = true;
        linkTimer.cancel();
        std::string const reason = describe(error);
        if (!orphaned) {
            callbacks.onClosed(reason);
        }
        // The stream's own timer may still run for seconds; nothing is left to wait for.
        ioc.stop();
    }

    std::string describe(beast::error_code const& error) const {
        if (silent) {
            return "nothing received within " + std::to_string(limits.idleTimeoutMs) + " ms";
        }
        if (error == websocket::error::message_too_big) {
            logger << LogLevel::Warning << "Refused WebSocket message over " << limits.maxMessageBytes
                   << " bytes; closing the connection";
            return "message over " + std::to_string(limits.maxMessageBytes) + " bytes refused";
        }
        if (error == websocket::condition::protocol_violation) {
            logger << LogLevel::Warning << "WebSocket protocol violation by the backend (" << error.message()
                   << "); closing the connection";
            return "protocol violation: " + error.message();
        }
        if (error == beast::error::timeout) {
            return "no answer to the close within " + std::to_string(limits.closeTimeoutMs) + " ms";
        }
        // Our close ends the pending read as cancelled: the socket goes once the frames crossed.
        if (error == websocket::error::closed || (closing && error == net::error::operation_aborted)) {
            return "closed by the " + std::string(closing ? "client" : "backend");
        }
        return error.message();
    }

    common::logging::Logger const logger{"rsi.host.websocket"};
    RsiEndpoint const endpoint;
    WebSocketLimits const limits;
    Callbacks const callbacks;
    bool orphaned = false;  // the session was destroyed on the reader thread; no more callbacks
    std::atomic<bool> connectCancelled{false};
    bool connected = false;  // set by `connect` before the reader thread starts
    net::io_context ioc;
    websocket::stream<BackendStream> ws{ioc};
    beast::flat_buffer buffer;
    std::deque<std::string> outbox;
    bool closing = false;
    bool ended = false;
    net::steady_timer linkTimer{ioc};
    std::chrono::steady_clock::time_point lastHeard;  // anything received, control frames included
    bool pinged = false;        // a ping went out since then
    bool pingInFlight = false;  // its write has not completed yet
    bool silent = false;        // ended by the dead-link check
};

WebSocketSession::WebSocketSession(RsiEndpoint endpoint, WebSocketLimits const& limits, Callbacks callbacks)
    : m_impl(std::make_shared<Impl>(std::move(endpoint), limits, std::move(callbacks))) {}

WebSocketSession::~WebSocketSession() {
    net::post(m_impl->ioc, [impl = m_impl.get()] { impl->abort(); });
    if (m_reader.joinable() && m_reader.get_id() == std::this_thread::get_id()) {
        // The reader thread keeps the Impl alive until the read has ended.
        m_impl->orphaned = true;
        common::system::retireThread(std::move(m_reader));
        return;
    }
    join();
}

bool WebSocketSession::connect(std::vector<std::string> const& addresses, std::uint32_t timeoutMs,
                               std::string& error) {
    common::system::joinRetiredThreads();
    auto& impl = *m_impl;
    std::chrono::milliseconds const timeout(timeoutMs);
    std::vector<tcp::endpoint> endpoints;
    for (auto const& address : addresses) {
        beast::error_code invalid;
        auto const parsed = net::ip::make_address(address, invalid);
        if (!invalid) {
            endpoints.emplace_back(parsed, impl.endpoint.port);
        }
    }
    auto& lowest = beast::get_lowest_layer(impl.ws);
    lowest.expires_after(timeout);
    beast::error_code failure =
        runToEnd(impl.ioc, [&](auto handler) { lowest.async_connect(endpoints, std::move(handler)); });
    if (!failure && impl.connectCancelled.load()) {
        failure = net::error::operation_aborted;
    }
    if (!failure) {
        // Small messages go out at once instead of waiting for the previous one's ACK.
        lowest.socket().set_option(tcp::no_delay(true), failure);
        impl.ws.read_message_max(impl.limits.maxMessageBytes);
        lowest.expires_after(timeout);
        failure = runToEnd(impl.ioc, [&](auto handler) {
            impl.ws.async_handshake(impl.endpoint.text(), PATH, std::move(handler));
        });
    }
    if (!failure && impl.connectCancelled.load()) {
        failure = net::error::operation_aborted;
    }
    if (failure) {
        error = failure.message();
        lowest.close();
        return false;
    }
    // From here on the WebSocket bounds its close handshake; a silent link is found by our own check.
    lowest.expires_never();
    impl.ws.set_option(websocket::stream_base::timeout{std::chrono::milliseconds(impl.limits.closeTimeoutMs),
                                                       websocket::stream_base::none(), false});
    impl.ws.control_callback([impl = &impl](websocket::frame_type, beast::string_view) { impl->heardNow(); });
    impl.connected = true;
    return true;
}

void WebSocketSession::cancelConnect() {
    m_impl->connectCancelled.store(true);
    // Runs inside the connecting thread's I/O, or on the reader thread once connected.
    net::post(m_impl->ioc, [impl = m_impl.get()] {
        if (!impl->connected) {
            beast::get_lowest_layer(impl->ws).close();
        }
    });
}

void WebSocketSession::start() {
    m_reader = std::thread([impl = m_impl] {
        common::system::setCurrentThreadName("rsi-ws-reader");
        common::system::markFrameworkThread();
        t_isReaderThread = true;
        impl->heardNow();
        impl->readNext();
        impl->watchLink();
        impl->ioc.restart();
        impl->ioc.run();
    });
}

void WebSocketSession::send(std::string message) {
    net::post(m_impl->ioc,
              [impl = m_impl.get(), text = std::move(message)]() mutable { impl->enqueue(std::move(text)); });
}

void WebSocketSession::close() {
    net::post(m_impl->ioc, [impl = m_impl.get()] { impl->startClose(); });
}

void WebSocketSession::join() {
    if (m_reader.joinable()) {
        m_reader.join();
    }
}

bool WebSocketSession::isReaderThread() {
    return t_isReaderThread;
}

}  // namespace qel::rsi::client::host
