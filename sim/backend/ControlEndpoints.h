// The simulator's control interface over HTTP, for people driving it with curl.
//
// Contract: maps one request under "/_control/" to one control operation of the simulator and
// answers with JSON: an unknown endpoint 404, a change that is not a POST 405, a body that is not
// a JSON object or lacks a field 400 with an "error" naming the field. GET of the bare prefix and
// of the console's files answers the console page. Runs on the simulator's I/O thread. The
// endpoints are listed in docs/rsi-wire-protocol.md.
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
