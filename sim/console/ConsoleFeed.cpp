#include "ConsoleFeed.h"

#include "common/Logger.h"

#include <boost/asio/post.hpp>
#include <algorithm>
#include <boost/beast/core.hpp>
#include <boost/beast/websocket.hpp>

#include <optional>

namespace qel::sim::console {

namespace beast = boost::beast;
namespace websocket = beast::websocket;
namespace net = boost::asio;

namespace {

// A page sends nothing the feed needs; this only bounds what a hostile one can make us buffer.
constexpr std::size_t MAX_PAGE_MESSAGE_BYTES = 4096;

}  // namespace

// One page's connection; owned by its pending operations.
class ConsoleFeedSession : public std::enable_shared_from_this<ConsoleFeedSession> {
public:
    explicit ConsoleFeedSession(net::ip::tcp::socket socket) : m_ws(std::move(socket)) {}

    void accept(ConsoleFeed::Request const& upgrade, std::string firstSnapshot) {
        m_ws.read_message_max(MAX_PAGE_MESSAGE_BYTES);
        m_ws.set_option(websocket::stream_base::timeout::suggested(beast::role_type::server));
        m_ws.async_accept(upgrade, [self = shared_from_this(), first = std::move(firstSnapshot)](
                                       beast::error_code const& error) mutable {
            if (error) {
                return;
            }
            self->m_open = true;
            self->send(std::move(first));
            self->readNext();
        });
    }

    void send(std::string snapshot) {
        if (!m_open) {
            return;
        }
        m_next = std::move(snapshot);
        if (!m_writing) {
            writeNext();
        }
    }

private:
    void writeNext() {
        if (!m_next) {
            m_writing = false;
            return;
        }
        m_writing = true;
        m_out = std::move(*m_next);
        m_next.reset();
        m_ws.text(true);
        m_ws.async_write(net::buffer(m_out), [self = shared_from_this()](beast::error_code const& error, std::size_t) {
            if (error) {
                self->m_open = false;
                self->m_writing = false;
                return;
            }
            self->writeNext();
        });
    }

    void readNext() {
        m_ws.async_read(m_in, [self = shared_from_this()](beast::error_code const& error, std::size_t) {
            if (error) {
                self->m_open = false;
                return;
            }
            self->m_in.clear();
            self->readNext();
        });
    }

    websocket::stream<beast::tcp_stream> m_ws;
    beast::flat_buffer m_in;
    std::string m_out;
    std::optional<std::string> m_next;
    bool m_writing = false;
    bool m_open = false;
};

ConsoleFeed::ConsoleFeed(net::any_io_executor executor, Snapshot snapshot)
    : m_executor(std::move(executor)), m_snapshot(std::move(snapshot)) {}

void ConsoleFeed::accept(net::ip::tcp::socket socket, Request upgrade) {
    auto const session = std::make_shared<ConsoleFeedSession>(std::move(socket));
    session->accept(upgrade, m_snapshot());
    m_sessions.erase(std::remove_if(m_sessions.begin(), m_sessions.end(),
                                    [](auto const& weak) { return weak.expired(); }),
                     m_sessions.end());
    m_sessions.push_back(session);
    common::logging::Logger("simconsole") << common::logging::LogLevel::Info << "Console page connected";
}

void ConsoleFeed::changed() {
    if (m_pending.exchange(true)) {
        return;
    }
    net::post(m_executor, [weak = weak_from_this()] {
        if (auto const self = weak.lock()) {
            self->m_pending = false;
            self->publish();
        }
    });
}

void ConsoleFeed::publish() {
    std::optional<std::string> snapshot;
    for (auto const& weak : m_sessions) {
        if (auto const session = weak.lock()) {
            if (!snapshot) {
                snapshot = m_snapshot();
            }
            session->send(*snapshot);
        }
    }
}

}  // namespace qel::sim::console
