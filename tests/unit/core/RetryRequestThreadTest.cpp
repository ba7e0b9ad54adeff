#include "core/ConditionRetryRequest.h"
#include "core/RetryRequestThread.h"

#include <gtest/gtest.h>

#include <condition_variable>
#include <mutex>
#include <thread>

namespace {

using namespace qel::onlineservices::framework::core;
using namespace std::chrono_literals;

// Records the attempts of a retried request and the outcome its condition callback hears.
struct Probe : IUpdateConditionCallback {
    void notify(bool success) override { record([&] { outcomes.push_back(success); }); }
    template <typename Change>
    void record(Change change) {
        std::lock_guard<std::mutex> guard(mutex);
        change();
        changed.notify_all();
    }
    template <typename Predicate>
    bool waitUntil(Predicate predicate) {
        std::unique_lock<std::mutex> lock(mutex);
        return changed.wait_for(lock, 10s, predicate);
    }
    std::mutex mutex;
    std::condition_variable changed;
    std::vector<unsigned int> attempts;
    std::vector<bool> outcomes;
    bool holdAttempts = false;
};

std::unique_ptr<IRetryRequest> requestOf(std::shared_ptr<Probe> const& probe, unsigned int succeedAt = 0) {
    auto attempt = [probe, succeedAt](unsigned int number) {
        probe->record([&] { probe->attempts.push_back(number); });
        probe->waitUntil([&] { return !probe->holdAttempts; });
        return number == succeedAt;
    };
    return std::make_unique<ConditionRetryRequest>(attempt, probe);
}

TEST(RetryRequestThread, AttemptsFollowTheLimitAndTheOutcomeIsReportedOnce) {
    struct Case {
        unsigned int succeedAt, limit, attempts;
        bool outcome;
    };
    for (auto const& [succeedAt, limit, attempts, outcome] :
         std::vector<Case>{{1, 0, 1, true}, {4, 0, 4, true}, {0, 1, 2, false}, {0, 2, 3, false}}) {
        auto probe = std::make_shared<Probe>();
        RetryRequestThread thread(requestOf(probe, succeedAt), 2, limit);
        thread.join();
        EXPECT_EQ(probe->attempts.size(), attempts);
        EXPECT_EQ(probe->attempts.back(), attempts);
        EXPECT_EQ(probe->outcomes, std::vector<bool>{outcome});
    }
}

TEST(RetryRequestThread, StopOrDestructionDuringTheWaitEndsPromptlyWithoutOutcome) {
    auto probe = std::make_shared<Probe>();
    for (bool const destroyOnly : {false, true}) {
        RetryRequestThread thread(requestOf(probe), 600000, 0);
        while (!thread.isWaiting()) {
            std::this_thread::yield();
        }
        if (!destroyOnly) {
            thread.requestStop();
            thread.join();
        }
    }
    EXPECT_EQ(probe->attempts, (std::vector<unsigned int>{1, 1}));
    EXPECT_TRUE(probe->outcomes.empty());
}

TEST(RetryRequestThread, StopDuringAFailingAttemptReportsFailureAndAnEmptyAttemptSucceeds) {
    auto probe = std::make_shared<Probe>();
    probe->holdAttempts = true;
    {
        RetryRequestThread thread(requestOf(probe), 600000, 0);
        ASSERT_TRUE(probe->waitUntil([&] { return !probe->attempts.empty(); }));
        thread.requestStop();
        probe->record([&] { probe->holdAttempts = false; });
    }
    RetryRequestThread empty(std::make_unique<ConditionRetryRequest>(nullptr, probe), 600000, 0);
    empty.join();
    EXPECT_EQ(probe->outcomes, (std::vector<bool>{false, true}));
    EXPECT_EQ(probe->attempts.size(), 1u);
}

}  // namespace
