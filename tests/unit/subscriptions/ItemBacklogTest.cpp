// An item whose listener is slow: a burst of events piles up behind it. A state-carrying item
// skips the states overtaken meanwhile but ends on the newest; the job item delivers every job.
#include "SubscriptionTestRig.h"

#include "common/Semaphore.h"
#include "subscriptions/JobItem.h"
#include "subscriptions/ServiceItem.h"

#include <atomic>

namespace qel::test {
namespace {

using namespace rsi::client;

constexpr std::uint32_t LIMIT_MS = 5000;
constexpr std::size_t MARK = 4;

// Holds the item's queue thread in its first call until released; records the jobs it is given.
class SlowListener : public core::IServiceDataListener, public core::IBackendJobListener {
public:
    void onServiceDataChanged(std::string const&, std::shared_ptr<items::ServiceObject> const&) override { hold(); }
    BackendJobAcknowledgeCode onBackendJobReceived(std::shared_ptr<items::JobObject> const& job) override {
        jobs.add(job->id);
        hold();
        return BackendJobAcknowledgeCode::SUCCESS;
    }
    bool waitUntilHeld() { return m_entered.down(LIMIT_MS); }
    void release() { m_release.up(); }

    Recorder<std::string> jobs;

private:
    void hold() {
        if (!m_held.exchange(true)) {
            m_entered.up();
            m_release.down(LIMIT_MS);
        }
    }
    std::atomic<bool> m_held{false};
    common::system::Semaphore m_entered{0};
    common::system::Semaphore m_release{0};
};

std::string serviceEntry(int version) {
    return R"([{"id":"s-1","name":"nav","baseUrl":"https://v)" + std::to_string(version) + R"("}])";
}

std::string jobEvent(int number) {
    return R"([{"id":"j)" + std::to_string(number) + R"(","name":"nav","messageId":"005F/1","jobId":7}])";
}

class ItemBacklogTest : public SubscriptionTestRig {
protected:
    // Sends `count` events through the client while the listener holds the first one.
    void burst(core::SubscriptionBaseItem& item, Match const& match, int count, std::string (*event)(int)) {
        item.setQueueHighWaterMark(MARK);
        std::uint32_t const clientId = rsi->lastSubscriptionId(match);
        ASSERT_TRUE(rsi->pushData(clientId, event(1)));
        ASSERT_TRUE(slow->waitUntilHeld());
        for (int i = 2; i <= count; ++i) {
            ASSERT_TRUE(rsi->pushData(clientId, event(i)));
        }
        slow->release();
        ASSERT_TRUE(item.waitForQueue(LIMIT_MS));
    }

    std::shared_ptr<SlowListener> slow = std::make_shared<SlowListener>();
};

TEST_F(ItemBacklogTest, ServiceItemSkipsOvertakenStatesAndEndsOnTheNewest) {
    auto const service = makeItem<core::ServiceItem>("nav");
    notifier->addListener(std::weak_ptr<core::IServiceDataListener>(slow));
    subscribe(*service);
    burst(*service, {RequestTypeSubscribeResource, "servicemanagement"}, 11, serviceEntry);

    // Event 1 was being handled; 2 to 5 filled the queue to its mark; from then on each event
    // replaced the pending one, so 11 is the last state the listener hears.
    std::vector<std::string> urls;
    for (auto const& what : listener->whats()) {
        if (what.rfind("baseUrl ", 0) == 0) {
            urls.push_back(what);
        }
    }
    EXPECT_EQ(urls, (std::vector<std::string>{"baseUrl nav https://v1", "baseUrl nav https://v2",
                                              "baseUrl nav https://v3", "baseUrl nav https://v4",
                                              "baseUrl nav https://v11"}));
    EXPECT_EQ(service->getData()->getBaseUrl(), "https://v11");
    EXPECT_EQ(log.count(LogLevel::Warning, "(Service Management/nav) Event queue reached its high-water mark: 4 "
                                           "events pending; only the newest event of each kind is kept"),
              1u);
}

TEST_F(ItemBacklogTest, JobItemDeliversEveryJobInOrderHoweverLongTheBacklog) {
    auto const jobs = makeItem<core::JobItem>("nav");
    notifier->setListener(std::weak_ptr<core::IBackendJobListener>(slow));
    subscribe(*jobs);
    burst(*jobs, {RequestTypeSubscribeResource, "backendjobs"}, 10, jobEvent);

    EXPECT_EQ(slow->jobs.all(), (std::vector<std::string>{"j1", "j2", "j3", "j4", "j5", "j6", "j7", "j8", "j9",
                                                          "j10"}));
    EXPECT_EQ(log.count(LogLevel::Warning,
                        "(Job List/nav) Event queue reached its high-water mark: 4 events pending; every event is kept"),
              1u);
}

}  // namespace
}  // namespace qel::test
