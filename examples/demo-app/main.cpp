// A small application on the online services framework: it describes itself, builds a client,
// listens to everything the client reports and prints it as a timeline. It reads commands on its
// standard input, one per line, and stops on "stop", at the end of its input or on Ctrl-C:
//
//   pause | unpause | update KEY VALUE | stop
//
// Usage: qel-demo-app [--ini FILE] [--log-level 1..5]   (default: QEL_LOG_LEVEL, else 3)
#include "JobExecutor.h"
#include "KvsPrinter.h"
#include "RunStatePrinter.h"
#include "ServicePrinter.h"
#include "Timeline.h"

#include <onlineservices/framework/OnlineServiceClientFactory.h>

#include <common/Logger.h>

#include <poll.h>
#include <signal.h>
#include <sys/signalfd.h>
#include <unistd.h>

#include <cstdio>
#include <cstring>
#include <iostream>
#include <sstream>
#include <string>

using namespace qel::onlineservices::framework::core;

namespace {

struct Options {
    std::string iniFile;
    int logLevel = 0;  // 0: the framework's, from QEL_LOG_LEVEL
};

bool parseOptions(int argc, char** argv, Options& options) {
    for (int i = 1; i + 1 < argc; i += 2) {
        std::string const name = argv[i];
        if (name == "--ini") {
            options.iniFile = argv[i + 1];
        } else if (name == "--log-level") {
            options.logLevel = std::atoi(argv[i + 1]);
            if (options.logLevel < 1 || options.logLevel > 5) {
                return false;
            }
        } else {
            return false;
        }
    }
    return argc % 2 == 1;
}

OnlineServiceClientConfig describeApplication(std::string const& iniFile) {
    OnlineServiceClientConfig config;
    config.serviceIds = {"demoservice"};
    config.kvsItems = {"demo.color", "demo.volume"};
    // "<serviceHostSystem>.<serviceId>.<name>"
    config.capabilities = {{"005F.demoservice.display", "true"}, {"005F.demoservice.audio.channels", "2"}};
    config.jobEntries = {std::make_shared<JobEntry>(JobEntry{"demoservice", "demo-job.xsd", "demoservice"})};
    config.operationEntries = {
        std::make_shared<OperationEntry>(OperationEntry{"vehicleState", "JSON", "state.json", "demoservice"})};
    config.iniFilePath = iniFile;
    return config;
}

char const* statusName(KVSUpdateStatus status) {
    switch (status) {
        case KVSUpdateStatus::UPDATE_OK: return "UPDATE_OK";
        case KVSUpdateStatus::KVS_SERVICE_UNAVAILABLE: return "KVS_SERVICE_UNAVAILABLE";
        case KVSUpdateStatus::UPDATE_REQUEST_FAILED: return "UPDATE_REQUEST_FAILED";
        case KVSUpdateStatus::KVS_ITEM_NOT_FOUND: return "KVS_ITEM_NOT_FOUND";
        case KVSUpdateStatus::INTERNAL_ERROR: return "INTERNAL_ERROR";
    }
    return "UNKNOWN_STATUS";
}

// Runs one command line; false when the application should stop.
bool runCommand(std::string const& line, IOnlineServiceClient& client, Timeline& timeline) {
    std::istringstream words(line);
    std::string command;
    words >> command;
    if (command == "pause") {
        client.pauseConnection();
    } else if (command == "unpause") {
        client.unpauseConnection();
    } else if (command == "update") {
        std::string key;
        std::string value;
        if (!(words >> key >> value)) {
            timeline.print("usage: update KEY VALUE");
            return true;
        }
        auto const status = client.updateKVSItem(key, value);
        timeline.print("kvs update " + key + " = " + value + " -> " + statusName(status));
    } else if (command == "stop") {
        return false;
    } else if (!command.empty()) {
        timeline.print("unknown command: " + command);
    }
    return true;
}

// Reads commands until "stop", the end of the input or SIGINT/SIGTERM, sleeping in poll meanwhile.
void commandLoop(IOnlineServiceClient& client, Timeline& timeline) {
    sigset_t signals;
    sigemptyset(&signals);
    sigaddset(&signals, SIGINT);
    sigaddset(&signals, SIGTERM);
    int const signalFd = signalfd(-1, &signals, SFD_CLOEXEC);
    std::string pending;
    pollfd fds[2] = {{STDIN_FILENO, POLLIN, 0}, {signalFd, POLLIN, 0}};
    while (true) {
        if (poll(fds, 2, -1) < 0) {
            continue;
        }
        if (fds[1].revents & POLLIN) {
            timeline.print("signal received");
            break;
        }
        if (!(fds[0].revents & (POLLIN | POLLHUP))) {
            continue;
        }
        char buffer[256];
        auto const count = read(STDIN_FILENO, buffer, sizeof buffer);
        if (count <= 0) {
            break;
        }
        pending.append(buffer, static_cast<std::size_t>(count));
        for (auto end = pending.find('\n'); end != std::string::npos; end = pending.find('\n')) {
            std::string const line = pending.substr(0, end);
            pending.erase(0, end + 1);
            if (!runCommand(line, client, timeline)) {
                close(signalFd);
                return;
            }
        }
    }
    close(signalFd);
}

}  // namespace

int main(int argc, char** argv) {
    Options options;
    if (!parseOptions(argc, argv, options)) {
        std::fprintf(stderr, "usage: %s [--ini FILE] [--log-level 1..5]\n", argv[0]);
        return 2;
    }
    // Signals are read through a file descriptor by the command loop; block them before the
    // framework starts its threads, so that every thread inherits the mask.
    sigset_t signals;
    sigemptyset(&signals);
    sigaddset(&signals, SIGINT);
    sigaddset(&signals, SIGTERM);
    pthread_sigmask(SIG_BLOCK, &signals, nullptr);
    if (options.logLevel != 0) {
        qel::common::logging::LogConfig::setThreshold(static_cast<qel::common::logging::LogLevel>(options.logLevel));
    }

    Timeline timeline;
    auto client = OnlineServiceClientFactory::createOnlineServiceClient(describeApplication(options.iniFile));
    if (!client) {
        timeline.print("no client (see the log)");
        return 1;
    }
    // The client holds listeners weakly: they live here, as long as the client.
    auto runStates = std::make_shared<RunStatePrinter>(timeline);
    auto services = std::make_shared<ServicePrinter>(timeline);
    auto kvs = std::make_shared<KvsPrinter>(timeline);
    auto jobs = std::make_shared<JobExecutor>(timeline);
    client->addRunStateListener(runStates);
    client->addServiceDataListener(services);
    client->addKVSListener(kvs);
    client->setBackendJobListener(jobs);

    timeline.print("startup");
    client->startup();
    commandLoop(*client, timeline);
    client->stop();
    client.reset();
    timeline.print("done");
    return 0;
}
