// One HTTP connection to the simulator: keep-alive requests, or the upgrade to a WebSocket.
//
// Contract: lives on the simulator's I/O thread and is owned by its pending operations. Resource
// requests go to the backend state (answers held back as long as a delay asks), requests under
// the control prefix to the control handler, an upgrade on the WebSocket path becomes a
// `SimWebSocketSession`. A request over the size bound is answered 413 and the connection closed.
#pragma once

#include "SimServerContext.h"

#include <boost/asio/ip/tcp.hpp>
#include <boost/asio/steady_timer.hpp>
#include <boost/beast/core.hpp>
#include <boost/beast/http.hpp>

#include <memory>
#include <optional>

namespace qel::sim::backend {

class SimHttpSession : public std::enable_shared_from_this<SimHttpSession> {
public:
    SimHttpSession(boost::asio::ip::tcp::socket socket, SimServerContext& context);

    void start();

private:
    using Request = boost::beast::http::request<boost::beast::http::string_body>;

    void onRead(boost::beast::error_code const& error);
    void serve(Request const& request);
    void write(HttpAnswer const& answer, bool keepAlive);
    void shutdown();

    common::logging::Logger const m_logger{"backendsim"};
    boost::beast::tcp_stream m_stream;
    boost::beast::flat_buffer m_buffer;
    std::optional<boost::beast::http::request_parser<boost::beast::http::string_body>> m_parser;
    boost::beast::http::response<boost::beast::http::string_body> m_response;
    boost::asio::steady_timer m_delay;
    SimServerContext& m_context;
};

}  // namespace qel::sim::backend
