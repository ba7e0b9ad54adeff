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

// Resolves `host`:`port` within `timeout`; a late answer is cancelled and reported as time-out.
inline boost::beast::error_code resolveWithin(boost::asio::io_context& ioc, std::string const& host,
                                              std::uint16_t port, std::chrono::milliseconds timeout,
                                              boost::asio::ip::tcp::resolver::results_type& results) {
    boost::asio::ip::tcp::resolver resolver(ioc);
    boost::beast::error_code error = boost::asio::error::would_block;
    resolver.async_resolve(host, std::to_string(port),
                           [&](boost::beast::error_code resolveError,
                               boost::asio::ip::tcp::resolver::results_type found) {
                               error = resolveError;
                               results = std::move(found);
                           });
    ioc.restart();
    ioc.run_for(timeout);
    if (error == boost::asio::error::would_block) {
        resolver.cancel();
        ioc.restart();
        ioc.run();
        return boost::asio::error::timed_out;
    }
    return error;
}

}  // namespace qel::rsi::client::host

#pragma GCC visibility pop
