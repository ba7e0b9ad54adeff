// The networking simulator's control interface over HTTP, for people driving it with curl.
//
// Contract: maps one request under "/_control/" to one operation of the simulator and answers
// with JSON (unknown endpoint 404, wrong method 405, malformed body 400). The endpoints are
// listed in docs/networking-dbus.md.
#pragma once

#include <string>

namespace qel::sim::networking {

class NetworkingSimulator;

struct ControlAnswer {
    int status = 200;
    std::string body;
};

class ControlEndpoints {
public:
    static constexpr char const* PREFIX = "/_control/";
    static ControlAnswer handle(NetworkingSimulator& simulator, std::string const& method, std::string const& target,
                                std::string const& body);
};

}  // namespace qel::sim::networking
