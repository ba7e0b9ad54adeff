// One WebSocket of the simulator: subscribe and unsubscribe in, acknowledgements and events out.
//
// Contract: lives on the simulator's I/O thread and is owned by its pending operations. It
// registers itself in the context under a session id once open and hands every message to the
// backend state; when the connection ends it drops its subscriptions there. A message over the
// size bound ends the session.
#pragma once

#include "SimServerContext.h"

#include <boost/asio/ip/tcp.hpp>
#include <boost/beast/core.hpp>
#include <boost/beast/http.hpp>
#include <boost/beast/websocket.hpp>

#include <deque>
#include <memory>
#include <string>

namespace qel::sim::backend {

class SimWebSocketSession : public std::enable_shared_from_this<SimWebSocketSession> {
public:
    SimWebSocketSession(boost::asio::ip::tcp::socket socket, SimServerContext& context);

    void accept(boost::beast::http::request<boost::beast::http::string_body> upgrade);
    void send(std::string message);
    // Starts the close handshake ("going away") once every message sent before has been written;
    // later messages are dropped.
    void close();

private:
    void readNext();
    void onRead(boost::beast::error_code const& error);
    void writeNext();
    void startClose();
    void end(boost::beast::error_code const& error);

    common::logging::Logger const m_logger{"backendsim"};
    boost::beast::websocket::stream<boost::beast::tcp_stream> m_ws;
    boost::beast::flat_buffer m_buffer;
    std::deque<std::string> m_outbox;
    SimServerContext& m_context;
    std::uint64_t m_id = 0;
    bool m_closing = false;
    bool m_ended = false;
};

}  // namespace qel::sim::backend
