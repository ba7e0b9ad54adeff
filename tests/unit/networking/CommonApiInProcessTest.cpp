#include "NetworkingRig.h"

#include "commonapi/EventDispatcher.h"
#include "common/Thread.h"
#include "support/LogCapture.h"

#include <gtest/gtest.h>

#include <unistd.h>

#include <atomic>
#include <future>

namespace {

using namespace qel::test;
using CommonAPI::AvailabilityStatus;
using CommonAPI::CallStatus;
using qel::common::logging::LogLevel;
using qel::sim::networking::NetworkingSimulator;

// Records what a proxy's event delivered, and on which thread.
void heard(Recorder<std::string>& events, std::string const& what) {
    events.add(what + " on " + qel::common::system::currentThreadName());
}

std::string text(AvailabilityStatus status) {
    return status == AvailabilityStatus::AVAILABLE ? "AVAILABLE"
                                                   : status == AvailabilityStatus::NOT_AVAILABLE ? "NOT_AVAILABLE"
                                                                                                 : "UNKNOWN";
}

// A job may hold the last reference to a proxy, and through it to the dispatcher running the job.
TEST(EventDispatcherLifetime, ReleasedInsideItsOwnJobFinishesWhatWasPostedAndIsJoinedLater) {
    auto dispatcher = std::make_shared<CommonAPI::EventDispatcher>("capi-test");
    std::promise<void> gate;
    std::promise<void> lastRan;
    std::atomic<int> ran{0};
    dispatcher->post([keep = dispatcher, opened = gate.get_future().share(), &ran]() mutable {
        opened.wait();
        ++ran;
        keep.reset();  // the last owner goes on the dispatcher's own thread
    });
    dispatcher->post([&ran, &lastRan] {
        ++ran;
        lastRan.set_value();
    });
    dispatcher.reset();
    gate.set_value();
    ASSERT_EQ(lastRan.get_future().wait_for(std::chrono::seconds(10)), std::future_status::ready);
    qel::common::system::joinRetiredThreads();  // returns once the thread has ended
    EXPECT_EQ(ran.load(), 2);
}

TEST(CommonApiInProcess, AvailabilityAndOcuEventsFollowTheServiceOnTheBindingThread) {
    std::string const instance = uniqueName("availability");
    auto const proxy = proxyAt(instance);
    ASSERT_NE(proxy, nullptr);
    EXPECT_FALSE(proxy->isAvailable());
    Recorder<std::string> events;
    auto const status = proxy->getProxyStatusEvent().subscribe(
        [&events](AvailabilityStatus const& value) { heard(events, text(value)); });
    auto const ocu = proxy->getOcuConnStateChangeEvent().subscribe(
        [&events](bool const& value) { heard(events, value ? "ocu" : "no ocu"); });
    EXPECT_NE(status, 0xFFFFFFFFu);
    ASSERT_TRUE(events.waitFor(1));  // the current status first

    NetworkingSimulator simulator;
    ASSERT_TRUE(simulator.start("kalm", instance));
    EXPECT_TRUE(proxy->isAvailable());
    simulator.setOcuAvailable(false);
    simulator.leaveBus();
    EXPECT_FALSE(proxy->isAvailable());
    simulator.setOcuAvailable(true);  // off the bus: nobody hears it
    ASSERT_TRUE(simulator.rejoinBus());
    ASSERT_TRUE(events.waitFor(5));
    EXPECT_EQ(events.all(), (std::vector<std::string>{"NOT_AVAILABLE on capi-inproc", "AVAILABLE on capi-inproc",
                                                      "no ocu on capi-inproc", "NOT_AVAILABLE on capi-inproc",
                                                      "AVAILABLE on capi-inproc"}));

    // A second listener hears the current status alone; unsubscribed listeners hear nothing.
    Recorder<std::string> late;
    auto const lateStatus =
        proxy->getProxyStatusEvent().subscribe([&late](AvailabilityStatus const& value) { late.add(text(value)); });
    ASSERT_TRUE(late.waitFor(1));
    EXPECT_EQ(late.all(), std::vector<std::string>{"AVAILABLE"});
    proxy->getOcuConnStateChangeEvent().unsubscribe(ocu);
    proxy->getProxyStatusEvent().unsubscribe(status);
    simulator.setOcuAvailable(false);
    simulator.leaveBus();
    ASSERT_TRUE(late.waitFor(2));
    EXPECT_EQ(events.size(), 5u);
    proxy->getProxyStatusEvent().unsubscribe(lateStatus);
}

TEST(CommonApiInProcess, CallsReachTheServiceAndFailuresLeaveTheOutArgumentsAlone) {
    std::string const instance = uniqueName("calls");
    NetworkingSimulator simulator;
    ASSERT_TRUE(simulator.loadScenario(
        R"({"services":{"nav":{"ipv4":{"address":"10.1.1.7","prefix":16,"name":"wwan0"}}}})"));
    ASSERT_TRUE(simulator.start("kalm", instance));
    auto const proxy = proxyAt(instance);
    ASSERT_NE(proxy, nullptr);

    CallStatus status = CallStatus::UNKNOWN;
    ClientData_s ipv4;
    ClientData_s ipv6;
    ResultCodes_e result = ResultCodes_e::UNKNOWN_ERROR;
    proxy->getInternetAccess("nav", status, ipv4, ipv6, result);
    EXPECT_EQ(status, CallStatus::SUCCESS);
    EXPECT_EQ(result, ResultCodes_e::SUCCESS);
    EXPECT_EQ(ipv4, ClientData_s("10.1.1.7", 16, "wwan0"));
    EXPECT_EQ(ipv6, ClientData_s("fd00::2", 64, "ocu0"));  // the simulator's default

    simulator.fail("nav", CallStatus::REMOTE_ERROR, 1);
    ClientData_s untouched("1.2.3.4", 8, "x");
    result = ResultCodes_e::UNKNOWN_ERROR;
    proxy->getInternetAccess("nav", status, untouched, ipv6, result);
    EXPECT_EQ(status, CallStatus::REMOTE_ERROR);
    EXPECT_EQ(untouched, ClientData_s("1.2.3.4", 8, "x"));
    EXPECT_EQ(result, ResultCodes_e::UNKNOWN_ERROR);

    std::promise<ResultCodes_e> dropped;
    auto future = proxy->dropInternetAccessAsync(
        "nav", [&dropped](CallStatus const&, ResultCodes_e const& code) { dropped.set_value(code); });
    ASSERT_EQ(future.wait_for(std::chrono::seconds(5)), std::future_status::ready);
    EXPECT_EQ(future.get(), CallStatus::SUCCESS);
    EXPECT_EQ(dropped.get_future().get(), ResultCodes_e::SUCCESS);

    simulator.stop();
    proxy->getInternetAccess("nav", status, ipv4, ipv6, result);
    EXPECT_EQ(status, CallStatus::NOT_AVAILABLE);
    auto const calls = simulator.calls();
    ASSERT_EQ(calls.size(), 3u);
    EXPECT_EQ(calls[1].outcome, "failed REMOTE_ERROR");
    EXPECT_EQ(calls[2].method, "dropInternetAccess");
}

TEST(CommonApiRuntime, TheBindingIsLoadedByNameOrPathAtRunTime) {
    LogCapture log;
    ::setenv("QEL_COMMONAPI_BINDING", "nosuchbinding", 1);
    EXPECT_EQ(proxyAt("anything"), nullptr);
    EXPECT_EQ(log.countPrefix(LogLevel::Error, "CommonAPI binding nosuchbinding could not be loaded: "), 1u);

    // The D-Bus binding is not linked into this test: the runtime loads it. Pointed at a bus
    // that does not exist, its proxy fails to connect, which shows the binding in use.
    std::string const nowhere = "unix:path=/nonexistent/" + uniqueName("bus");
    ::setenv("DBUS_SESSION_BUS_ADDRESS", nowhere.c_str(), 1);
    ::setenv("QEL_COMMONAPI_BINDING", QEL_COMMONAPI_DBUS_LIBRARY, 1);
    EXPECT_EQ(proxyAt("anything"), nullptr);
    EXPECT_EQ(proxyAt("anything"), nullptr);  // the second time without loading
    ::setenv("QEL_COMMONAPI_BINDING", "inprocess", 1);
    ::unsetenv("DBUS_SESSION_BUS_ADDRESS");
    EXPECT_EQ(log.countPrefix(LogLevel::Error, "D-Bus session bus not reachable: "), 2u);
    EXPECT_EQ(log.countPrefix(LogLevel::Error, "CommonAPI binding "), 1u);
}

}  // namespace
