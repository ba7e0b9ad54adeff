// Blocking helpers over Asio for the host client's .cpp files (not part of any interface).
//
// Contract: each runs asynchronous work to its end on the calling thread, so that Beast's stream
// time-outs bound calls that are synchronous for our callers.
#pragma once

#include <boost/asio/io_context.hpp>
#include <boost/asio/ip/tcp.hpp>
#include <boost/beast/core/error.hpp>

#include <chrono>
#include <string>

// Hidden: these carry Boost types, which the library must not export.
#pragma GCC visibility push(hidden)

namespace qel::rsi::client::host {

// Starts one operation through `start(handler)` and runs `ioc` until it has completed.
template <typename Start>
boost::beast::error_code runToEnd(boost::asio::io_context& ioc, Start&& start) {
    boost::beast::error_code result = boost::asio::error::would_block;
    start([&result](boost::beast::error_code error, auto&&...) { result = error; });
    ioc.restart();
    ioc.run();
    return result;
}

}  // namespace qel::rsi::client::host

#pragma GCC visibility pop
