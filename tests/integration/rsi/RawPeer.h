// A raw TCP peer on 127.0.0.1, an ephemeral port, for host-client tests that need a backend
// misbehaving below what the simulator offers. Connections are taken one after the other on the
// peer's own thread and handed to `serve`, which may keep them (return without closing) or end
// them; `serve` must return once the client has let go. The destructor wakes the thread, joins
// it and closes every connection still kept.
#pragma once

#include "common/Thread.h"

#include <boost/asio/io_context.hpp>
#include <boost/asio/ip/tcp.hpp>

#include <arpa/inet.h>
#include <netinet/in.h>
#include <sys/socket.h>
#include <unistd.h>

#include <atomic>
#include <chrono>
#include <condition_variable>
#include <cstdlib>
#include <functional>
#include <memory>
#include <mutex>
#include <thread>
#include <vector>

namespace qel::test {

class RawPeer {
public:
    using Socket = boost::asio::ip::tcp::socket;
    // Runs on the peer's thread for each connection, in order.
    using Serve = std::function<void(Socket& connection)>;

    explicit RawPeer(Serve serve) : m_serve(std::move(serve)) {
        m_listener = ::socket(AF_INET, SOCK_STREAM, 0);
        sockaddr_in address{};
        address.sin_family = AF_INET;
        address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
        socklen_t length = sizeof(address);
        if (m_listener < 0 || ::bind(m_listener, reinterpret_cast<sockaddr*>(&address), length) != 0 ||
            ::listen(m_listener, 8) != 0 ||
            ::getsockname(m_listener, reinterpret_cast<sockaddr*>(&address), &length) != 0) {
            std::abort();
        }
        m_port = ntohs(address.sin_port);
        m_thread = std::thread([this] {
            common::system::setCurrentThreadName("test-raw-peer");
            acceptAll();
        });
    }
    ~RawPeer() {
        m_stopping = true;
        ::shutdown(m_listener, SHUT_RDWR);
        m_thread.join();
        ::close(m_listener);
    }
    RawPeer(RawPeer const&) = delete;
    RawPeer& operator=(RawPeer const&) = delete;

    std::uint16_t port() const { return m_port; }

    // Waits (real time, as a safety limit) until `serve` has returned for `count` connections.
    bool waitForConnections(std::size_t count, std::uint32_t limitMs = 5000) {
        std::unique_lock<std::mutex> lock(m_mutex);
        return m_accepted.wait_for(lock, std::chrono::milliseconds(limitMs), [&] { return m_served >= count; });
    }

private:
    void acceptAll() {
        boost::asio::io_context ioc;
        std::vector<std::unique_ptr<Socket>> kept;
        for (;;) {
            int const connection = ::accept(m_listener, nullptr, nullptr);
            if (connection < 0) {
                if (m_stopping) {
                    return;
                }
                continue;
            }
            kept.push_back(std::make_unique<Socket>(ioc, boost::asio::ip::tcp::v4(), connection));
            m_serve(*kept.back());
            {
                std::lock_guard<std::mutex> const lock(m_mutex);
                ++m_served;
            }
            m_accepted.notify_all();
        }
    }

    Serve const m_serve;
    int m_listener = -1;
    std::uint16_t m_port = 0;
    std::atomic<bool> m_stopping{false};
    std::mutex m_mutex;
    std::condition_variable m_accepted;
    std::size_t m_served = 0;  // guarded by m_mutex
    std::thread m_thread;
};

}  // namespace qel::test
