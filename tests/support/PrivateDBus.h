// A private D-Bus session bus for one test: its own dbus-daemon with a socket in a fresh temporary
// directory, pointed to by DBUS_SESSION_BUS_ADDRESS while the object lives.
//
//   PrivateDBus bus;              // starts the daemon (see started())
//   ... code that uses the session bus ...
//                                 // the destructor kills the daemon and removes the directory
// The daemon is the test process's child and dies with it, even when the test is killed.
// Never touches the machine's session or system bus.
#pragma once

#include <string>
#include <sys/types.h>

namespace qel::test {

class PrivateDBus {
public:
    PrivateDBus();
    ~PrivateDBus();
    PrivateDBus(PrivateDBus const&) = delete;
    PrivateDBus& operator=(PrivateDBus const&) = delete;

    bool started() const { return m_pid > 0 && !m_address.empty(); }
    std::string const& address() const { return m_address; }

private:
    void spawnDaemon();

    std::string m_directory;
    std::string m_address;
    pid_t m_pid = -1;
    int m_output = -1;  // the daemon's standard output, open while it lives
    std::string m_previousAddress;
    bool m_hadPreviousAddress = false;
};

}  // namespace qel::test
