// The networking simulator's control interface over HTTP, for people driving it with curl.
//
// Contract: maps one request under "/_control/" to one operation of the simulator and answers
// with JSON (unknown path 404, wrong method 405, a body that is not a JSON object or lacks a
// field 400 with an "error" naming it); GET of "/" and of the console's files answers the
// console page. The endpoints are listed in docs/networking-dbus.md.
#pragma once

#include <string>
#include <utility>

namespace qel::sim::networking {

class NetworkingSimulator;

struct ControlAnswer {
    ControlAnswer() = default;
    ControlAnswer(int status_, std::string body_, std::string contentType_ = {})
        : status(status_), body(std::move(body_)), contentType(std::move(contentType_)) {}

    int status = 200;
    std::string body;
    std::string contentType;  // empty: JSON
};

class ControlEndpoints {
public:
    static constexpr char const* PREFIX = "/_control/";
    static constexpr char const* FEED_PATH = "/_control/feed";
    static ControlAnswer handle(NetworkingSimulator& simulator, std::string const& method, std::string const& target,
                                std::string const& body);
    // The `GET /_control/state` object's text, which the console's feed sends too.
    static std::string stateJson(NetworkingSimulator const& simulator);
};

}  // namespace qel::sim::networking
