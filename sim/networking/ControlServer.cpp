#include "ControlServer.h"

#include "ConsoleFeed.h"
#include "OriginCheck.h"

#include "common/Logger.h"
#include "common/Thread.h"

#include <boost/asio/io_context.hpp>
#include <boost/asio/ip/address.hpp>
#include <boost/asio/ip/tcp.hpp>
#include <boost/beast/core.hpp>
#include <boost/beast/http.hpp>
#include <boost/beast/websocket/rfc6455.hpp>

#include <optional>

namespace qel::sim::networking {
namespace {

namespace beast = boost::beast;
namespace http = beast::http;
namespace net = boost::asio;
using tcp = net::ip::tcp;
using common::logging::LogLevel;

constexpr std::size_t MAX_BODY_BYTES = 64 * 1024;

// One keep-alive connection; owned by its pending operation.
class Session : public std::enable_shared_from_this<Session> {
public:
    Session(tcp::socket socket, ControlServer::Handler const& handler, std::shared_ptr<console::ConsoleFeed> feed)
        : m_stream(std::move(socket)), m_handler(handler), m_feed(std::move(feed)) {}

    void read() {
        m_parser.emplace();
        m_parser->body_limit(MAX_BODY_BYTES);
        http::async_read(m_stream, m_buffer, *m_parser, [self = shared_from_this()](beast::error_code error, std::size_t) {
            self->onRead(error);
        });
    }

private:
    void onRead(beast::error_code const& error) {
        if (error) {
            beast::error_code ignored;
            m_stream.socket().shutdown(tcp::socket::shutdown_both, ignored);
            return;
        }
        auto request = m_parser->release();
        if (!console::OriginCheck::allows(std::string(request[http::field::origin]),
                                          std::string(request[http::field::host]))) {
            answer(request, {403, console::OriginCheck::REFUSAL});
            return;
        }
        if (beast::websocket::is_upgrade(request) && request.target() == ControlEndpoints::FEED_PATH && m_feed) {
            m_feed->accept(m_stream.release_socket(), std::move(request));
            return;
        }
        answer(request, m_handler(std::string(request.method_string()), std::string(request.target()),
                                  request.body()));
    }

    void answer(http::request<http::string_body> const& request, ControlAnswer const& result) {
        m_response = {};
        m_response.version(11);
        m_response.result(static_cast<unsigned>(result.status));
        m_response.set(http::field::server, "qel-networking-sim");
        m_response.set(http::field::content_type,
                       result.contentType.empty() ? std::string("application/json") : result.contentType);
        m_response.body() = result.body;
        m_response.keep_alive(request.keep_alive());
        m_response.prepare_payload();
        http::async_write(m_stream, m_response, [self = shared_from_this()](beast::error_code writeError, std::size_t) {
            if (!writeError && self->m_response.keep_alive()) {
                self->read();
                return;
            }
            beast::error_code ignored;
            self->m_stream.socket().shutdown(tcp::socket::shutdown_both, ignored);
        });
    }

    beast::tcp_stream m_stream;
    beast::flat_buffer m_buffer;
    std::optional<http::request_parser<http::string_body>> m_parser;
    http::response<http::string_body> m_response;
    ControlServer::Handler const& m_handler;  // the server outlives its sessions
    std::shared_ptr<console::ConsoleFeed> const m_feed;
};

}  // namespace

struct ControlServer::Impl {
    Impl(Handler h, Snapshot snapshot) : handler(std::move(h)) {
        if (snapshot) {
            feed = std::make_shared<console::ConsoleFeed>(ioc.get_executor(), std::move(snapshot));
        }
    }

    void acceptNext() {
        acceptor.async_accept([this](beast::error_code const& error, tcp::socket socket) {
            if (error == net::error::operation_aborted || !acceptor.is_open()) {
                return;
            }
            if (!error) {
                std::make_shared<Session>(std::move(socket), handler, feed)->read();
            }
            acceptNext();
        });
    }

    Handler const handler;
    net::io_context ioc;
    tcp::acceptor acceptor{ioc};
    std::shared_ptr<console::ConsoleFeed> feed;
    std::uint16_t boundPort = 0;
    std::unique_ptr<common::system::Thread> thread;
};

namespace {

class IoRunner : public common::system::Runnable {
public:
    explicit IoRunner(net::io_context& ioc) : m_ioc(ioc) {}
    void run() override { m_ioc.run(); }

private:
    net::io_context& m_ioc;
};

}  // namespace

ControlServer::ControlServer(Handler handler, Snapshot snapshot)
    : m_impl(std::make_unique<Impl>(std::move(handler), std::move(snapshot))) {}

ControlServer::~ControlServer() {
    stop();
}

bool ControlServer::start(std::uint16_t port, std::string const& address) {
    if (m_impl->thread) {
        return false;
    }
    beast::error_code failure;
    auto const ip = net::ip::make_address(address, failure);
    if (failure) {
        common::logging::Logger("networkingsim") << LogLevel::Error << "Control endpoint: bad address " << address;
        return false;
    }
    tcp::endpoint const endpoint(ip, port);
    m_impl->acceptor.open(endpoint.protocol(), failure);
    if (!failure) {
        m_impl->acceptor.set_option(net::socket_base::reuse_address(true), failure);
    }
    if (!failure) {
        m_impl->acceptor.bind(endpoint, failure);
    }
    if (!failure) {
        m_impl->acceptor.listen(net::socket_base::max_listen_connections, failure);
    }
    if (failure) {
        common::logging::Logger("networkingsim") << LogLevel::Error << "Control endpoint cannot listen on port " << port
                                                 << ": " << failure.message();
        return false;
    }
    m_impl->boundPort = m_impl->acceptor.local_endpoint(failure).port();
    m_impl->acceptNext();
    m_impl->thread = std::make_unique<common::system::Thread>("netsim-control",
                                                              std::make_shared<IoRunner>(m_impl->ioc));
    m_impl->thread->start();
    return true;
}

void ControlServer::stop() {
    if (!m_impl->thread) {
        return;
    }
    m_impl->ioc.stop();
    m_impl->thread->join();
    m_impl->thread.reset();
    beast::error_code ignored;
    m_impl->acceptor.close(ignored);
}

void ControlServer::notifyChanged() {
    if (m_impl->feed) {
        m_impl->feed->changed();
    }
}

std::uint16_t ControlServer::port() const {
    return m_impl->boundPort;
}

}  // namespace qel::sim::networking
