// The service, privacy and job items confirm their element without a request of its own: the
// callback hears a change, or the answer a `subscribe` is owed, and nothing else.
#include "SubscriptionTestRig.h"

#include "subscriptions/JobItem.h"
#include "subscriptions/PrivacyItem.h"
#include "subscriptions/ServiceItem.h"

#include <atomic>
#include <thread>

namespace qel::test {
namespace {

using namespace rsi::client;

constexpr char const* SERVICE_ENTRY = R"([{"id":"s-1","name":"nav","baseUrl":"https://a"}])";

class ConfirmationWithoutRequestTest : public SubscriptionTestRig {
protected:
    Match const resource{RequestTypeSubscribeResource};
};

TEST_F(ConfirmationWithoutRequestTest, EventsDoNotRepeatTheConfirmationButARepeatedSubscribeIsAnswered) {
    auto const service = makeItem<core::ServiceItem>("nav");
    subscribe(*service);
    push(*service, resource, SERVICE_ENTRY);
    push(*service, resource, SERVICE_ENTRY);
    EXPECT_EQ(subscribed.all(), std::vector<bool>{true});

    subscribe(*service);  // the manager asks again: already subscribed, no new request
    EXPECT_EQ(subscribed.all(), (std::vector<bool>{true, true}));
    EXPECT_EQ(rsi->subscriptions().size(), 1u);
    push(*service, resource, SERVICE_ENTRY);
    EXPECT_EQ(subscribed.all(), (std::vector<bool>{true, true}));
}

TEST_F(ConfirmationWithoutRequestTest, JobItemConfirmsOnceAcrossRepeatedSubscriptionAnswers) {
    auto const jobs = makeItem<core::JobItem>("nav");
    subscribe(*jobs);
    Response answer;
    answer.setId(1);
    jobs->handleResponse(RequestState(1, ""), answer);  // a re-subscription after a lost connection
    EXPECT_EQ(subscribed.all(), std::vector<bool>{true});

    jobs->handleResponse(RequestState(0, "refused"), answer);  // lost, and marked subscribed again
    EXPECT_EQ(subscribed.all(), (std::vector<bool>{true, false, false, true}));  // both flags fell
}

TEST_F(ConfirmationWithoutRequestTest, UnsubscribeCollectorHearsNoConfirmationWhileEventsKeepComing) {
    auto const privacy = makeItem<core::PrivacyItem>("nav");
    for (int round = 0; round < 30; ++round) {
        Recorder<bool> confirmed;
        privacy->subscribe(core::RSISubscriptionCallback{[&](bool value) { confirmed.add(value); }});
        drain();
        std::uint32_t const id = rsi->lastSubscriptionId(resource);
        std::atomic<bool> stop{false};
        std::thread pusher([&] {
            while (!stop.load() && rsi->pushData(id, R"([{"id":"g-1","name":"nav"}])")) {
            }
        });
        ASSERT_TRUE(confirmed.waitFor(1));
        Recorder<bool> released;
        privacy->unsubscribe(core::RSISubscriptionCallback{[&](bool value) { released.add(value); }});
        ASSERT_TRUE(privacy->waitForQueue(5000));  // events queued before the unsubscribe have run
        stop.store(true);
        pusher.join();
        ASSERT_TRUE(privacy->waitForQueue(5000));
        EXPECT_EQ(released.all(), (std::vector<bool>{false, false, false})) << "round " << round;
        EXPECT_EQ(confirmed.all(), std::vector<bool>{true}) << "round " << round;
    }
}

}  // namespace
}  // namespace qel::test
