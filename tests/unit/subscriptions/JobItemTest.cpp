#include "SubscriptionTestRig.h"

#include "subscriptions/JobItem.h"

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
    std::string const event = "[" + job("j1", "nav", "005F/1") + "," + job("j2", "nav", "abc") + "," +
                              job("j3", "nav", "005F/3", R"(,"jobAcknowledgeState":"success")") + "," +
                              job("j4", "radio", "005F/4") + "," + job("j5", "nav", "x/005F/5") + "]";
    push(*item, jobs, event);
    push(*item, jobs, event);  // repeated before the backend took the acknowledgements
    EXPECT_EQ(listener->whats(), (std::vector<std::string>{"job j1 nav", "job j5 nav"}));
    EXPECT_TRUE(listener->allOn("job:nav"));
    EXPECT_EQ(acknowledgements(), (std::vector<std::string>{R"(j1 {"jobAcknowledgeState":"invalidPayload"})",
                                                            R"(j5 {"jobAcknowledgeState":"invalidPayload"})"}));
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
