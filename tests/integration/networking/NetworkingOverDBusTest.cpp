// The framework's networking against the networking simulator over a private D-Bus daemon. The
// simulator runs in this process with its own bus connection and threads, as a separate process would.
#include "NetworkingSimulator.h"
#include "common/Thread.h"
#include "support/LogCapture.h"
#include "support/PrivateDBus.h"
#include "unit/core/ClientRig.h"
#include "unit/networking/NetworkingRig.h"

#include <gtest/gtest.h>

namespace {

using namespace qel::test;
using qel::common::logging::LogLevel;
using qel::sim::networking::NetworkingSimulator;
using Mode = ScriptedBackend::Mode;
using Lines = std::vector<std::string>;

// A private bus, and the D-Bus binding for everything in this test.
struct DBusTest : ::testing::Test {
    void SetUp() override {
        ASSERT_TRUE(bus.started()) << "dbus-daemon could not be started";
        ::setenv("QEL_COMMONAPI_BINDING", "dbus", 1);
    }
    void TearDown() override { ::setenv("QEL_COMMONAPI_BINDING", "inprocess", 1); }

    PrivateDBus bus;
};

TEST_F(DBusTest, TheClientGetsAccessAndFollowsTheServiceAwayAndBack) {
    NetworkingSimulator simulator;
    ASSERT_TRUE(simulator.loadScenario(
        R"({"services":{"svc":{"ipv4":{"address":"10.0.0.5","prefix":24,"name":"ocu0"},
                               "ipv6":{"address":"fd00::5","prefix":64,"name":"ocu0"}}}})"));
    auto const interfaces = std::make_shared<InterfaceRecorder>();
    ClientRig rig(Mode::AT_ONCE);
    rig.notifier->addListener(std::weak_ptr<IServiceDataListener>(interfaces));
    rig.subscriptions->addService("svc", nullptr);
    LogCapture log;

    rig.client->startup();  // before the service is there
    ASSERT_TRUE(rig.answerUntil(RunState::RESUMED));
    ASSERT_TRUE(simulator.start());
    ASSERT_TRUE(eventually([&] { return log.contains(LogLevel::Info, "networking proxy available"); }));
    EXPECT_TRUE(rig.subscriptions->tryConnectNetworking(1));
    EXPECT_EQ(interfaces->heard.all(), Lines{"svc 10.0.0.5 fd00::5"});
    EXPECT_EQ(log.count(LogLevel::Info, "(ipv4: 10.0.0.5 | prefix: 24 | name: ocu0)"), 1u);

    simulator.leaveBus();
    EXPECT_FALSE(rig.subscriptions->tryConnectNetworking(2));
    EXPECT_EQ(log.count(LogLevel::Warning,
                        "Networking API: request for internet for service svc not successful, CallStatus 2"),
              1u);
    auto const heardBefore = log.count(LogLevel::Info, "networking proxy available");
    ASSERT_TRUE(simulator.rejoinBus());
    ASSERT_TRUE(eventually([&] { return log.count(LogLevel::Info, "networking proxy available") > heardBefore; }));
    EXPECT_TRUE(rig.subscriptions->tryConnectNetworking(3));
    EXPECT_EQ(interfaces->heard.all(), (Lines{"svc 10.0.0.5 fd00::5", "svc 10.0.0.5 fd00::5"}));
    EXPECT_TRUE(flushBindingEvents());  // no event still walks the client when the rig goes
}

TEST_F(DBusTest, ARefusedServiceIsAskedAgainEveryIntervalUntilGranted) {
    NetworkingSimulator simulator;
    ASSERT_TRUE(simulator.start());
    auto const proxy = proxyAt(NetworkingSimulator::DEFAULT_INSTANCE);
    ASSERT_NE(proxy, nullptr);
    ASSERT_TRUE(eventually([&] { return proxy->isAvailable(); }));
    Recorder<std::string> heardOn;
    auto const ocuSubscription = proxy->getOcuConnStateChangeEvent().subscribe(
        [&heardOn](bool const&) { heardOn.add(qel::common::system::currentThreadName()); });
    simulator.setOcuAvailable(false);
    ASSERT_TRUE(heardOn.waitFor(1));
    EXPECT_EQ(heardOn.all()[0], "capi-dbus");  // the binding's thread, not the bus loop's or the caller's
    proxy->getOcuConnStateChangeEvent().unsubscribe(ocuSubscription);

    ClientRig rig(Mode::AT_ONCE);
    rig.subscriptions->addService("svc", nullptr);
    rig.subscriptions->setNetworkingProxy(proxy);
    EXPECT_EQ(SubscriptionManager::NETWORKING_RETRY_INTERVAL_MS, 2000u);
    rig.subscriptions->setNetworkingRetryInterval(5);
    simulator.refuse("svc", ResultCodes_e::NOT_ALLOWED, 3);
    simulator.fail("other", CommonAPI::CallStatus::REMOTE_ERROR);
    LogCapture log;
    auto const answers = std::make_shared<RecordingCallback>();
    rig.subscriptions->connectNetworking(answers);
    ASSERT_TRUE(answers->values.waitFor(1));
    EXPECT_EQ(answers->values.all(), std::vector<bool>{true});
    EXPECT_EQ(log.count(LogLevel::Warning,
                        "Networking API: request for internet for service svc not successful, ResultCode 1"),
              3u);
    EXPECT_EQ(log.count(LogLevel::Info, "getInternetAccess Try 4"), 1u);
    EXPECT_EQ(simulator.calls().size(), 4u);

    // A call status sent by the service arrives as that status.
    rig.subscriptions->addService("other", nullptr);
    EXPECT_FALSE(rig.subscriptions->tryConnectNetworking(5));
    EXPECT_EQ(log.count(LogLevel::Warning,
                        "Networking API: request for internet for service other not successful, CallStatus 4"),
              1u);

    rig.subscriptions->disconnectNetworking(answers);
    ASSERT_TRUE(simulator.waitForCalls(7));
    EXPECT_EQ(simulator.calls()[5].method + " " + simulator.calls()[6].method,
              "dropInternetAccess dropInternetAccess");
}

}  // namespace
