#include "BackendSimulator.h"

#include "ConsoleFeed.h"
#include "ControlEndpoints.h"
#include "SimListener.h"
#include "SimServerContext.h"
#include "SimWebSocketSession.h"
#include "common/Thread.h"

#include <boost/asio/io_context.hpp>
#include <boost/asio/post.hpp>

#include <chrono>
#include <condition_variable>
#include <fstream>
#include <future>
#include <mutex>
#include <sstream>
#include <thread>

namespace qel::sim::backend {
namespace {

namespace net = boost::asio;
using common::logging::LogLevel;

}  // namespace

struct BackendSimulator::Impl {
    Impl(BackendSimulator& owner, Options const& options)
        : bindAddress(options.bindAddress),
          state([this](std::uint64_t session, std::string const& message) { deliver(session, message); }),
          context{state,
                  [&owner](std::string const& method, std::string const& target, std::string const& body) {
                      return ControlEndpoints::handle(owner, method, target, body);
                  },
                  options.maxMessageBytes,
                  {},
                  1,
                  nullptr} {
        state.setReceiveObserver([this](std::size_t count) {
            markChanged();
            {
                std::lock_guard<std::mutex> const lock(receivedMutex);
                receivedCount = count;
            }
            receivedChanged.notify_all();
        });
    }

    void deliver(std::uint64_t session, std::string const& message) {
        auto const socket = context.webSockets.find(session);
        if (socket == context.webSockets.end()) {
            return;
        }
        if (auto const live = socket->second.lock()) {
            live->send(message);
        }
    }

    // On the I/O thread: the console's pages get the new state once the current work is done.
    void markChanged() {
        if (t_ioOwner == this && context.feed) {
            context.feed->changed();
        }
    }

    std::string stateText() const {
        std::vector<std::uint64_t> sessions;
        for (auto const& [session, socket] : context.webSockets) {
            if (!socket.expired()) {
                sessions.push_back(session);
            }
        }
        return state.snapshot(sessions).dump(-1, ' ', false, nlohmann::json::error_handler_t::replace);
    }

    // `onIo` for a task that changes the state.
    template <typename Task>
    auto change(Task task) -> decltype(task()) {
        return onIo([this, &task] {
            markChanged();
            return task();
        });
    }

    // Runs `task` where the state lives: on the I/O thread while running, else right here.
    template <typename Task>
    auto onIo(Task task) -> decltype(task()) {
        if (t_ioOwner == this) {
            return task();
        }
        std::lock_guard<std::mutex> const lock(lifecycle);
        if (!ioc) {
            return task();
        }
        std::packaged_task<decltype(task())()> packaged(std::move(task));
        auto result = packaged.get_future();
        net::post(*ioc, [&packaged] { packaged(); });
        return result.get();
    }

    static thread_local Impl const* t_ioOwner;

    common::logging::Logger const logger{"backendsim"};
    std::string const bindAddress;
    BackendState state;
    SimServerContext context;
    mutable std::mutex lifecycle;
    std::unique_ptr<net::io_context> ioc;  // guarded by lifecycle; present while running
    std::thread thread;                    // guarded by lifecycle
    std::uint16_t port = 0;                // guarded by lifecycle
    std::mutex receivedMutex;
    std::condition_variable receivedChanged;
    std::size_t receivedCount = 0;  // guarded by receivedMutex
};

thread_local BackendSimulator::Impl const* BackendSimulator::Impl::t_ioOwner = nullptr;

BackendSimulator::BackendSimulator() : BackendSimulator(Options{}) {}

BackendSimulator::BackendSimulator(Options const& options) : m_impl(std::make_unique<Impl>(*this, options)) {}

BackendSimulator::~BackendSimulator() {
    stop();
}

bool BackendSimulator::loadScenario(std::string const& jsonText) {
    return m_impl->change([&] {
        std::string error;
        if (!m_impl->state.loadScenario(jsonText, error)) {
            m_impl->logger << LogLevel::Error << "Scenario refused: " << error;
            return false;
        }
        return true;
    });
}

bool BackendSimulator::loadScenarioFile(std::string const& path) {
    std::ifstream file(path);
    if (!file) {
        m_impl->logger << LogLevel::Error << "Cannot read scenario file " << path;
        return false;
    }
    std::stringstream text;
    text << file.rdbuf();
    m_impl->logger << LogLevel::Info << "Loading scenario " << path;
    return loadScenario(text.str());
}

bool BackendSimulator::start(std::uint16_t port) {
    std::lock_guard<std::mutex> const lock(m_impl->lifecycle);
    if (m_impl->ioc) {
        return false;
    }
    m_impl->ioc = std::make_unique<net::io_context>(1);
    auto const listener = std::make_shared<SimListener>(*m_impl->ioc, m_impl->context);
    std::string error;
    if (!listener->listen(m_impl->bindAddress, port, error)) {
        m_impl->logger << LogLevel::Error << "Backend simulator cannot listen on " << m_impl->bindAddress << ":" << port
                       << ": " << error;
        m_impl->ioc.reset();
        return false;
    }
    m_impl->port = listener->port();
    m_impl->context.feed = std::make_shared<console::ConsoleFeed>(m_impl->ioc->get_executor(),
                                                                  [impl = m_impl.get()] { return impl->stateText(); });
    listener->acceptNext();
    m_impl->thread = std::thread([impl = m_impl.get()] {
        common::system::setCurrentThreadName("backend-sim");
        Impl::t_ioOwner = impl;
        impl->ioc->run();
    });
    m_impl->logger << LogLevel::Info << "Backend simulator listening on " << m_impl->bindAddress << ":" << m_impl->port;
    return true;
}

void BackendSimulator::stop() {
    std::lock_guard<std::mutex> const lock(m_impl->lifecycle);
    if (!m_impl->ioc) {
        return;
    }
    m_impl->ioc->stop();
    m_impl->thread.join();
    for (auto const& [session, socket] : m_impl->context.webSockets) {
        m_impl->state.dropSession(session);
    }
    m_impl->context.webSockets.clear();
    // Destroys the pending operations and with them the listener and every session.
    m_impl->ioc.reset();
    m_impl->context.feed.reset();
    m_impl->logger << LogLevel::Info << "Backend simulator stopped";
}

bool BackendSimulator::isRunning() const {
    std::lock_guard<std::mutex> const lock(m_impl->lifecycle);
    return m_impl->ioc != nullptr;
}

std::uint16_t BackendSimulator::port() const {
    std::lock_guard<std::mutex> const lock(m_impl->lifecycle);
    return m_impl->port;
}

void BackendSimulator::setServiceAvailable(std::string const& service, bool available) {
    m_impl->change([&] { m_impl->state.setServiceAvailable(service, available); });
}

bool BackendSimulator::setDisableReasons(std::string const& serviceName, std::vector<std::string> const& reasons) {
    return m_impl->change([&] { return m_impl->state.setDisableReasons(serviceName, reasons); });
}

std::string BackendSimulator::rotateToken(std::string const& idOrName, std::string const& token) {
    return m_impl->change([&] { return m_impl->state.rotateToken(idOrName, token); });
}

std::string BackendSimulator::pushJob(std::string const& jobJson) {
    return m_impl->change([&] { return m_impl->state.pushJob(jobJson); });
}

bool BackendSimulator::setKvsValue(std::string const& idOrName, std::string const& value) {
    return m_impl->change([&] { return m_impl->state.setKvsValue(idOrName, value); });
}

void BackendSimulator::failNext(std::string const& path, int status, std::uint32_t count) {
    m_impl->change([&] { m_impl->state.failNext(path, status, count); });
}

void BackendSimulator::delayAnswers(std::string const& path, std::uint32_t ms) {
    m_impl->change([&] { m_impl->state.setDelay(path, ms); });
}

std::size_t BackendSimulator::closeAllWebSockets() {
    return m_impl->change([&] {
        std::size_t closed = 0;
        for (auto const& [session, socket] : m_impl->context.webSockets) {
            if (auto const live = socket.lock()) {
                live->close();
                ++closed;
            }
        }
        return closed;
    });
}

std::size_t BackendSimulator::sendRawToWebSockets(std::string const& text) {
    return m_impl->change([&] {
        std::size_t sent = 0;
        for (auto const& [session, socket] : m_impl->context.webSockets) {
            if (auto const live = socket.lock()) {
                live->send(text);
                ++sent;
            }
        }
        return sent;
    });
}

std::vector<ReceivedMessage> BackendSimulator::received() const {
    return m_impl->onIo([&] { return m_impl->state.received(); });
}

void BackendSimulator::clearReceived() {
    m_impl->change([&] {
        m_impl->state.clearReceived();
        std::lock_guard<std::mutex> const lock(m_impl->receivedMutex);
        m_impl->receivedCount = 0;
    });
}

bool BackendSimulator::waitForReceived(std::size_t count, std::uint32_t limitMs) const {
    std::unique_lock<std::mutex> lock(m_impl->receivedMutex);
    return m_impl->receivedChanged.wait_for(lock, std::chrono::milliseconds(limitMs),
                                            [&] { return m_impl->receivedCount >= count; });
}

std::vector<JobAcknowledgement> BackendSimulator::acknowledgements() const {
    return m_impl->onIo([&] { return m_impl->state.acknowledgements(); });
}

std::string BackendSimulator::stateJson() const {
    return m_impl->onIo([&] { return m_impl->stateText(); });
}

std::size_t BackendSimulator::subscriptionCount() const {
    return m_impl->onIo([&] { return m_impl->state.subscriptionCount(); });
}

}  // namespace qel::sim::backend
