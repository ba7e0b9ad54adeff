#include "rsi/RSIClientWrapper.h"
#include "rsi/RSIServiceManager.h"
#include "support/InMemoryRsiClient.h"
#include "support/LogCapture.h"
#include "support/RsiRecorders.h"
#include "support/RsiWorkerDriver.h"

#include <gtest/gtest.h>

namespace qel::test {
namespace {

using common::logging::LogLevel;
using onlineservices::framework::FrameworkConfig;
using onlineservices::framework::core::RSIClientWrapper;
using onlineservices::framework::core::RSIServiceManager;
using namespace rsi::client;

class RsiServiceManagerTest : public ::testing::Test {
protected:
    void SetUp() override {
        rsi->setDefaultReply(Reply(200, R"({"status":"ok"})"));
        wrapper->start();
    }
    void TearDown() override { wrapper->stop(); }

    // The client's id of the availability subscription for `service`.
    std::uint32_t subscriptionOf(std::string const& service) const {
        for (auto const& subscription : rsi->subscriptions()) {
            if (subscription.request.queryParameters.at("name") == service) {
                return subscription.clientId;
            }
        }
        return 0;
    }

    LogCapture log;
    InMemoryRsiClient::Installation rsi;
    std::shared_ptr<FrameworkConfig> config = std::make_shared<FrameworkConfig>();
    std::shared_ptr<RSIClientWrapper> wrapper = std::make_shared<RSIClientWrapper>(config);
    std::shared_ptr<RSIServiceManager> manager = std::make_shared<RSIServiceManager>(config, wrapper);
    std::shared_ptr<RecordingCallback> kvsFirst = std::make_shared<RecordingCallback>();
    std::shared_ptr<RecordingCallback> kvsSecond = std::make_shared<RecordingCallback>();
    std::shared_ptr<RecordingCallback> jobs = std::make_shared<RecordingCallback>();
};

TEST_F(RsiServiceManagerTest, CallbacksForOneServiceShareOneSubscriptionAndHearItsAvailability) {
    rsi->replyTo({RequestTypeSubscribeRoot}, Reply(200, R"({"status":"degraded"})"), 1);
    manager->subscribe("onlinekvs", kvsFirst);
    manager->subscribe("onlinekvs", kvsSecond);
    manager->subscribe("backendjobs", jobs);
    ASSERT_TRUE(drainWorker(*wrapper));

    auto const subscriptions = rsi->subscriptions();
    ASSERT_EQ(subscriptions.size(), 2u);
    EXPECT_EQ(subscriptions[0].request.type, RequestTypeSubscribeRoot);
    EXPECT_EQ(subscriptions[0].request.requestId, 0u);
    EXPECT_EQ(subscriptions[1].request.requestId, 1u);
    EXPECT_EQ(log.countPrefix(LogLevel::Error, "Received status"), 1u);  // the first answer only
    EXPECT_TRUE(log.contains(LogLevel::Error, "Received status degraded"));
    EXPECT_EQ(kvsFirst->values.size(), 0u);  // availability comes from events alone

    ASSERT_TRUE(rsi->pushData(subscriptionOf("onlinekvs"), R"([{"name":"onlinekvs"},{"name":"backendjobs"}])"));
    EXPECT_EQ(kvsFirst->values.all(), std::vector<bool>{true});
    EXPECT_EQ(kvsSecond->values.all(), std::vector<bool>{true});

    ASSERT_TRUE(rsi->pushData(subscriptionOf("backendjobs"), R"([{"name":"onlinekvs"}])"));
    EXPECT_EQ(jobs->values.size(), 0u);

    ASSERT_TRUE(rsi->pushData(subscriptionOf("backendjobs"), "[]"));
    EXPECT_EQ(jobs->values.all(), std::vector<bool>{false});
    EXPECT_EQ(kvsFirst->values.size(), 1u);
}

TEST_F(RsiServiceManagerTest, ForgottenCallbacksHearNothingAndALateCallbackOnlyLaterEvents) {
    manager->subscribe("onlinekvs", kvsFirst);
    ASSERT_TRUE(drainWorker(*wrapper));
    std::uint32_t const id = subscriptionOf("onlinekvs");
    ASSERT_TRUE(rsi->pushData(id, R"([{"name":"onlinekvs"}])"));

    manager->subscribe("onlinekvs", kvsSecond);
    EXPECT_EQ(kvsSecond->values.size(), 0u);
    ASSERT_TRUE(rsi->pushData(id, "[]"));
    EXPECT_EQ(kvsFirst->values.all(), (std::vector<bool>{true, false}));
    EXPECT_EQ(kvsSecond->values.all(), std::vector<bool>{false});

    manager->_unsubscribe();
    log.clear();
    ASSERT_TRUE(rsi->pushData(id, R"([{"name":"onlinekvs"}])"));
    EXPECT_TRUE(log.contains(LogLevel::Info, "Service onlinekvs available"));
    EXPECT_EQ(kvsFirst->values.size(), 2u);
    EXPECT_EQ(kvsSecond->values.size(), 1u);
    EXPECT_TRUE(rsi->unsubscribed().empty());  // the backend subscription stays until disconnect
}

}  // namespace
}  // namespace qel::test
