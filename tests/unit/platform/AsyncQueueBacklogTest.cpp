// The queue's backlog bound: a blocked queue thread, a burst of pushes, then what ran.
#include "async/AsyncQueueThread.h"
#include "common/Semaphore.h"

#include <gtest/gtest.h>

#include <memory>
#include <mutex>
#include <string>
#include <vector>

namespace {

using qel::common::system::Semaphore;
using qel::onlineservices::common::utils::AsyncQueueThread;

constexpr std::uint32_t LIMIT_MS = 5000;
constexpr std::uint32_t NO_KIND = 0;

class AsyncQueueBacklogTest : public ::testing::Test {
protected:
    // Occupies the queue thread until `release`, so that pushes pile up behind it.
    void block() {
        ASSERT_TRUE(queue.push([this] {
            m_entered.up();
            m_release.down(LIMIT_MS);
        }));
        ASSERT_TRUE(m_entered.down(LIMIT_MS));
    }
    void release() { m_release.up(); }
    // Pushes a job recording `name`; returns the pending count it reported, if any.
    std::size_t push(std::string name, std::uint32_t kind) {
        auto const pushed = queue.push(
            [this, name] {
                std::lock_guard<std::mutex> lock(m_mutex);
                m_ran.push_back(name);
            },
            kind);
        EXPECT_TRUE(pushed.queued);
        return pushed.crossedHighWater;
    }
    // Releases the thread and returns what ran, once everything queued so far has.
    std::vector<std::string> releaseAndCollect() {
        release();
        // Shared: the queue thread may still be inside `up` when the wait returns.
        auto const done = std::make_shared<Semaphore>(0);
        EXPECT_TRUE(queue.push([done] { done->up(); }));
        EXPECT_TRUE(done->down(LIMIT_MS));
        std::lock_guard<std::mutex> lock(m_mutex);
        return std::exchange(m_ran, {});
    }

    AsyncQueueThread queue{"backlog"};

private:
    Semaphore m_entered{0};
    Semaphore m_release{0};
    std::mutex m_mutex;
    std::vector<std::string> m_ran;
};

TEST_F(AsyncQueueBacklogTest, AtTheMarkANewerStateReplacesThePendingOneOfItsKindWithoutReordering) {
    queue.setHighWaterMark(4);
    block();
    for (auto const& [name, kind] : std::vector<std::pair<std::string, std::uint32_t>>{
             {"a1", 1}, {"b1", 2}, {"a2", 1}, {"b2", 2}}) {
        EXPECT_EQ(push(name, kind), 0u) << name;
    }
    EXPECT_EQ(push("a3", 1), 4u);  // the first push at the mark reports the backlog
    EXPECT_EQ(push("job", NO_KIND), 0u);
    EXPECT_EQ(push("b3", 2), 0u);
    EXPECT_EQ(push("a4", 1), 0u);
    EXPECT_EQ(releaseAndCollect(), (std::vector<std::string>{"a1", "b1", "job", "b3", "a4"}));
    EXPECT_EQ(queue.overtakenCount(), 3u);
}

TEST_F(AsyncQueueBacklogTest, KindlessJobsAreNeverDroppedAndEachEpisodeIsReportedOnce) {
    queue.setHighWaterMark(2);
    block();
    std::vector<std::size_t> reports;
    for (int i = 0; i < 6; ++i) {
        reports.push_back(push("job" + std::to_string(i), NO_KIND));
    }
    EXPECT_EQ(reports, (std::vector<std::size_t>{0, 0, 2, 0, 0, 0}));
    EXPECT_EQ(releaseAndCollect().size(), 6u);
    EXPECT_EQ(queue.overtakenCount(), 0u);

    // Drained: the next backlog is a new episode.
    block();
    EXPECT_EQ(push("s1", 7), 0u);
    EXPECT_EQ(push("s2", 7), 0u);
    EXPECT_EQ(push("s3", 7), 2u);
    EXPECT_EQ(releaseAndCollect(), (std::vector<std::string>{"s1", "s3"}));
    EXPECT_EQ(queue.overtakenCount(), 1u);
}

TEST_F(AsyncQueueBacklogTest, AKindWhoseJobsAllRanHasNothingToOvertakeInTheNextBacklog) {
    queue.setHighWaterMark(2);
    block();
    EXPECT_EQ(push("a1", 1), 0u);
    EXPECT_EQ(releaseAndCollect(), std::vector<std::string>{"a1"});

    // The entries that ran are reused for these; none of them may count as a pending "a".
    block();
    EXPECT_EQ(push("b1", 2), 0u);
    EXPECT_EQ(push("b2", 2), 0u);
    EXPECT_EQ(push("a2", 1), 2u);
    EXPECT_EQ(push("a3", 1), 0u);
    EXPECT_EQ(releaseAndCollect(), (std::vector<std::string>{"b1", "b2", "a3"}));
    EXPECT_EQ(queue.overtakenCount(), 1u);
}

TEST_F(AsyncQueueBacklogTest, BelowTheMarkEveryStateRunsAndAStoppedQueueRefuses) {
    block();
    for (int i = 0; i < 10; ++i) {
        EXPECT_EQ(push("s" + std::to_string(i), 1), 0u);
    }
    EXPECT_EQ(releaseAndCollect().size(), 10u);  // the default mark is far above ten
    queue.stop();
    EXPECT_FALSE(queue.push([] {}, 1).queued);
    EXPECT_FALSE(queue.push([] {}));
}

}  // namespace
