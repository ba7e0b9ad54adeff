// A small HTTP server for the control endpoints and the console, on its own thread
// ("netsim-control").
//
// Contract: `start(0)` binds an ephemeral port (see `port()`) on loopback unless told another
// address; each request is handed to the handler on the server's thread and answered with what it
// returns; connections are kept alive. A WebSocket upgrade on the console's feed path gets the
// snapshot function's text at once and after each `notifyChanged` (the snapshot function runs on
// the server's thread). `stop` (and the destructor) close everything and join the thread.
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

    using Snapshot = std::function<std::string()>;

    explicit ControlServer(Handler handler, Snapshot snapshot = {});
    ~ControlServer();
    ControlServer(ControlServer const&) = delete;
    ControlServer& operator=(ControlServer const&) = delete;

    bool start(std::uint16_t port, std::string const& address = "127.0.0.1");
    // Any thread, never blocks: the console's pages get a new snapshot soon.
    void notifyChanged();
    void stop();
    std::uint16_t port() const;

private:
    struct Impl;
    std::unique_ptr<Impl> m_impl;
};

}  // namespace qel::sim::networking
