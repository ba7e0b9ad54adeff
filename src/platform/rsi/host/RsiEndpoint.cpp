#include "rsi/host/RsiEndpoint.h"

#include "common/Logger.h"
#include "ini/IniFileHandler.h"

#include <charconv>
#include <cstdlib>
#include <optional>

namespace qel::rsi::client::host {
namespace {

using common::logging::LogLevel;
using common::logging::Logger;

constexpr char const* HOST_VARIABLE = "QEL_RSI_HOST";
constexpr char const* PORT_VARIABLE = "QEL_RSI_PORT";

std::optional<std::uint16_t> parsePort(std::string const& text) {
    unsigned value = 0;
    auto const* end = text.data() + text.size();
    auto const result = std::from_chars(text.data(), end, value);
    if (result.ec != std::errc() || result.ptr != end || value == 0 || value > 65535) {
        return std::nullopt;
    }
    return static_cast<std::uint16_t>(value);
}

std::optional<std::string> environment(char const* name) {
    char const* value = std::getenv(name);
    if (value == nullptr || *value == '\0') {
        return std::nullopt;
    }
    return std::string(value);
}

}  // namespace

RsiEndpoint RsiEndpoint::resolve(std::string const& iniPath) {
    Logger const logger("rsi.host");
    RsiEndpoint endpoint;
    onlineservices::common::ini::IniFileHandler const ini(iniPath);

    std::string iniHost;
    if (ini.getValue("RSI_SERVICE", "IP_ADDRESS", iniHost) && !iniHost.empty()) {
        endpoint.host = iniHost;
    }
    int iniPort = 0;
    if (ini.getValue("RSI_SERVICE", "PORT", iniPort)) {
        if (auto const port = parsePort(std::to_string(iniPort))) {
            endpoint.port = *port;
        } else {
            logger << LogLevel::Warning << "Ignoring RSI_SERVICE/PORT " << iniPort << " of " << iniPath;
        }
    }

    if (auto const host = environment(HOST_VARIABLE)) {
        endpoint.host = *host;
    }
    if (auto const portText = environment(PORT_VARIABLE)) {
        if (auto const port = parsePort(*portText)) {
            endpoint.port = *port;
        } else {
            logger << LogLevel::Warning << "Ignoring " << PORT_VARIABLE << "='" << *portText << "'";
        }
    }
    logger << LogLevel::Info << "RSI backend endpoint " << endpoint.text();
    return endpoint;
}

std::string RsiEndpoint::text() const {
    return host + ":" + std::to_string(port);
}

}  // namespace qel::rsi::client::host
