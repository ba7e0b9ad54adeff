// qel-networking-sim: the networking-service simulator as a program for people.
//
//   qel-networking-sim [--control-port N] [--scenario FILE] [--domain D] [--instance I] [--bind ADDRESS]
//
// Serves the networking interface on the D-Bus session bus (DBUS_SESSION_BUS_ADDRESS) and the
// control endpoints and the console on 127.0.0.1:N (default 8090; 0 picks a free port; --bind
// another address). Prints "control port: N" and "console: http://..." once ready; serves until
// SIGINT or SIGTERM; logs every call on stderr.
#include "ControlServer.h"
#include "NetworkingSimulator.h"

#include "common/Logger.h"

#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <string>

namespace {

constexpr long DEFAULT_CONTROL_PORT = 8090;

void usage() {
    std::fprintf(stderr,
                 "usage: qel-networking-sim [--control-port N] [--scenario FILE] [--domain D] [--instance I] "
                 "[--bind ADDRESS]\n");
}

}  // namespace

int main(int argc, char** argv) {
    qel::common::logging::LogConfig::setDltAppId("NSIM", "qel networking simulator");
    using qel::sim::networking::NetworkingSimulator;
    long port = DEFAULT_CONTROL_PORT;
    std::string scenario;
    std::string domain = NetworkingSimulator::DEFAULT_DOMAIN;
    std::string instance = NetworkingSimulator::DEFAULT_INSTANCE;
    std::string bindAddress = "127.0.0.1";
    for (int i = 1; i < argc; ++i) {
        std::string const argument = argv[i];
        bool const hasValue = i + 1 < argc;
        if (argument == "--control-port" && hasValue) {
            char* end = nullptr;
            port = std::strtol(argv[++i], &end, 10);
            if (*end != '\0' || port < 0 || port > 65535) {
                usage();
                return 2;
            }
        } else if (argument == "--scenario" && hasValue) {
            scenario = argv[++i];
        } else if (argument == "--domain" && hasValue) {
            domain = argv[++i];
        } else if (argument == "--instance" && hasValue) {
            instance = argv[++i];
        } else if (argument == "--bind" && hasValue) {
            bindAddress = argv[++i];
        } else {
            usage();
            return argument == "--help" ? 0 : 2;
        }
    }

    // Blocked before any thread starts, so that only sigwait below receives them.
    sigset_t signals;
    sigemptyset(&signals);
    sigaddset(&signals, SIGINT);
    sigaddset(&signals, SIGTERM);
    pthread_sigmask(SIG_BLOCK, &signals, nullptr);

    NetworkingSimulator simulator;
    if (!scenario.empty() && !simulator.loadScenarioFile(scenario)) {
        return 1;
    }
    if (!simulator.start(domain, instance)) {
        return 1;
    }
    qel::sim::networking::ControlServer control(
        [&simulator](std::string const& method, std::string const& target, std::string const& body) {
            return qel::sim::networking::ControlEndpoints::handle(simulator, method, target, body);
        },
        [&simulator] { return qel::sim::networking::ControlEndpoints::stateJson(simulator); });
    if (bindAddress != "127.0.0.1") {
        std::fprintf(stderr, "warning: listening on %s: the control endpoints and the console have no "
                             "authentication and are reachable from other machines\n",
                     bindAddress.c_str());
    }
    if (!control.start(static_cast<std::uint16_t>(port), bindAddress)) {
        return 1;
    }
    simulator.setChangeListener([&control] { control.notifyChanged(); });
    std::printf("control port: %u\nconsole: http://%s:%u/\n", static_cast<unsigned>(control.port()),
                bindAddress.c_str(), static_cast<unsigned>(control.port()));
    std::fflush(stdout);
    int received = 0;
    sigwait(&signals, &received);
    simulator.setChangeListener({});
    control.stop();
    simulator.stop();
    return 0;
}
