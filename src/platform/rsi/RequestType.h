// The request kinds of the RSI client: method and URI shape of a `Request`.
//
// Contract: the numbers are fixed by the client and travel in `Request::type`; a number not
// listed here is unknown to the framework. `methodName` and `uriOf` render a request the way the
// client addresses it (no leading slash; the query is not part of the URI).
#pragma once

#include <cstdint>
#include <string>

namespace qel::rsi::client {

struct Request;

enum RequestType : std::uint32_t {
    RequestTypeGetResource = 0,         // GET service/resource
    RequestTypePostElement = 1,         // POST service/resource/element (update), body required
    RequestTypeSubscribeElement = 4,    // SUBSCRIBE service/resource/element
    RequestTypeGetElement = 6,          // GET service/resource/element
    RequestTypePostResource = 7,        // POST service/resource (create), body required
    RequestTypeSubscribeResource = 9,   // SUBSCRIBE service/resource
    RequestTypeGetService = 12,         // GET service/
    RequestTypeSubscribeRoot = 18,      // SUBSCRIBE / (service availability)
};

// "GET", "POST" or "SUBSCRIBE"; "UNKNOWN" for any other number.
char const* methodName(std::uint32_t type);
// "service/resource/element" and the like; "<unknown uri>" for an unknown type.
std::string uriOf(Request const& request);
// True for the two kinds that carry a body.
bool hasBody(std::uint32_t type);
// Short upper-case name such as "GET_ELEMENT"; "UNKNOWN" for any other number.
char const* requestTypeName(std::uint32_t type);

}  // namespace qel::rsi::client
