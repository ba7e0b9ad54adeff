#include "SimListener.h"

#include "SimHttpSession.h"

#include <boost/asio/ip/address.hpp>

namespace qel::sim::backend {

namespace net = boost::asio;
using tcp = net::ip::tcp;

SimListener::SimListener(net::io_context& ioc, SimServerContext& context) : m_acceptor(ioc), m_context(context) {}

bool SimListener::listen(std::string const& address, std::uint16_t port, std::string& error) {
    boost::system::error_code failure;
    auto const ip = net::ip::make_address(address, failure);
    if (failure) {
        error = "bad address " + address;
        return false;
    }
    tcp::endpoint const endpoint(ip, port);
    m_acceptor.open(endpoint.protocol(), failure);
    if (!failure) {
        // A restarted simulator takes its port back while old connections linger.
        m_acceptor.set_option(net::socket_base::reuse_address(true), failure);
    }
    if (!failure) {
        m_acceptor.bind(endpoint, failure);
    }
    if (!failure) {
        m_acceptor.listen(net::socket_base::max_listen_connections, failure);
    }
    if (failure) {
        error = failure.message();
        return false;
    }
    return true;
}

std::uint16_t SimListener::port() const {
    boost::system::error_code ignored;
    return m_acceptor.local_endpoint(ignored).port();
}

void SimListener::acceptNext() {
    m_acceptor.async_accept([self = shared_from_this()](boost::system::error_code const& error, tcp::socket socket) {
        if (error == net::error::operation_aborted) {
            return;
        }
        if (!error) {
            // Events are small; they should not wait for the previous one's ACK.
            boost::system::error_code ignored;
            socket.set_option(tcp::no_delay(true), ignored);
            std::make_shared<SimHttpSession>(std::move(socket), self->m_context)->start();
        }
        self->acceptNext();
    });
}

}  // namespace qel::sim::backend
