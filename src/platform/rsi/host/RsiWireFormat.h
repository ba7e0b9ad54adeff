// How a `Request` travels over HTTP and the WebSocket (docs/rsi-wire-protocol.md).
//
// Contract: pure functions, no I/O. Paths start with "/" ("/" alone for the root); the query is
// rendered in key order with RFC 3986 percent-encoding. Decoding is lenient: "+" is a blank and
// a malformed escape is kept as it stands.
#pragma once

#include "rsi/Request.h"

#include <map>
#include <string>
#include <string_view>

namespace qel::rsi::client::host::wire {

// WebSocket message types.
inline constexpr char const* SUBSCRIBE = "subscribe";
inline constexpr char const* UNSUBSCRIBE = "unsubscribe";
inline constexpr char const* ACK = "ack";
inline constexpr char const* EVENT = "event";

std::string pathOf(Request const& request);
std::string encodeQuery(std::map<std::string, std::string> const& parameters);
std::map<std::string, std::string> decodeQuery(std::string_view query);
// Path and, when there are parameters, "?" and the query.
std::string targetOf(Request const& request);

std::string percentEncode(std::string_view text);
std::string percentDecode(std::string_view text);

}  // namespace qel::rsi::client::host::wire
