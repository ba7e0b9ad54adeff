#include "SimWebSocketSession.h"

#include "ConsoleFeed.h"

namespace qel::sim::backend {
namespace {

namespace beast = boost::beast;
namespace websocket = beast::websocket;
using common::logging::LogLevel;

}  // namespace

SimWebSocketSession::SimWebSocketSession(boost::asio::ip::tcp::socket socket, SimServerContext& context)
    : m_ws(std::move(socket)), m_context(context) {}

void SimWebSocketSession::accept(beast::http::request<beast::http::string_body> upgrade) {
    m_id = m_context.nextSessionId++;
    m_ws.read_message_max(m_context.maxMessageBytes);
    m_ws.set_option(websocket::stream_base::timeout::suggested(beast::role_type::server));
    m_ws.async_accept(upgrade, [self = shared_from_this()](beast::error_code const& error) {
        if (error) {
            self->end(error);
            return;
        }
        // Registered only now: the handshake's own write must not meet a send or a close.
        self->m_context.webSockets[self->m_id] = self->weak_from_this();
        if (self->m_context.feed) {
            self->m_context.feed->changed();
        }
        self->m_logger << LogLevel::Info << "WS session " << self->m_id << " opened";
        self->readNext();
    });
}

void SimWebSocketSession::send(std::string message) {
    if (m_ended || m_closing) {
        return;
    }
    m_outbox.push_back(std::move(message));
    if (m_outbox.size() == 1) {
        writeNext();
    }
}

void SimWebSocketSession::close() {
    if (m_ended || m_closing) {
        return;
    }
    m_closing = true;
    m_logger << LogLevel::Info << "WS session " << m_id << " closing";
    // The stream allows one write at a time and the close frame is one: with messages still
    // going out, the last write's completion starts the handshake.
    if (m_outbox.empty()) {
        startClose();
    }
}

void SimWebSocketSession::startClose() {
    m_ws.async_close(websocket::close_code::going_away, [self = shared_from_this()](beast::error_code const&) {});
}

void SimWebSocketSession::readNext() {
    m_ws.async_read(m_buffer, [self = shared_from_this()](beast::error_code const& error, std::size_t) {
        self->onRead(error);
    });
}

void SimWebSocketSession::onRead(beast::error_code const& error) {
    if (error) {
        end(error);
        return;
    }
    std::string const text = beast::buffers_to_string(m_buffer.data());
    m_buffer.consume(m_buffer.size());
    m_context.state.handleWebSocketMessage(m_id, text);
    readNext();
}

void SimWebSocketSession::writeNext() {
    m_ws.text(true);
    m_ws.async_write(boost::asio::buffer(m_outbox.front()),
                     [self = shared_from_this()](beast::error_code const& error, std::size_t) {
                         // The buffer of a write in flight stays alive until here.
                         if (error || self->m_ended) {
                             self->m_outbox.clear();
                             return;
                         }
                         self->m_outbox.pop_front();
                         if (!self->m_outbox.empty()) {
                             self->writeNext();
                         } else if (self->m_closing) {
                             self->startClose();
                         }
                     });
}

void SimWebSocketSession::end(beast::error_code const& error) {
    if (m_ended) {
        return;
    }
    m_ended = true;
    if (error == websocket::error::message_too_big) {
        m_logger << LogLevel::Warning << "WS session " << m_id << ": refused message over "
                 << m_context.maxMessageBytes << " bytes; closing the session";
    }
    m_context.webSockets.erase(m_id);
    m_context.state.dropSession(m_id);
    if (m_context.feed) {
        m_context.feed->changed();
    }
}

}  // namespace qel::sim::backend
