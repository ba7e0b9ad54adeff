#include "commonapi/dbus/DBusConnectionLoop.h"

#include "common/Logger.h"

#include <sdbus-c++/Error.h>

namespace CommonAPI::dbus {
namespace {

using qel::common::logging::LogLevel;

qel::common::logging::Logger const& logger() {
    static qel::common::logging::Logger const instance("CommonAPI.dbus");
    return instance;
}

class EventLoop : public qel::common::system::Runnable {
public:
    explicit EventLoop(sdbus::IConnection& connection) : m_connection(connection) {}
    void run() override {
        try {
            m_connection.enterEventLoop();
        } catch (sdbus::Error const& error) {
            logger() << LogLevel::Error << "D-Bus event loop ended: " << error.what();
        }
    }

private:
    sdbus::IConnection& m_connection;
};

}  // namespace

std::unique_ptr<DBusConnectionLoop> DBusConnectionLoop::open(std::string const& threadName) {
    try {
        return std::unique_ptr<DBusConnectionLoop>(
            new DBusConnectionLoop(sdbus::createSessionBusConnection(), threadName));
    } catch (sdbus::Error const& error) {
        logger() << LogLevel::Error << "D-Bus session bus not reachable: " << error.what();
        return nullptr;
    }
}

DBusConnectionLoop::DBusConnectionLoop(std::unique_ptr<sdbus::IConnection> connection, std::string const& threadName)
    : m_connection(std::move(connection)),
      m_thread(std::make_unique<qel::common::system::Thread>(threadName, std::make_shared<EventLoop>(*m_connection))) {}

DBusConnectionLoop::~DBusConnectionLoop() {
    stop();
}

bool DBusConnectionLoop::start() {
    return m_thread->start();
}

void DBusConnectionLoop::stop() {
    if (!m_thread->isRunning()) {
        m_thread->join();
        return;
    }
    try {
        m_connection->leaveEventLoop();
    } catch (sdbus::Error const& error) {
        logger() << LogLevel::Error << "D-Bus event loop could not be left: " << error.what();
    }
    m_thread->join();
}

}  // namespace CommonAPI::dbus
