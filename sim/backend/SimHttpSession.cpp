#include "SimHttpSession.h"

#include "SimWebSocketSession.h"
#include "ConsoleFeed.h"
#include "OriginCheck.h"

#include <boost/beast/websocket/rfc6455.hpp>

#include <chrono>

namespace qel::sim::backend {
namespace {

namespace beast = boost::beast;
namespace http = beast::http;
using common::logging::LogLevel;

constexpr int PAYLOAD_TOO_LARGE = 413;

}  // namespace

SimHttpSession::SimHttpSession(boost::asio::ip::tcp::socket socket, SimServerContext& context)
    : m_stream(std::move(socket)), m_delay(m_stream.get_executor()), m_context(context) {}

void SimHttpSession::start() {
    m_parser.emplace();
    m_parser->body_limit(m_context.maxMessageBytes);
    // The header first: reading header and body in one go skips the check of Content-Length
    // against the body limit (seen with Boost 1.74).
    http::async_read_header(m_stream, m_buffer, *m_parser,
                            [self = shared_from_this()](beast::error_code const& error, std::size_t) {
                                if (error) {
                                    self->onRead(error);
                                    return;
                                }
                                http::async_read(self->m_stream, self->m_buffer, *self->m_parser,
                                                 [self](beast::error_code const& bodyError, std::size_t) {
                                                     self->onRead(bodyError);
                                                 });
                            });
}

void SimHttpSession::onRead(beast::error_code const& error) {
    if (error == http::error::body_limit) {
        m_logger << LogLevel::Warning << "HTTP request over " << m_context.maxMessageBytes << " bytes refused";
        write({PAYLOAD_TOO_LARGE, R"({"error":"request too large"})", {}}, false);
        return;
    }
    if (error) {
        shutdown();
        return;
    }
    Request request = m_parser->release();
    bool const control = std::string(request.target()).rfind(SimServerContext::CONTROL_PREFIX, 0) == 0;
    if (control && !console::OriginCheck::allows(std::string(request[http::field::origin]),
                                                 std::string(request[http::field::host]))) {
        m_logger << LogLevel::Warning << "Control request from the page of " << request[http::field::origin]
                 << " refused";
        write({403, console::OriginCheck::REFUSAL}, false);
        return;
    }
    if (beast::websocket::is_upgrade(request)) {
        if (request.target() == SimServerContext::WEBSOCKET_PATH) {
            std::make_shared<SimWebSocketSession>(m_stream.release_socket(), m_context)->accept(std::move(request));
        } else if (request.target() == SimServerContext::CONSOLE_FEED_PATH && m_context.feed) {
            m_context.feed->accept(m_stream.release_socket(), std::move(request));
        } else {
            write({404, R"({"error":"no WebSocket here"})", {}}, false);
        }
        return;
    }
    serve(request);
}

void SimHttpSession::serve(Request const& request) {
    std::string const method(request.method_string());
    std::string const target(request.target());
    bool const keepAlive = request.keep_alive();
    if (target.rfind(SimServerContext::CONTROL_PREFIX, 0) == 0) {
        write(m_context.control(method, target, request.body()), keepAlive);
        return;
    }
    HttpAnswer answer = m_context.state.handleHttp(method, target, request.body());
    std::uint32_t const delayMs = m_context.state.delayFor(target);
    if (delayMs == 0) {
        write(answer, keepAlive);
        return;
    }
    m_delay.expires_after(std::chrono::milliseconds(delayMs));
    m_delay.async_wait([self = shared_from_this(), answer = std::move(answer), keepAlive](beast::error_code const&) {
        self->write(answer, keepAlive);
    });
}

void SimHttpSession::write(HttpAnswer const& answer, bool keepAlive) {
    m_response = {};
    m_response.version(11);
    m_response.result(static_cast<unsigned>(answer.status));
    m_response.set(http::field::server, "qel-backend-sim");
    if (!answer.body.empty()) {
        m_response.set(http::field::content_type,
                       answer.contentType.empty() ? std::string("application/json") : answer.contentType);
        m_response.body() = answer.body;
    }
    if (!answer.location.empty()) {
        m_response.set(http::field::location, answer.location);
    }
    m_response.keep_alive(keepAlive);
    m_response.prepare_payload();
    http::async_write(m_stream, m_response,
                      [self = shared_from_this(), keepAlive](beast::error_code const& error, std::size_t) {
                          if (error || !keepAlive) {
                              self->shutdown();
                              return;
                          }
                          self->start();
                      });
}

void SimHttpSession::shutdown() {
    beast::error_code ignored;
    m_stream.socket().shutdown(boost::asio::ip::tcp::socket::shutdown_send, ignored);
}

}  // namespace qel::sim::backend
