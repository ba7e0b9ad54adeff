// qel-backend-sim: the backend simulator as a program for people.
//
//   qel-backend-sim [--port N] [--scenario FILE] [--bind ADDRESS]
//
// Serves until SIGINT or SIGTERM; logs every request, message and event on stderr; prints the
// console's address ("console: http://...") on stdout once it serves.
#include "BackendSimulator.h"

#include "common/Logger.h"

#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <string>

namespace {

constexpr std::uint16_t DEFAULT_PORT = 8080;

void usage() {
    std::fprintf(stderr, "usage: qel-backend-sim [--port N] [--scenario FILE] [--bind ADDRESS]\n");
}

}  // namespace

int main(int argc, char** argv) {
    qel::common::logging::LogConfig::setDltAppId("BSIM", "qel backend simulator");
    long port = DEFAULT_PORT;
    std::string scenario;
    qel::sim::backend::BackendSimulator::Options options;
    for (int i = 1; i < argc; ++i) {
        std::string const argument = argv[i];
        if (argument == "--port" && i + 1 < argc) {
            char* end = nullptr;
            port = std::strtol(argv[++i], &end, 10);
            if (*end != '\0' || port < 0 || port > 65535) {
                usage();
                return 2;
            }
        } else if (argument == "--scenario" && i + 1 < argc) {
            scenario = argv[++i];
        } else if (argument == "--bind" && i + 1 < argc) {
            options.bindAddress = argv[++i];
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

    if (options.bindAddress != "127.0.0.1") {
        std::fprintf(stderr, "warning: listening on %s: the control endpoints and the console have no "
                             "authentication and are reachable from other machines\n",
                     options.bindAddress.c_str());
    }
    qel::sim::backend::BackendSimulator simulator(options);
    if (!scenario.empty() && !simulator.loadScenarioFile(scenario)) {
        return 1;
    }
    if (!simulator.start(static_cast<std::uint16_t>(port))) {
        return 1;
    }
    std::printf("console: http://%s:%u/_control/\n", options.bindAddress.c_str(),
                static_cast<unsigned>(simulator.port()));
    std::fflush(stdout);
    int received = 0;
    sigwait(&signals, &received);
    simulator.stop();
    return 0;
}
