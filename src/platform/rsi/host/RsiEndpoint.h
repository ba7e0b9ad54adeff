// Where the host RSI client finds the backend.
//
// Contract: `resolve` applies the endpoint rule once and never fails: the environment
// (QEL_RSI_HOST, QEL_RSI_PORT) wins over the framework ini (section RSI_SERVICE, keys IP_ADDRESS
// and PORT), which wins over the built-in default 127.0.0.1:8080. Each of host and port is
// decided on its own; an empty or unusable value counts as absent and is logged.
#pragma once

#include <cstdint>
#include <string>

namespace qel::rsi::client::host {

struct RsiEndpoint {
    static constexpr char const* DEFAULT_INI_PATH = "/etc/qel.onlineservices.framework/framework.ini";
    static constexpr char const* DEFAULT_HOST = "127.0.0.1";
    static constexpr std::uint16_t DEFAULT_PORT = 8080;

    std::string host = DEFAULT_HOST;
    std::uint16_t port = DEFAULT_PORT;

    // The endpoint by the rule above, reading the ini file at `iniPath`.
    static RsiEndpoint resolve(std::string const& iniPath = DEFAULT_INI_PATH);
    // "host:port", for log lines and the Host header.
    std::string text() const;
};

}  // namespace qel::rsi::client::host
