// One D-Bus session-bus connection and the named thread that runs its event loop.
//
// Contract: set up objects, proxies and matches on `connection()` before `start`; afterwards
// only calls and signal emissions (which the library makes thread-safe). `stop` (and the
// destructor) leave the loop and join the thread; it must not run on that thread. The session
// bus is the one DBUS_SESSION_BUS_ADDRESS names.
#pragma once

#include "common/Thread.h"

#include <sdbus-c++/IConnection.h>

#include <memory>
#include <string>

namespace CommonAPI::dbus {

class DBusConnectionLoop {
public:
    // Null (and a log line) when the bus cannot be reached.
    static std::unique_ptr<DBusConnectionLoop> open(std::string const& threadName);
    ~DBusConnectionLoop();
    DBusConnectionLoop(DBusConnectionLoop const&) = delete;
    DBusConnectionLoop& operator=(DBusConnectionLoop const&) = delete;

    sdbus::IConnection& connection() { return *m_connection; }
    bool start();
    void stop();

private:
    DBusConnectionLoop(std::unique_ptr<sdbus::IConnection> connection, std::string const& threadName);

    std::unique_ptr<sdbus::IConnection> m_connection;
    std::unique_ptr<qel::common::system::Thread> m_thread;
};

}  // namespace CommonAPI::dbus
