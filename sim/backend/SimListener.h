// Accepts the simulator's connections on a loopback port and starts one HTTP session for each.
//
// Contract: lives on the simulator's I/O thread once `acceptNext` ran; owned by its pending
// accept. `listen` binds `address` (port 0: an ephemeral one) and reports the port bound.
#pragma once

#include "SimServerContext.h"

#include <boost/asio/io_context.hpp>
#include <boost/asio/ip/tcp.hpp>

#include <cstdint>
#include <memory>
#include <string>

namespace qel::sim::backend {

class SimListener : public std::enable_shared_from_this<SimListener> {
public:
    SimListener(boost::asio::io_context& ioc, SimServerContext& context);

    bool listen(std::string const& address, std::uint16_t port, std::string& error);
    std::uint16_t port() const;
    void acceptNext();

private:
    boost::asio::ip::tcp::acceptor m_acceptor;
    SimServerContext& m_context;
};

}  // namespace qel::sim::backend
