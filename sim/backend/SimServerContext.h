// What the sessions of one running simulator share.
//
// Contract: touched on the simulator's I/O thread only, so it needs no lock. It outlives every
// session: the simulator destroys its I/O context (and with it the sessions) before the context.
#pragma once

#include "BackendState.h"

#include <cstddef>
#include <cstdint>
#include <functional>
#include <map>
#include <memory>
#include <string>

namespace qel::sim::backend {

class SimWebSocketSession;
}  // namespace qel::sim::backend
namespace qel::sim::console {
class ConsoleFeed;
}  // namespace qel::sim::console
namespace qel::sim::backend {

struct SimServerContext {
    using ControlHandler =
        std::function<HttpAnswer(std::string const& method, std::string const& target, std::string const& body)>;

    static constexpr char const* WEBSOCKET_PATH = "/subscriptions";
    static constexpr char const* CONTROL_PREFIX = "/_control/";
    static constexpr char const* CONSOLE_FEED_PATH = "/_control/feed";

    BackendState& state;
    ControlHandler control;
    std::size_t maxMessageBytes;
    std::map<std::uint64_t, std::weak_ptr<SimWebSocketSession>> webSockets;
    std::uint64_t nextSessionId = 1;
    std::shared_ptr<console::ConsoleFeed> feed;  // while running
};

}  // namespace qel::sim::backend
