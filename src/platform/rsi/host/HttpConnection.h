// One keep-alive HTTP/1.1 connection to the backend, carrying one request at a time.
//
// Contract: `exchange` is synchronous and thread-safe (calls are serialised on one connection).
// It connects on demand, sends the request and fills `response` with status, decoded body, ETag,
// Location and the request's id; the state is then succeeded whatever the status. A time-out, a
// broken connection or an answer over the size bound is answered like a gateway time-out: status
// 504, state failed with a note, one log line; the connection is dropped and the next call
// reconnects. A connection the backend closed while idle is retried once on a fresh one.
#pragma once

#include "common/Logger.h"
#include "rsi/Request.h"
#include "rsi/RequestState.h"
#include "rsi/Response.h"
#include "rsi/host/RsiEndpoint.h"

#include <cstddef>
#include <cstdint>
#include <memory>
#include <mutex>
#include <string>

namespace qel::rsi::client::host {

class HttpConnection {
public:
    HttpConnection(RsiEndpoint endpoint, std::uint32_t timeoutMs, std::size_t maxMessageBytes);
    ~HttpConnection();
    HttpConnection(HttpConnection const&) = delete;
    HttpConnection& operator=(HttpConnection const&) = delete;

    RequestState exchange(Request const& request, Response& response);

private:
    struct Impl;

    RequestState answerGatewayTimeout(std::string const& description, std::string const& reason, Response& response);

    common::logging::Logger const m_logger{"rsi.host.http"};
    std::mutex m_mutex;
    std::unique_ptr<Impl> m_impl;  // guarded by m_mutex
};

}  // namespace qel::rsi::client::host
