#include "SubscriptionTestRig.h"

#include "subscriptions/JobItem.h"
#include "support/ManualClock.h"

namespace qel::test {
namespace {

using namespace rsi::client;

std::string job(std::string const& id, std::string const& name, std::string const& messageId,
                std::string const& extra = "") {
    return R"({"id":")" + id + R"(","name":")" + name + R"(","messageId":")" + messageId + R"(","jobId":7)" + extra +
           "}";
}

class JobItemTest : public SubscriptionTestRig {
protected:
    std::shared_ptr<core::JobItem> item = makeItem<core::JobItem>("nav");
    Match const jobs{RequestTypeSubscribeResource, "backendjobs"};

    // "<job id> <body>" of every acknowledgement sent.
    std::vector<std::string> acknowledgements() {
        drain();
        std::vector<std::string> result;
        for (auto const& write : requestsOfType(RequestTypePostElement)) {
            result.push_back(write.element + " " + write.body);
        }
        return result;
    }
};

TEST_F(JobItemTest, NewJobsForThisServiceAreNotifiedAndAcknowledgedOnceWithTheListenersAnswer) {
    listener->jobAnswer = BackendJobAcknowledgeCode::INVALID_PAYLOAD;
    subscribe(*item);
    // Other services' jobs, answered ones and those without a usable id are neither notified nor
    // acknowledged; members of another kind are read as they convert (j6, j7).
    std::string const event = "[" + job("j1", "nav", "005F/1") + "," + job("j2", "nav", "abc") + "," +
                              job("j3", "nav", "005F/3", R"(,"jobAcknowledgeState":"success")") + "," +
                              job("j4", "radio", "005F/4") + "," + job("j5", "nav", "x/005F/5") + "," +
                              R"({"name":"nav","messageId":"005F/1","jobId":1})" + "," + job("", "nav", "005F/2") +
                              "," + job("a/b", "nav", "005F/3") + "," + R"({"id":4,"name":"nav","messageId":"005F/4"})" +
                              "," + job("j6", "nav", "005F/6", R"(,"jobPayload":{"x":1})") + "," +
                              job("j7", "nav", "005F/7", R"(,"jobAcknowledgeState":true)") + "]";
    push(*item, jobs, event);
    push(*item, jobs, event);  // repeated before the backend took the acknowledgements
    EXPECT_EQ(listener->whats(), (std::vector<std::string>{"job j1 nav", "job j5 nav", "job j6 nav", "job j7 nav"}));
    EXPECT_TRUE(listener->allOn("job:nav"));
    EXPECT_EQ(acknowledgements(), (std::vector<std::string>{R"(j1 {"jobAcknowledgeState":"invalidPayload"})",
                                                            R"(j5 {"jobAcknowledgeState":"invalidPayload"})",
                                                            R"(j6 {"jobAcknowledgeState":"invalidPayload"})",
                                                            R"(j7 {"jobAcknowledgeState":"invalidPayload"})"}));
    EXPECT_EQ(log.countPrefix(LogLevel::Error, "(Job List/nav) Invalid job refused: "), 8u);  // 4 per event
}

TEST_F(JobItemTest, FailedAcknowledgementIsRedoneWhenTheBackendListsTheJobAgain) {
    subscribe(*item);
    rsi->replyTo({RequestTypePostElement}, Reply(504), 1);
    push(*item, jobs, "[" + job("j1", "nav", "005F/1") + "]");
    EXPECT_EQ(acknowledgements().size(), 1u);  // answered 504: the wrapper does not retry it
    EXPECT_TRUE(log.contains(LogLevel::Error, "(Job List/nav) Job acknowledge failed with state 504"));

    push(*item, jobs, "[" + job("j1", "nav", "005F/1") + "]");  // still open at the backend
    EXPECT_EQ(acknowledgements().size(), 2u);
    EXPECT_TRUE(log.contains(LogLevel::Info, "(Job List/nav) Job acknowledge succeededed"));
    push(*item, jobs, "[" + job("j1", "nav", "005F/1") + "," + job("j2", "nav", "005F/2") + "]");  // lagging list
    EXPECT_TRUE(log.contains(LogLevel::Info, "(Job List/nav) Job j1 already acknowledged, ignoring"));
    EXPECT_EQ(listener->whats(), (std::vector<std::string>{"job j1 nav", "job j1 nav", "job j2 nav"}));

    push(*item, jobs, "[]");  // the backend closed it: no longer remembered
    push(*item, jobs, "[" + job("j1", "nav", "005F/1") + "]");
    EXPECT_EQ(listener->times("job j1 nav"), 3u);
    EXPECT_EQ(acknowledgements().size(), 4u);
}

TEST_F(JobItemTest, JobSentAgainWhileItsAcknowledgementIsRetriedIsNotNotifiedTwice) {
    ManualClock clock;
    subscribe(*item);
    rsi->replyTo({RequestTypePostElement}, Reply(500), 1);
    push(*item, jobs, "[" + job("j1", "nav", "005F/1") + "]");
    drain();  // answered 500: the wrapper retries it in 10 s
    push(*item, jobs, "[" + job("j1", "nav", "005F/1") + "]");
    EXPECT_TRUE(log.contains(LogLevel::Info, "(Job List/nav) Job j1 acknowledge pending, ignoring"));

    clock.advance(10001);
    ASSERT_TRUE(runWorkerLoop(*wrapper));
    push(*item, jobs, "[" + job("j1", "nav", "005F/1") + "]");
    EXPECT_TRUE(log.contains(LogLevel::Info, "(Job List/nav) Job j1 already acknowledged, ignoring"));
    EXPECT_EQ(listener->whats(), std::vector<std::string>{"job j1 nav"});
    EXPECT_EQ(acknowledgements().size(), 2u);  // the first try and its retry
}

TEST_F(JobItemTest, AThousandOpenJobsSentAgainAreNotNotifiedAgain) {
    subscribe(*item);
    std::string event = "[";
    for (int i = 0; i < 1000; ++i) {
        event += (i == 0 ? "" : ",") + job("j" + std::to_string(i), "nav", "005F/" + std::to_string(i));
    }
    event += "]";
    push(*item, jobs, event);
    push(*item, jobs, event);  // acknowledgements still on their way
    // One worker loop per acknowledgement: more than one drain's worth.
    ASSERT_TRUE(drainWorker(*wrapper) || drainWorker(*wrapper));
    EXPECT_EQ(requestsOfType(RequestTypePostElement).size(), 1000u);
    push(*item, jobs, event);  // all acknowledged, the backend not yet up to date
    drain();
    EXPECT_EQ(listener->heard.size(), 1000u);
    EXPECT_EQ(requestsOfType(RequestTypePostElement).size(), 1000u);
    EXPECT_TRUE(log.contains(LogLevel::Info, "(Job List/nav) Job j999 already acknowledged, ignoring"));
}

TEST_F(JobItemTest, ConfirmsOnceAcrossRepeatedSubscriptionAnswers) {
    subscribe(*item);
    Response answer;
    answer.setId(1);
    item->handleResponse(RequestState(1, ""), answer);  // a re-subscription after a lost connection
    EXPECT_EQ(subscribed.all(), std::vector<bool>{true});
    item->handleResponse(RequestState(0, "refused"), answer);  // lost, and marked subscribed again
    EXPECT_EQ(subscribed.all(), (std::vector<bool>{true, false, false, true}));  // both flags fell
}

TEST_F(JobItemTest, WithoutAListenerTheBackendHearsUnknownError) {
    subscribe(*item);
    notifier->setListener(std::weak_ptr<core::IBackendJobListener>());
    push(*item, jobs, "[" + job("j1", "nav", "") + "]");
    EXPECT_TRUE(log.contains(LogLevel::Error, "(Job List/nav) Job received, but no listener notified!"));
    EXPECT_EQ(acknowledgements(), std::vector<std::string>{R"(j1 {"jobAcknowledgeState":"unknownError"})"});
}

}  // namespace
}  // namespace qel::test
