#include "rsi/host/WebSocketSession.h"

#include "common/Thread.h"
#include "rsi/host/BlockingAsio.h"

#include <boost/asio/post.hpp>
#include <boost/beast/core.hpp>
#include <boost/beast/websocket.hpp>

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

// Reader threads whose session was destroyed on that very thread (the last owner of the client let
// go during an event): they end on their own and are joined by the next session, or at exit.
class RetiredReaders {
public:
    static RetiredReaders& instance() {
        static RetiredReaders retired;
        return retired;
    }
    ~RetiredReaders() { joinAll(); }

    void adopt(std::thread reader) {
        std::lock_guard<std::mutex> const lock(m_mutex);
        m_threads.push_back(std::move(reader));
    }
    void joinAll() {
        std::vector<std::thread> threads;
        {
            std::lock_guard<std::mutex> const lock(m_mutex);
            threads.swap(m_threads);
        }
        for (auto& thread : threads) {
            thread.join();
        }
    }

private:
    std::mutex m_mutex;
    std::vector<std::thread> m_threads;  // guarded by m_mutex
};

}  // namespace

// Everything below `connect` runs on the reader thread only, so it needs no lock.
// Hidden: its members carry Boost types, which the library must not export.
struct __attribute__((visibility("hidden"))) WebSocketSession::Impl {
    Impl(RsiEndpoint endpointIn, std::size_t maxBytes, Callbacks callbacksIn)
        : endpoint(std::move(endpointIn)), maxMessageBytes(maxBytes), callbacks(std::move(callbacksIn)) {}

    void readNext() {
        ws.async_read(buffer, [this](beast::error_code error, std::size_t) { onRead(error); });
    }

    void onRead(beast::error_code const& error) {
        if (error) {
            finish(error);
            return;
        }
        if (orphaned) {
            // Nobody listens any more; the close started by the destructor ends the reads.
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
        if (ended) {
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
            }
        });
    }

    void startClose() {
        if (ended || closing) {
            return;
        }
        closing = true;
        ws.async_close(websocket::close_code::normal, [](beast::error_code) {});
    }

    void finish(beast::error_code const& error) {
        ended = true;
        std::string reason = error.message();
        if (error == websocket::error::message_too_big) {
            reason = "message over " + std::to_string(maxMessageBytes) + " bytes refused";
            logger << LogLevel::Warning << "Refused WebSocket message over " << maxMessageBytes
                   << " bytes; closing the connection";
        } else if (error == websocket::error::closed) {
            reason = "closed by the " + std::string(closing ? "client" : "backend");
        }
        if (!orphaned) {
            callbacks.onClosed(reason);
        }
    }

    common::logging::Logger const logger{"rsi.host.websocket"};
    RsiEndpoint const endpoint;
    std::size_t const maxMessageBytes;
    Callbacks const callbacks;
    bool orphaned = false;  // the session was destroyed on the reader thread; no more callbacks
    net::io_context ioc;
    websocket::stream<beast::tcp_stream> ws{ioc};
    beast::flat_buffer buffer;
    std::deque<std::string> outbox;
    bool closing = false;
    bool ended = false;
};

WebSocketSession::WebSocketSession(RsiEndpoint endpoint, std::size_t maxMessageBytes, Callbacks callbacks)
    : m_impl(std::make_shared<Impl>(std::move(endpoint), maxMessageBytes, std::move(callbacks))) {}

WebSocketSession::~WebSocketSession() {
    close();
    if (m_reader.joinable() && m_reader.get_id() == std::this_thread::get_id()) {
        // The reader thread keeps the Impl alive until it has finished the close.
        m_impl->orphaned = true;
        RetiredReaders::instance().adopt(std::move(m_reader));
        return;
    }
    join();
}

bool WebSocketSession::connect(std::vector<std::string> const& addresses, std::uint32_t timeoutMs,
                               std::string& error) {
    RetiredReaders::instance().joinAll();
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
    if (!failure) {
        // Small messages go out at once instead of waiting for the previous one's ACK.
        lowest.socket().set_option(tcp::no_delay(true), failure);
        impl.ws.read_message_max(impl.maxMessageBytes);
        lowest.expires_after(timeout);
        failure = runToEnd(impl.ioc, [&](auto handler) {
            impl.ws.async_handshake(impl.endpoint.text(), PATH, std::move(handler));
        });
    }
    if (failure) {
        error = failure.message();
        lowest.close();
        return false;
    }
    // From here on the WebSocket's own time-outs apply (close handshake), not the socket's.
    lowest.expires_never();
    impl.ws.set_option(websocket::stream_base::timeout{timeout, websocket::stream_base::none(), false});
    return true;
}

void WebSocketSession::start() {
    m_reader = std::thread([impl = m_impl] {
        common::system::setCurrentThreadName("rsi-ws-reader");
        t_isReaderThread = true;
        impl->readNext();
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
