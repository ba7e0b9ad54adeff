// One request to the RSI backend, as the framework fills it.
//
// Contract: default-constructed, filled by the caller and then only read (by the client, from
// any thread). The request owns its body. Not copyable because of the body; callers share it as
// `std::shared_ptr<Request>`.
#pragma once

#include "dataformats/Value.h"
#include "rsi/RequestType.h"

#include <cstdint>
#include <map>
#include <memory>
#include <string>

namespace qel::rsi::client {

struct Request {
    std::uint32_t type = RequestTypeGetResource;  // a `RequestType` value
    // Chosen by the caller; handed back unchanged by `Response::getId()` of every answer and event.
    std::uint32_t requestId = 0;
    std::string service;   // first path segment
    std::string resource;  // second path segment
    std::string element;   // third path segment; empty when the whole resource is meant
    std::map<std::string, std::string> queryParameters;  // rendered in key order
    std::unique_ptr<qel::dataformats::data::Value> data;  // POST body; null otherwise
    std::string contentType;  // media type of `data`
    std::string acceptType;   // media type wanted back (the second media type of a write)
};

}  // namespace qel::rsi::client
