// Keeps other sites' pages away from a simulator: a browser lets any page POST to loopback and
// open WebSockets there, so a request that a page sent (it carries an Origin) is served only when
// that page came from the simulator itself. curl and the framework send no Origin.
#pragma once

#include <string>

namespace qel::sim::console {

class OriginCheck {
public:
    // True when `origin` is empty (no browser page) or names the same host and port as `host`.
    static bool allows(std::string const& origin, std::string const& host);
    static constexpr char const* REFUSAL = R"({"error":"refused: sent by another site's page"})";
};

}  // namespace qel::sim::console
