// One keep-alive HTTP/1.1 connection to the backend, carrying one request at a time.
//
// Contract: `exchange` is synchronous and thread-safe (calls are serialised on one connection).
// It connects on demand, sends the request and fills `response` with status, decoded body, ETag,
// Location and the request's id; the state is then succeeded whatever the status. Each answer is
// read to its end, interim (1xx) answers skipped; a connection with bytes left after the answer is
// dropped, never read for the next request. `cancel(caller)` ends the exchange that thread
// `caller` runs or waits to run at once, as a failure like any other below. Failures are
// one log line, state failed with a note, the connection dropped (the next call reconnects), and
// a status that tells the framework whether to retry:
// - nothing of the request was sent (name lookup failed or outlasted the time-out, connection
//   refused, reset or timed out before writing): 503, which the framework retries;
// - the request was sent, or may have been, but no usable answer came (time-out, broken
//   connection, answer over the size bound): 504, which it does not. Such a request is never
//   sent twice. A connection the backend closed while idle is noticed before writing and
//   replaced; a write that fails before its first byte goes out is tried once more on a fresh one.
#pragma once

#include "common/Logger.h"
#include "rsi/Request.h"
#include "rsi/RequestState.h"
#include "rsi/Response.h"
#include "rsi/host/HttpAnswerReader.h"
#include "rsi/host/NameResolver.h"
#include "rsi/host/RsiEndpoint.h"

#include <atomic>
#include <condition_variable>
#include <cstddef>
#include <cstdint>
#include <memory>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

namespace qel::rsi::client::host {

class HttpConnection {
public:
    // `lookup` finds the host's addresses (empty: the system's); bounded by the time-out too.
    HttpConnection(RsiEndpoint endpoint, std::uint32_t timeoutMs, std::size_t maxMessageBytes,
                   NameResolver::Lookup lookup = {});
    ~HttpConnection();
    HttpConnection(HttpConnection const&) = delete;
    HttpConnection& operator=(HttpConnection const&) = delete;

    RequestState exchange(Request const& request, Response& response);
    void cancel(std::thread::id caller);

private:
    struct Impl;
    // One caller of `exchange`, registered while it waits for the connection or uses it.
    struct Call {
        std::thread::id thread;
        std::atomic<bool> cancelled{false};
    };

    RequestState exchangeOnConnection(Request const& request, Call const& call, Response& response);
    RequestState takeAnswer(std::string const& description, HttpAnswerReader& reader, Response& response);

    RequestState answerGatewayTimeout(std::string const& description, std::string const& reason, Response& response);
    RequestState answerNotSent(std::string const& description, std::string const& reason, Response& response);
    RequestState answerFailure(std::string const& description, std::string const& note, std::int16_t status,
                               Response& response);

    common::logging::Logger const m_logger{"rsi.host.http"};
    std::mutex m_mutex;
    std::condition_variable m_turn;
    bool m_busy = false;             // guarded by m_mutex; a caller owns the connection
    Call* m_owner = nullptr;         // guarded by m_mutex
    std::vector<Call*> m_calls;      // guarded by m_mutex
    std::unique_ptr<Impl> m_impl;    // used by the caller that owns the connection
};

}  // namespace qel::rsi::client::host
