#include "rsi/host/NameResolver.h"

#include "common/Thread.h"

#include <boost/asio/io_context.hpp>
#include <boost/asio/ip/address.hpp>
#include <boost/asio/ip/tcp.hpp>

#include <algorithm>
#include <chrono>
#include <exception>
#include <utility>

namespace qel::rsi::client::host {

using common::logging::LogLevel;

NameResolver::Result NameResolver::systemLookup(std::string const& host) {
    boost::asio::io_context ioc;
    boost::asio::ip::tcp::resolver resolver(ioc);
    boost::system::error_code error;
    // The port does not matter here; the caller connects to its own.
    auto const found = resolver.resolve(host, "0", boost::asio::ip::resolver_base::numeric_service, error);
    Result result;
    if (error) {
        result.error = error.message();
        return result;
    }
    for (auto const& entry : found) {
        std::string address = entry.endpoint().address().to_string();
        if (std::find(result.addresses.begin(), result.addresses.end(), address) == result.addresses.end()) {
            result.addresses.push_back(std::move(address));
        }
    }
    if (result.addresses.empty()) {
        result.error = "no address";
    }
    return result;
}

NameResolver::NameResolver(std::string host, Lookup lookup)
    : m_host(std::move(host)), m_lookup(lookup ? std::move(lookup) : Lookup(&NameResolver::systemLookup)) {}

NameResolver::~NameResolver() {
    std::thread thread;
    {
        std::lock_guard<std::mutex> const lock(m_mutex);
        thread = std::move(m_thread);
    }
    if (thread.joinable()) {
        thread.join();
    }
}

NameResolver::Result NameResolver::resolve(std::uint32_t timeoutMs) {
    boost::system::error_code notLiteral;
    boost::asio::ip::make_address(m_host, notLiteral);
    if (!notLiteral) {
        return Result{{m_host}, {}};
    }
    std::unique_lock<std::mutex> lock(m_mutex);
    // A lookup that outlasted an earlier caller is still the one to wait for.
    std::shared_ptr<Pending> const pending = m_pending ? m_pending : startLookup();
    if (!m_finished.wait_for(lock, std::chrono::milliseconds(timeoutMs), [&] { return pending->done; })) {
        lock.unlock();
        m_logger << LogLevel::Warning << "Lookup of " << m_host << " still running after " << timeoutMs << " ms";
        return Result{{}, "lookup of " + m_host + " did not finish within " + std::to_string(timeoutMs) + " ms"};
    }
    m_pending.reset();
    return pending->result;
}

std::shared_ptr<NameResolver::Pending> NameResolver::startLookup() {
    if (m_thread.joinable()) {
        m_thread.join();  // its lookup has finished: m_pending was taken
    }
    m_pending = std::make_shared<Pending>();
    m_thread = std::thread([this, pending = m_pending] {
        common::system::setCurrentThreadName("rsi-resolve");
        common::system::markFrameworkThread();
        Result result;
        try {
            result = m_lookup(m_host);
        } catch (std::exception const& failure) {
            result.error = failure.what();
        }
        std::lock_guard<std::mutex> const lock(m_mutex);
        pending->result = std::move(result);
        pending->done = true;
        m_finished.notify_all();
    });
    return m_pending;
}

}  // namespace qel::rsi::client::host
