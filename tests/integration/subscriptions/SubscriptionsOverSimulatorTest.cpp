// The subscription items and their manager over the host RSI client, against the backend
// simulator on loopback.
#include "BackendSimulator.h"
#include "rsi/RSIClientWrapper.h"
#include "rsi/SharedRsiClient.h"
#include "rsi/host/HostRsiClient.h"
#include "subscriptions/JobItem.h"
#include "subscriptions/SubscriptionManager.h"
#include "subscriptions/TokenItem.h"
#include "support/ManualClock.h"
#include "support/RsiWorkerDriver.h"
#include "unit/subscriptions/RecordingListener.h"

#include <gtest/gtest.h>

#include <chrono>
#include <thread>

namespace qel::test {
namespace {

using namespace rsi::client;
namespace core = onlineservices::framework::core;

constexpr char const* BACKEND = R"({
  "tokens": [{"id": "tok-nav", "name": "nav", "token": "first"}],
  "services": [{"id": "svc-nav", "name": "nav", "baseUrl": "https://nav.example.com"}],
  "kvs": [{"id": "kvs-1", "name": "nav.color", "value": "red"}],
  "jobs": [{"id": "job-1", "name": "nav", "messageId": "005F/1", "jobId": 1},
           {"id": "job-2", "name": "nav", "messageId": "005F/2", "jobId": 2},
           {"id": "job-3", "name": "nav", "messageId": "005F/3", "jobId": 3}]
})";

// Polls `condition` until it holds; real time only as a safety limit.
template <typename Condition>
bool eventually(Condition const& condition) {
    for (auto const deadline = std::chrono::steady_clock::now() + std::chrono::seconds(5);
         !condition() && std::chrono::steady_clock::now() < deadline;) {
        std::this_thread::sleep_for(std::chrono::milliseconds(5));
    }
    return condition();
}

class SubscriptionsOverSimulatorTest : public ::testing::Test {
protected:
    void SetUp() override {
        ASSERT_TRUE(simulator.loadScenario(BACKEND));
        ASSERT_TRUE(simulator.start());
        SetSharedRsiClient(std::make_shared<host::HostRsiClient>(clientOptions()));
        wrapper = std::make_shared<core::RSIClientWrapper>(config);
        SetSharedRsiClient(nullptr);  // the wrapper keeps its client
        wrapper->start();
        manager = std::make_unique<core::SubscriptionManager>(config, notifier, wrapper);
        notifier->addListener(std::weak_ptr<core::IServiceDataListener>(listener));
        notifier->addListener(std::weak_ptr<core::IKVSListener>(listener));
        notifier->setListener(std::weak_ptr<core::IBackendJobListener>(listener));
    }
    // The items are released with the fixture, on the test's thread, after their queues were joined.
    void TearDown() override {
        manager->shutdown();
        wrapper->stop();
    }

    host::HostRsiClient::Options clientOptions() const {
        host::HostRsiClient::Options options;
        options.endpoint.port = simulator.port();
        return options;
    }
    bool heard(std::string const& what) const {
        return eventually([&] { return listener->times(what) > 0; });
    }
    std::string threadOf(std::string const& what) const {
        for (auto const& call : listener->heard.all()) {
            if (call.what == what) {
                return call.thread;
            }
        }
        return "<not heard>";
    }
    bool subscribed(core::SubscriptionManager::Items const& items) {
        owned.insert(owned.end(), items.begin(), items.end());
        auto const condition = std::make_shared<RecordingCallback>();
        manager->subscribe(items, condition);
        return condition->values.waitFor(1) && condition->values.all() == std::vector<bool>{true};
    }
    // One request straight to the backend, as an operator would send it.
    Response operatorRequest(std::uint32_t type, std::string const& service, std::string const& resource,
                             std::string const& element, std::unique_ptr<dataformats::data::Object> data = {}) const {
        Request request;
        request.type = type;
        request.service = service;
        request.resource = resource;
        request.element = element;
        request.data = std::move(data);
        Response response;
        host::HostRsiClient(clientOptions()).request(request, response);
        return response;
    }
    void renameServiceEntry(std::string const& name) {
        auto body = std::make_unique<dataformats::data::Object>();
        body->setNew("name", std::make_unique<dataformats::data::String>(name));
        ASSERT_EQ(operatorRequest(RequestTypePostElement, "servicemanagement", "services", "svc-nav", std::move(body))
                      .getStatus(),
                  200);
    }
    // The item's value as the backend holds it.
    std::string storedKvsValue(std::string const& id) const {
        auto const response = operatorRequest(RequestTypeGetElement, "onlinekvs", "items", id);
        return dataformats::data::Ref(response.getData(false))("data")("value").asString();
    }
    std::size_t updatesReceived(std::string const& target) const {
        std::size_t count = 0;
        for (auto const& message : simulator.received()) {
            count += message.method == "POST" && message.target == target ? 1 : 0;
        }
        return count;
    }

    sim::backend::BackendSimulator simulator;
    std::shared_ptr<onlineservices::framework::FrameworkConfig> config =
        std::make_shared<onlineservices::framework::FrameworkConfig>();
    std::shared_ptr<core::Notifier> notifier = std::make_shared<core::Notifier>(config);
    std::shared_ptr<RecordingListener> listener = std::make_shared<RecordingListener>();
    std::shared_ptr<core::RSIClientWrapper> wrapper;
    std::unique_ptr<core::SubscriptionManager> manager;
    core::SubscriptionManager::Items owned;
    common::logging::Logger logger{"integration"};
};

TEST_F(SubscriptionsOverSimulatorTest, ServiceEntryLeadsToAValidTokenAndItsDisableReasonsAndAbsenceAreHeard) {
    auto const token = std::make_shared<core::TokenItem>(logger, notifier, wrapper, "nav");
    auto const service = std::make_shared<core::ServiceItem>(logger, notifier, wrapper, "nav");
    manager->addService("nav", service);
    service->setTokenHandler(token);
    ASSERT_TRUE(subscribed({service, token}));
    EXPECT_EQ(token->getElement(), "tok-nav");
    ASSERT_TRUE(heard("token nav first"));
    EXPECT_EQ(threadOf("token nav first"), "tok:nav");
    EXPECT_EQ(threadOf("baseUrl nav https://nav.example.com"), "svc:nav");
    simulator.rotateToken("tok-nav", "second");
    EXPECT_TRUE(heard("token nav second"));

    ASSERT_TRUE(simulator.setDisableReasons("nav", {"maintenance"}));
    ASSERT_TRUE(heard("reasons nav maintenance"));
    EXPECT_TRUE(manager->isAnyServiceDisabled());
    // The entry leaves the list the item watches for two list events, then comes back.
    renameServiceEntry("nav-moved");
    ASSERT_TRUE(simulator.setDisableReasons("nav-moved", {}));
    ASSERT_TRUE(simulator.setDisableReasons("nav-moved", {"maintenance"}));
    renameServiceEntry("nav");
    ASSERT_TRUE(simulator.setDisableReasons("nav", {"maintenance"}));
    ASSERT_TRUE(eventually([&] { return listener->times("service nav") == 3; }));  // events run in order
    EXPECT_EQ(listener->times("reasons nav missingServicelistEntry"), 1u);
    EXPECT_EQ(listener->times("reasons nav maintenance"), 1u);
}

TEST_F(SubscriptionsOverSimulatorTest, KvsValuesTravelFromTheBackendAndBack) {
    auto const item = std::make_shared<core::KVSItem>(logger, notifier, wrapper, "nav.color");
    item->handleURI("kvs-1");  // what posting the entry reports
    manager->addKVSItem("nav.color", item);
    ASSERT_TRUE(subscribed({item}));
    ASSERT_TRUE(heard("kvs nav.color red"));
    ASSERT_TRUE(simulator.setKvsValue("kvs-1", "blue"));
    ASSERT_TRUE(heard("kvs nav.color blue"));
    EXPECT_EQ(threadOf("kvs nav.color blue"), "kvs:nav.color");

    EXPECT_EQ(manager->updateKVSItem("nav.color", "green"), core::UPDATE_OK);
    EXPECT_EQ(simulator.received().back().body, R"({"value":"green"})");
    EXPECT_TRUE(heard("kvs nav.color green"));  // the backend's event carries its stored value
}

// Waits out one update time-out.
TEST_F(SubscriptionsOverSimulatorTest, RefusedUpdateGivenUpForANewerOneNeverOverwritesIt) {
    ManualClock clock;
    auto const item = std::make_shared<core::KVSItem>(logger, notifier, wrapper, "nav.color");
    item->handleURI("kvs-1");
    manager->addKVSItem("nav.color", item);
    ASSERT_TRUE(subscribed({item}));
    simulator.failNext("/onlinekvs/items/kvs-1", 500);
    EXPECT_EQ(manager->updateKVSItem("nav.color", "green"), core::UPDATE_REQUEST_FAILED);  // retried in 10 s
    EXPECT_EQ(manager->updateKVSItem("nav.color", "blue"), core::UPDATE_OK);

    clock.advance(10001);
    ASSERT_TRUE(runWorkerLoop(*wrapper));
    clock.advance(300000);
    ASSERT_TRUE(runWorkerLoop(*wrapper));
    EXPECT_EQ(updatesReceived("/onlinekvs/items/kvs-1"), 2u);
    EXPECT_EQ(storedKvsValue("kvs-1"), "blue");
}

TEST_F(SubscriptionsOverSimulatorTest, JobsAreNotifiedInOrderAndARefusedAcknowledgementIsRedoneWhenListedAgain) {
    simulator.failNext("/backendjobs/jobs/job-1", 504);
    auto const item = std::make_shared<core::JobItem>(logger, notifier, wrapper, "nav");
    ASSERT_TRUE(subscribed({item}));
    // Acknowledgements are sent in order: once job-3's is in, job-1's refusal was handled.
    ASSERT_TRUE(eventually([&] { return simulator.acknowledgements().size() >= 2; }));
    EXPECT_EQ(listener->times("job job-1 nav"), 1u);

    std::string const added = simulator.pushJob(R"({"name":"nav"})");  // the list comes again
    ASSERT_TRUE(eventually([&] { return simulator.acknowledgements().size() >= 4; }));
    EXPECT_EQ(listener->whats(), (std::vector<std::string>{"job job-1 nav", "job job-2 nav", "job job-3 nav",
                                                           "job job-1 nav", "job " + added + " nav"}));
    EXPECT_TRUE(listener->allOn("job:nav"));
    std::vector<std::string> acknowledged;
    for (auto const& acknowledgement : simulator.acknowledgements()) {
        acknowledged.push_back(acknowledgement.jobId + " " + acknowledgement.state);
    }
    EXPECT_EQ(acknowledged, (std::vector<std::string>{"job-2 success", "job-3 success", "job-1 success",
                                                      added + " success"}));
}

}  // namespace
}  // namespace qel::test
