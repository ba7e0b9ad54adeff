#include "support/PrivateDBus.h"

#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <string>

#include <fcntl.h>
#include <sys/prctl.h>
#include <sys/wait.h>
#include <unistd.h>

namespace qel::test {
namespace {

std::string configFor(std::string const& directory) {
    return R"(<!DOCTYPE busconfig PUBLIC "-//freedesktop//DTD D-Bus Bus Configuration 1.0//EN"
 "http://www.freedesktop.org/standards/dbus/1.0/busconfig.dtd">
<busconfig>
  <type>session</type>
  <listen>unix:path=)" + directory + R"(/bus</listen>
  <auth>EXTERNAL</auth>
  <policy context="default">
    <allow send_destination="*" eavesdrop="true"/>
    <allow eavesdrop="true"/>
    <allow own="*"/>
  </policy>
</busconfig>
)";
}

}  // namespace

PrivateDBus::PrivateDBus() {
    char pattern[] = "/tmp/qel-dbus-XXXXXX";
    if (mkdtemp(pattern) == nullptr) {
        return;
    }
    m_directory = pattern;
    std::ofstream(m_directory + "/bus.conf") << configFor(m_directory);
    if (char const* previous = std::getenv("DBUS_SESSION_BUS_ADDRESS")) {
        m_hadPreviousAddress = true;
        m_previousAddress = previous;
    }
    spawnDaemon();
    if (started()) {
        ::setenv("DBUS_SESSION_BUS_ADDRESS", m_address.c_str(), 1);
    }
}

// The daemon is our child and dies with the test process, even one that is killed; it prints its
// address into a pipe we keep open, so it never writes to a closed one.
void PrivateDBus::spawnDaemon() {
    int fds[2];
    if (::pipe2(fds, O_CLOEXEC) != 0) {
        return;
    }
    std::string const config = "--config-file=" + m_directory + "/bus.conf";  // built before fork
    pid_t const parent = ::getpid();
    pid_t const child = ::fork();
    if (child == 0) {
        ::prctl(PR_SET_PDEATHSIG, SIGTERM);
        if (::getppid() != parent) {
            ::_exit(1);  // the test is gone already
        }
        ::dup2(fds[1], STDOUT_FILENO);
        ::execlp("dbus-daemon", "dbus-daemon", config.c_str(), "--print-address=1", "--nofork", nullptr);
        ::_exit(127);
    }
    ::close(fds[1]);
    if (child < 0) {
        ::close(fds[0]);
        return;
    }
    m_pid = child;
    m_output = fds[0];
    // The address line is printed once the bus listens; end of file means the daemon failed.
    char c = 0;
    while (::read(m_output, &c, 1) == 1 && c != '\n') {
        m_address.push_back(c);
    }
}

PrivateDBus::~PrivateDBus() {
    if (m_pid > 0) {
        ::kill(m_pid, SIGTERM);
        ::waitpid(m_pid, nullptr, 0);
    }
    if (m_output >= 0) {
        ::close(m_output);
    }
    if (m_hadPreviousAddress) {
        ::setenv("DBUS_SESSION_BUS_ADDRESS", m_previousAddress.c_str(), 1);
    } else {
        ::unsetenv("DBUS_SESSION_BUS_ADDRESS");
    }
    if (!m_directory.empty()) {
        std::remove((m_directory + "/bus.conf").c_str());
        std::remove((m_directory + "/bus").c_str());
        ::rmdir(m_directory.c_str());
    }
}

}  // namespace qel::test
