#include "NetworkingRig.h"

#include "core/Notifier.h"
#include "rsi/RSIClientWrapper.h"
#include "subscriptions/SubscriptionManager.h"
#include "support/LogCapture.h"

#include <gtest/gtest.h>

#include <cstdio>
#include <fstream>
#include <sys/stat.h>
#include <unistd.h>

namespace {

using namespace qel::test;
using namespace qel::onlineservices::framework;
using namespace qel::onlineservices::framework::core;
using qel::common::logging::LogLevel;
using qel::sim::networking::NetworkingSimulator;
using Lines = std::vector<std::string>;

// A subscription manager with its own simulated networking service.
struct ConnectionRig {
    explicit ConnectionRig(bool skipRegistration = false) {
        config->skipNetworkingRegistration = skipRegistration;
        notifier->addListener(std::weak_ptr<IServiceDataListener>(interfaces));
        EXPECT_TRUE(simulator.start("kalm", instance));
    }
    void useProxy() { manager->setNetworkingProxy(proxyAt(instance)); }
    std::vector<std::string> callsMade() {
        std::vector<std::string> made;
        for (auto const& call : simulator.calls()) {
            made.push_back(call.method + " " + call.serviceId);
        }
        return made;
    }

    std::string const instance = uniqueName("connection");
    std::shared_ptr<FrameworkConfig> config = std::make_shared<FrameworkConfig>();
    std::shared_ptr<Notifier> notifier = std::make_shared<Notifier>(config);
    std::shared_ptr<InterfaceRecorder> interfaces = std::make_shared<InterfaceRecorder>();
    NetworkingSimulator simulator;
    std::shared_ptr<SubscriptionManager> manager =
        std::make_shared<SubscriptionManager>(config, notifier, std::make_shared<RSIClientWrapper>(config));
};

// Address files under /tmp/serviceip/ for one service, removed at the end.
struct AddressFiles {
    explicit AddressFiles(std::string id) : serviceId(std::move(id)) { ::mkdir("/tmp/serviceip", 0777); }
    ~AddressFiles() {
        std::remove(path("ipv4").c_str());
        std::remove(path("ipv6").c_str());
    }
    std::string path(std::string const& family) const { return "/tmp/serviceip/" + serviceId + "." + family; }
    void write(std::string const& family, std::string const& content) const {
        std::ofstream(path(family)) << content;
    }
    std::string const serviceId;
};

TEST(NetworkingConnection, AnEmptyGrantTakesTheFirstWordOfTheAddressFiles) {
    ConnectionRig rig;
    AddressFiles const files(uniqueName("svc"));
    files.write("ipv4", "  10.0.0.5 extra\nmore\n");
    rig.manager->addService(files.serviceId, nullptr);
    rig.useProxy();
    rig.simulator.grantEmpty(files.serviceId);
    LogCapture log;

    EXPECT_TRUE(rig.manager->tryConnectNetworking(1));
    EXPECT_EQ(rig.interfaces->heard.all(), Lines{files.serviceId + " 10.0.0.5 "});
    EXPECT_EQ(log.count(LogLevel::Error, "Networking API: request for internet successful, but empty data received. "
                                         "This should not happen."),
              1u);
    EXPECT_EQ(log.count(LogLevel::Info, "Trying to read IPs for " + files.serviceId +
                                            " from temporary files. This is a workaround for a commonAPI Bug, which "
                                            "leads to successful request of getInternetAcces, but doesnt provide any "
                                            "data"),
              1u);
    EXPECT_EQ(log.count(LogLevel::Info, "Read IP: 10.0.0.5 from " + files.path("ipv4")), 1u);
    EXPECT_EQ(log.count(LogLevel::Info, "IP from " + files.path("ipv6") + " could not be read or is empty!"), 1u);
    EXPECT_EQ(log.count(LogLevel::Info, "(ipv4: 10.0.0.5 | prefix: 0 | name: )"), 1u);

    // A blank file counts as none; the record keeps what it had.
    files.write("ipv4", " \n\t\n");
    auto const record = std::make_shared<ClientData_s>("1.1.1.1", 8, "keep");
    EXPECT_FALSE(rig.manager->readNetworkingFromFile(files.path("ipv4"), record));
    EXPECT_EQ(*record, ClientData_s("1.1.1.1", 8, "keep"));
}

TEST(NetworkingConnection, ARefusedOrFailedServiceEndsTheTryAndTheNextTryAsksEveryServiceAgain) {
    ConnectionRig rig;
    LogCapture log;
    EXPECT_FALSE(rig.manager->tryConnectNetworking(1));  // no proxy yet
    EXPECT_EQ(log.count(LogLevel::Info, "getInternetAccess Try 1"), 1u);
    EXPECT_EQ(log.count(LogLevel::Warning, "Networking API: proxy not known"), 1u);
    rig.useProxy();
    EXPECT_TRUE(rig.manager->tryConnectNetworking(2));  // no services: nothing to ask
    EXPECT_TRUE(rig.simulator.calls().empty());

    rig.manager->addService("b-svc", nullptr);
    rig.manager->addService("a-svc", nullptr);
    rig.simulator.refuse("b-svc", ResultCodes_e::NOT_ALLOWED, 1);
    EXPECT_FALSE(rig.manager->tryConnectNetworking(3));
    EXPECT_EQ(rig.interfaces->heard.all(), Lines{"a-svc 192.168.100.2 fd00::2"});
    EXPECT_EQ(log.count(LogLevel::Warning,
                        "Networking API: request for internet for service b-svc not successful, ResultCode 1"),
              1u);
    EXPECT_TRUE(rig.manager->tryConnectNetworking(4));
    EXPECT_EQ(rig.interfaces->heard.all(), (Lines{"a-svc 192.168.100.2 fd00::2", "a-svc 192.168.100.2 fd00::2",
                                                  "b-svc 192.168.100.2 fd00::2"}));
    EXPECT_EQ(rig.callsMade(), (Lines{"getInternetAccess a-svc", "getInternetAccess b-svc", "getInternetAccess a-svc",
                                      "getInternetAccess b-svc"}));

    rig.simulator.fail("a-svc", CommonAPI::CallStatus::REMOTE_ERROR, 1);
    EXPECT_FALSE(rig.manager->tryConnectNetworking(5));
    EXPECT_EQ(log.count(LogLevel::Warning,
                        "Networking API: request for internet for service a-svc not successful, CallStatus 4"),
              1u);
    rig.simulator.stop();
    EXPECT_FALSE(rig.manager->tryConnectNetworking(6));
    EXPECT_EQ(log.count(LogLevel::Warning,
                        "Networking API: request for internet for service a-svc not successful, CallStatus 2"),
              1u);
    EXPECT_EQ(rig.interfaces->heard.size(), 3u);
}

TEST(NetworkingConnection, DisconnectAnswersOnceAtOnceWithTheNewConnectedState) {
    {
        ConnectionRig skipping(true);
        skipping.manager->addService("svc", nullptr);
        skipping.useProxy();
        auto const answers = std::make_shared<RecordingCallback>();
        LogCapture log;
        skipping.manager->disconnectNetworking(answers);
        EXPECT_EQ(answers->values.all(), std::vector<bool>{false});
        EXPECT_EQ(log.count(LogLevel::Warning, "Skipping disconnection to networking!"), 1u);
        skipping.manager->connectNetworking(answers);
        EXPECT_EQ(answers->values.all(), (std::vector<bool>{false, true}));
        EXPECT_EQ(log.count(LogLevel::Warning, "Skipping connection to networking!"), 1u);
        EXPECT_TRUE(skipping.simulator.calls().empty());
    }
    ConnectionRig rig;
    rig.manager->addService("b-svc", nullptr);
    rig.manager->addService("a-svc", nullptr);
    auto const answers = std::make_shared<RecordingCallback>();
    LogCapture log;
    rig.manager->disconnectNetworking(answers);
    EXPECT_EQ(answers->values.all(), std::vector<bool>{true});  // without a proxy the services stay connected
    EXPECT_EQ(log.count(LogLevel::Error, "disconnectNetworking(): no proxy"), 1u);

    rig.useProxy();
    rig.manager->disconnectNetworking(answers);
    EXPECT_EQ(answers->values.all(), (std::vector<bool>{true, false}));
    EXPECT_EQ(log.count(LogLevel::Info, "Networking API: dropInternetAccess for service a-svc"), 1u);
    ASSERT_TRUE(rig.simulator.waitForCalls(2));
    EXPECT_EQ(rig.callsMade(), (Lines{"dropInternetAccess a-svc", "dropInternetAccess b-svc"}));
}

TEST(NetworkingConnection, ANewConnectReplacesTheRetryThreadAndDisconnectOrShutdownStopIt) {
    ConnectionRig rig;
    rig.manager->addService("svc", nullptr);
    rig.useProxy();
    rig.manager->setNetworkingRetryInterval(60000);  // every thread waits after its first try
    rig.simulator.refuse("svc", ResultCodes_e::NOT_ALLOWED);
    auto const first = std::make_shared<RecordingCallback>();
    auto const second = std::make_shared<RecordingCallback>();
    LogCapture log;

    auto const waitingAfterTry = [&rig](std::size_t tries) {
        return rig.simulator.waitForCalls(tries) && eventually([&rig] { return rig.manager->isNetworkingRetryWaiting(); });
    };
    rig.manager->connectNetworking(first);
    ASSERT_TRUE(waitingAfterTry(1));
    rig.manager->connectNetworking(second);  // joins the first thread, which is waiting
    ASSERT_TRUE(waitingAfterTry(2));
    rig.manager->requestShutdown();
    EXPECT_EQ(log.count(LogLevel::Info, "Shutdown request received. Aborting connecting to Networking."), 1u);

    rig.manager->connectNetworking(first);
    ASSERT_TRUE(waitingAfterTry(3));
    rig.manager->disconnectNetworking(second);
    EXPECT_EQ(log.count(LogLevel::Info, "disconnectNetworking request received. Aborting connecting to Networking."), 1u);
    // A stop during the wait ends a thread without an answer; only the disconnect answered.
    EXPECT_EQ(first->values.all(), std::vector<bool>{});
    EXPECT_EQ(second->values.all(), std::vector<bool>{false});
    ASSERT_TRUE(rig.simulator.waitForCalls(4));  // three tries and one drop
    EXPECT_EQ(rig.callsMade().back(), "dropInternetAccess svc");
}

}  // namespace
