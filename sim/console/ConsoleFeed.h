// The consoles' live feed: every page connected over a WebSocket receives the simulator's state
// as one JSON text when it connects and again after each change, so the page never polls.
//
//   auto feed = std::make_shared<ConsoleFeed>(ioc.get_executor(), [&] { return stateAsJson(); });
//   feed->accept(std::move(socket), std::move(upgradeRequest));   // on the I/O thread
//   feed->changed();                                               // from any thread
//
// Contract: `accept` and the snapshot function run on the server's I/O thread; `changed` may be
// called from any thread and never calls out. Changes that come quickly make one snapshot; a page
// that reads slowly gets the newest snapshot, never a backlog. What pages send is ignored.
#pragma once

#include <boost/asio/any_io_executor.hpp>
#include <boost/asio/ip/tcp.hpp>
#include <boost/beast/http/message.hpp>
#include <boost/beast/http/string_body.hpp>

#include <atomic>
#include <functional>
#include <memory>
#include <string>
#include <vector>

namespace qel::sim::console {

class ConsoleFeedSession;

class ConsoleFeed : public std::enable_shared_from_this<ConsoleFeed> {
public:
    using Snapshot = std::function<std::string()>;
    using Request = boost::beast::http::request<boost::beast::http::string_body>;

    ConsoleFeed(boost::asio::any_io_executor executor, Snapshot snapshot);

    // Completes the upgrade on `socket` and sends the current state.
    void accept(boost::asio::ip::tcp::socket socket, Request upgrade);
    // Schedules a snapshot for every page, after the work queued on the I/O thread so far.
    void changed();

private:
    void publish();

    boost::asio::any_io_executor const m_executor;
    Snapshot const m_snapshot;
    std::atomic<bool> m_pending{false};
    std::vector<std::weak_ptr<ConsoleFeedSession>> m_sessions;  // I/O thread only
};

}  // namespace qel::sim::console
