// A small HTTP server on 127.0.0.1 for the control endpoints, on its own thread
// ("netsim-control").
//
// Contract: `start(0)` binds an ephemeral port (see `port()`); each request is handed to the
// handler on the server's thread and answered with its JSON; connections are kept alive.
// `stop` (and the destructor) close everything and join the thread.
#pragma once

#include "ControlEndpoints.h"

#include <cstdint>
#include <functional>
#include <memory>
#include <string>

namespace qel::sim::networking {

class ControlServer {
public:
    using Handler = std::function<ControlAnswer(std::string const& method, std::string const& target,
                                                std::string const& body)>;

    explicit ControlServer(Handler handler);
    ~ControlServer();
    ControlServer(ControlServer const&) = delete;
    ControlServer& operator=(ControlServer const&) = delete;

    bool start(std::uint16_t port);
    void stop();
    std::uint16_t port() const;

private:
    struct Impl;
    std::unique_ptr<Impl> m_impl;
};

}  // namespace qel::sim::networking
