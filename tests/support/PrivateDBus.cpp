#include "support/PrivateDBus.h"

#include <csignal>
#include <cstdio>
#include <string>
#include <cstdlib>
#include <fstream>
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
    // Written to a file, not a pipe: the daemon keeps its output open and would die of SIGPIPE.
    std::string const command = "dbus-daemon --config-file=" + m_directory + "/bus.conf --print-address=1 --print-pid=1 --fork > " +
                                m_directory + "/daemon.out";
    if (std::system(command.c_str()) != 0) {
        return;
    }
    std::ifstream output(m_directory + "/daemon.out");
    std::getline(output, m_address);
    std::string pid;
    std::getline(output, pid);
    m_pid = static_cast<pid_t>(std::atoi(pid.c_str()));
    if (char const* previous = std::getenv("DBUS_SESSION_BUS_ADDRESS")) {
        m_hadPreviousAddress = true;
        m_previousAddress = previous;
    }
    if (started()) {
        ::setenv("DBUS_SESSION_BUS_ADDRESS", m_address.c_str(), 1);
    }
}

PrivateDBus::~PrivateDBus() {
    if (m_pid > 0) {
        ::kill(m_pid, SIGTERM);
    }
    if (m_hadPreviousAddress) {
        ::setenv("DBUS_SESSION_BUS_ADDRESS", m_previousAddress.c_str(), 1);
    } else {
        ::unsetenv("DBUS_SESSION_BUS_ADDRESS");
    }
    if (!m_directory.empty()) {
        std::remove((m_directory + "/bus.conf").c_str());
        std::remove((m_directory + "/bus").c_str());
        std::remove((m_directory + "/daemon.out").c_str());
        ::rmdir(m_directory.c_str());
    }
}

}  // namespace qel::test
