#include "rsi/RSIRequest.h"
#include "rsi/RSISubscription.h"
#include "support/InMemoryRsiClient.h"
#include "support/LogCapture.h"
#include "support/ManualClock.h"
#include "support/RsiRecorders.h"

#include <gtest/gtest.h>

namespace qel::test {
namespace {

using common::logging::Logger;
using common::logging::LogLevel;
using onlineservices::framework::core::RSIRequest;
using onlineservices::framework::core::RSISubscription;
using namespace rsi::client;

constexpr char DEFAULT_NOTE[] = "Value set to RequestStateSucceeded by default from RSIClientWrapper";

class RsiJobTest : public ::testing::Test {
protected:
    static std::shared_ptr<Request> request(std::uint32_t type = RequestTypeGetElement) {
        return makeRequest(type, 3, "onlinekvs", "items", "abc");
    }
    std::shared_ptr<RSIRequest> requestJob() {
        return std::make_shared<RSIRequest>(request(), rsi.get(), handler, logger);
    }
    std::shared_ptr<RSISubscription> subscriptionJob(std::uint32_t wrapperId = 7) {
        return std::make_shared<RSISubscription>(request(RequestTypeSubscribeElement), rsi.get(), handler, handler,
                                                 wrapperId, logger);
    }
    // Moves the clock to exactly `delayMs` after the last failure, then one millisecond further,
    // checking the job at both instants; returns the number of client calls after each.
    std::pair<std::size_t, std::size_t> checkAroundDelay(onlineservices::framework::core::IRSIJob& job,
                                                         std::int64_t delayMs, std::size_t (*calls)(InMemoryRsiClient&)) {
        clock.advance(delayMs);
        EXPECT_TRUE(job.canBeRetriedNow());
        std::size_t const atDelay = calls(*rsi);
        clock.advance(1);
        EXPECT_TRUE(job.canBeRetriedNow());
        return {atDelay, calls(*rsi)};
    }
    static std::size_t requestCalls(InMemoryRsiClient& client) { return client.requests().size(); }
    static std::size_t subscribeCalls(InMemoryRsiClient& client) { return client.subscriptions().size(); }

    LogCapture log;
    ManualClock clock;
    InMemoryRsiClient::Installation rsi;
    Logger logger{"test.RSIClientWrapper"};
    std::shared_ptr<RecordingHandler> handler = std::make_shared<RecordingHandler>();
};

TEST_F(RsiJobTest, FailingRequestIsRetriedOnTheScheduleNeverEarlyAndReportsOnlyItsSuccess) {
    rsi->setDefaultReply({500});
    auto const job = requestJob();
    job->process();
    ASSERT_EQ(rsi->requests().size(), 1u);

    clock.advance(4000);
    EXPECT_TRUE(job->canBeRetriedNow());
    EXPECT_TRUE(log.contains(LogLevel::Trace, "Time reaming until the next retry: 6"));

    std::size_t tries = 1;
    std::int64_t waited = 4000;
    for (std::int64_t const delay : {10000, 10000, 10000, 30000, 30000, 30000, 90000, 90000}) {
        auto const [atDelay, after] = checkAroundDelay(*job, delay - waited, requestCalls);
        waited = 0;
        EXPECT_EQ(atDelay, tries) << "retried at exactly " << delay << " ms";
        EXPECT_EQ(after, ++tries) << "not retried after " << delay << " ms";
    }
    EXPECT_EQ(handler->responses.size(), 0u);
    EXPECT_EQ(log.count(LogLevel::Warning, "Retrying in 10s"), 3u);
    EXPECT_EQ(log.count(LogLevel::Warning, "Retrying in 30s"), 3u);
    EXPECT_EQ(log.count(LogLevel::Warning, "Retrying in 90s"), 3u);
    EXPECT_EQ(log.count(LogLevel::Error, "RSI request failed with HTTP 500"), 9u);
    EXPECT_TRUE(log.contains(LogLevel::Info, "RSI request try number 9"));

    rsi->setDefaultReply({201});
    auto const [atDelay, after] = checkAroundDelay(*job, 90000, requestCalls);
    EXPECT_EQ(after, atDelay + 1);
    EXPECT_TRUE(job->isSent());
    auto const responses = handler->responses.all();
    ASSERT_EQ(responses.size(), 1u);
    EXPECT_EQ(responses[0].status, 201);
    EXPECT_EQ(responses[0].stateValue, RequestStateSucceeded);
    EXPECT_EQ(responses[0].stateNote, DEFAULT_NOTE);
    EXPECT_EQ(responses[0].id, 3u);
}

TEST_F(RsiJobTest, CancelledOrClientlessJobsReportToTheirHandlerWithoutCallingTheClient) {
    auto const cancelledRequest = requestJob();
    cancelledRequest->requestCancel();
    cancelledRequest->process();
    auto cancelledSubscription = subscriptionJob();
    cancelledSubscription->requestCancel();
    cancelledSubscription->process();
    cancelledSubscription.reset();
    EXPECT_EQ(rsi->unsubscribed(), std::vector<std::uint32_t>{0}) << "never made, still released there, as id 0";
    auto const orphan = std::make_shared<RSIRequest>(request(), std::weak_ptr<ISharedRsiClient>(), handler, logger);
    orphan->process();

    EXPECT_TRUE(rsi->requests().empty());
    EXPECT_TRUE(rsi->subscriptions().empty());
    auto const responses = handler->responses.all();
    ASSERT_EQ(responses.size(), 3u);
    EXPECT_EQ(responses[0].stateValue, RequestStateSucceeded);
    EXPECT_EQ(responses[0].stateNote, DEFAULT_NOTE);
    EXPECT_EQ(responses[0].status, 0);
    EXPECT_EQ(responses[0].body, "null");
    EXPECT_EQ(responses[1].stateValue, 0);
    EXPECT_EQ(responses[1].stateNote, "");
    EXPECT_EQ(responses[2].status, 0);
    EXPECT_TRUE(log.contains(LogLevel::Warning, "Cancel requested - abort request retry"));
    EXPECT_TRUE(log.contains(LogLevel::Warning, "Cancel requested - abort subscription retry"));
    EXPECT_TRUE(log.contains(LogLevel::Warning, "RSI client expired"));
}

TEST_F(RsiJobTest, SubscriptionRetriesUntilMadeAndRestartsTheScheduleWhenItsConnectionCloses) {
    rsi->replyTo({}, Reply().withState(RequestStateFailed, "refused"), 3);
    auto const job = subscriptionJob();
    job->process();
    EXPECT_TRUE(log.contains(LogLevel::Error, "RSI subscription request failed."));
    for (std::int64_t const delay : {10000, 10000, 10000}) {
        checkAroundDelay(*job, delay, subscribeCalls);
    }
    ASSERT_EQ(rsi->subscriptions().size(), 4u);
    EXPECT_EQ(job->subIdClient(), 1001u);
    EXPECT_TRUE(log.contains(LogLevel::Info, "RSI subscription request try number 4"));
    ASSERT_EQ(handler->responses.size(), 1u);
    EXPECT_EQ(handler->responses.all()[0].stateValue, RequestStateSucceeded);

    // Three delays were used up; a lost subscription must still start again at 10 s.
    log.clear();
    EXPECT_EQ(rsi->closeConnection(), 1u);
    EXPECT_TRUE(log.contains(LogLevel::Error, "Subscription websocket closed"));
    EXPECT_TRUE(log.contains(LogLevel::Warning, "Retrying in 10s"));
    auto const [atDelay, after] = checkAroundDelay(*job, 10000, subscribeCalls);
    EXPECT_EQ(atDelay, 4u);
    EXPECT_EQ(after, 5u);
    EXPECT_EQ(job->subIdClient(), 1002u);
    EXPECT_TRUE(rsi->pushData(1002, "[]"));
    EXPECT_EQ(handler->events.size(), 1u);
}

TEST_F(RsiJobTest, SubscriptionUnsubscribesAtTheClientExactlyOnceWhenItsLastReferenceGoes) {
    auto job = subscriptionJob(4);
    job->process();
    auto second = job;
    job.reset();
    EXPECT_TRUE(rsi->unsubscribed().empty());
    second.reset();
    EXPECT_EQ(rsi->unsubscribed(), std::vector<std::uint32_t>{1001});
    EXPECT_FALSE(rsi->pushData(1001, "[]"));

    // With the client gone there is nobody to release it at.
    auto orphan = std::make_shared<RSISubscription>(request(RequestTypeSubscribeElement),
                                                    std::weak_ptr<ISharedRsiClient>(), handler, handler, 6, logger);
    orphan.reset();
    EXPECT_EQ(rsi->unsubscribed().size(), 1u);
    EXPECT_TRUE(log.contains(LogLevel::Warning, "RSI client expired"));
}

TEST_F(RsiJobTest, OnlyWellFormedDataEventsReachTheEventHandler) {
    auto const job = subscriptionJob();
    job->process();
    std::uint32_t const id = job->subIdClient();

    EXPECT_TRUE(rsi->pushEvent(id, R"({"type":"data","data":[1]})", RequestStateFailed));
    EXPECT_TRUE(rsi->pushEvent(id, R"({"data":[1]})"));
    EXPECT_TRUE(rsi->pushEvent(id, R"({"type":"data"})"));
    EXPECT_TRUE(rsi->pushEvent(id, R"({"type":"bogus","data":[1]})"));
    EXPECT_EQ(handler->events.size(), 0u);
    EXPECT_FALSE(job->isRetryActive());
    EXPECT_TRUE(log.contains(LogLevel::Error,
                             "Invalid RSI Event received (RequestState != RequestStateSucceeded). Event ignored"));
    EXPECT_TRUE(log.contains(LogLevel::Error, "Invalid RSI Event received (property 'type' missing). Event ignored"));
    EXPECT_TRUE(log.contains(LogLevel::Error, "Invalid RSI Event received (property 'data' missing). Event ignored"));
    EXPECT_TRUE(log.contains(LogLevel::Error, "Invalid RSI Event received (unknown type: 'bogus'). Event ignored"));

    log.clear();
    EXPECT_TRUE(rsi->pushData(id, R"({"k":"v"})"));
    auto const events = handler->events.all();
    ASSERT_EQ(events.size(), 1u);
    EXPECT_EQ(events[0].body, R"({"data":{"k":"v"},"type":"data"})");
    EXPECT_EQ(events[0].id, 3u);
    std::vector<std::string> const printed{
        "+------- RSI Event ---------------------------------------",
        "| RequestState value: 1",
        "| RequestState note: ",
        "| Event status: 200",
        R"(| Event content: {"data":{"k":"v"},"type":"data"})",
        "| Event etag: ",
        "| Event location: ",
        "| Event binary data: 0",
        "+--------------------------------------------------------"};
    EXPECT_EQ(log.messages(LogLevel::Trace), printed);

    handler.reset();
    EXPECT_TRUE(rsi->pushData(id, "[]"));
    EXPECT_TRUE(log.contains(LogLevel::Warning, "Event not notified due to an outdated event handler"));
}

}  // namespace
}  // namespace qel::test
