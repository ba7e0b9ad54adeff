#include "NetworkingRig.h"

#include "support/LogCapture.h"
#include "unit/core/ClientRig.h"

#include <gtest/gtest.h>

namespace {

using namespace qel::test;
using qel::common::logging::LogLevel;
using qel::sim::networking::NetworkingSimulator;
using Mode = ScriptedBackend::Mode;

// The client's proxy address: domain "kalm", instance "qel.networking.api".
struct NetworkingService : NetworkingSimulator {
    NetworkingService() { EXPECT_TRUE(start()); }
};

TEST(ClientNetworking, StartupBuildsTheProxyOnceSubscribesAndHandsItOnWhenAvailable) {
    NetworkingService service;
    ClientRig rig(Mode::AT_ONCE);
    rig.subscriptions->addService("svc", nullptr);
    LogCapture log;
    rig.client->startup();
    ASSERT_TRUE(eventually([&] { return log.contains(LogLevel::Info, "networking proxy available"); }));
    EXPECT_EQ(log.count(LogLevel::Info, "ocu state sub: 0"), 1u);
    // The proxy reaches the subscription manager: its tries now reach the service.
    EXPECT_TRUE(rig.subscriptions->tryConnectNetworking(1));
    EXPECT_EQ(service.calls().size(), 1u);

    // A second call subscribes again on the same proxy: its event hands out the next handle.
    EXPECT_TRUE(rig.client->connectNetworking());
    EXPECT_EQ(log.count(LogLevel::Info, "ocu state sub: 1"), 1u);
    service.setOcuAvailable(false);
    ASSERT_TRUE(eventually([&] { return log.count(LogLevel::Info, "NETW Event: ocu is not available") == 2; }));
    EXPECT_TRUE(flushBindingEvents());  // the walk to DISCONNECTED ends before the rig goes
}

TEST(ClientNetworking, StopUnsubscribesBothEventsAndStopsTheRetrying) {
    NetworkingService service;
    ClientRig rig(Mode::AT_ONCE);
    rig.subscriptions->addService("svc", nullptr);
    rig.subscriptions->setNetworkingRetryInterval(60000);
    service.refuse("svc", ResultCodes_e::NOT_ALLOWED);
    LogCapture log;
    rig.client->startup();
    ASSERT_TRUE(eventually([&] { return log.contains(LogLevel::Info, "networking proxy available"); }));
    auto const answers = std::make_shared<RecordingCallback>();
    rig.subscriptions->connectNetworking(answers);
    ASSERT_TRUE(service.waitForCalls(1));
    ASSERT_TRUE(eventually([&] { return rig.subscriptions->isNetworkingRetryWaiting(); }));

    rig.client->stop();
    EXPECT_EQ(log.count(LogLevel::Info, "Shutdown request received. Aborting connecting to Networking."), 1u);
    service.setOcuAvailable(false);
    service.leaveBus();
    ASSERT_TRUE(service.rejoinBus());
    // Anything still on its way would come before this listener's first status.
    ASSERT_TRUE(flushBindingEvents());
    EXPECT_EQ(log.countPrefix(LogLevel::Info, "NETW Event"), 0u);
    EXPECT_EQ(log.count(LogLevel::Info, "networking proxy available"), 1u);
    EXPECT_TRUE(answers->values.all().empty());
}

TEST(ClientNetworking, AProxyThatCannotBeBuiltIsLoggedAndStartupGoesOn) {
    ClientRig rig(Mode::AT_ONCE);
    LogCapture log;
    ::setenv("QEL_COMMONAPI_BINDING", "nosuchbinding", 1);
    rig.client->startup();
    ::setenv("QEL_COMMONAPI_BINDING", "inprocess", 1);
    EXPECT_EQ(log.count(LogLevel::Error, "Networking API: Building proxy failed"), 1u);
    EXPECT_TRUE(rig.answerUntil(RunState::RESUMED));
    EXPECT_EQ(log.countPrefix(LogLevel::Info, "ocu state sub: "), 0u);
}

}  // namespace
