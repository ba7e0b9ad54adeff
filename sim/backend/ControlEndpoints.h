// The simulator's control interface over HTTP, for people driving it with curl.
//
// Contract: maps one request under "/_control/" to one control operation of the simulator and
// answers with JSON (unknown endpoint 404, malformed body 400). Runs on the simulator's I/O
// thread. The endpoints are listed in docs/rsi-wire-protocol.md.
#pragma once

#include "BackendState.h"

#include <string>

namespace qel::sim::backend {

class BackendSimulator;

class ControlEndpoints {
public:
    static HttpAnswer handle(BackendSimulator& simulator, std::string const& method, std::string const& target,
                             std::string const& body);
};

}  // namespace qel::sim::backend
