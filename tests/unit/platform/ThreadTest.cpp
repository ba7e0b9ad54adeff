#include "async/AsyncQueueThread.h"
#include "common/CondVar.h"
#include "common/Semaphore.h"
#include "common/Thread.h"

#include <gtest/gtest.h>

#include <atomic>
#include <future>
#include <memory>
#include <numeric>
#include <thread>
#include <vector>

namespace {

using qel::common::system::CondVar;
using qel::common::system::Mutex;
using qel::common::system::MutexGuard;
using qel::common::system::Semaphore;
using qel::common::system::Thread;
using qel::onlineservices::common::utils::AsyncQueueThread;

// Runs until asked to stop; records what the thread saw of itself.
class StoppableThread : public Thread {
public:
    StoppableThread() : Thread("StoppableThread") {}
    ~StoppableThread() override {
        requestStop();
        join();
    }
    void requestStop() override {
        Thread::requestStop();
        m_wake.up();
    }
    void preExecute() override { m_order.push_back("pre"); }
    void run() override {
        m_order.push_back("run");
        m_name = qel::common::system::currentThreadName();
        m_started.set_value();
        while (!isStopRequested()) {
            m_wake.down();
        }
    }
    void postExecute() override { m_order.push_back("post"); }

    std::promise<void> m_started;
    std::vector<std::string> m_order;  // written by the thread only; read after join
    std::string m_name;
    Semaphore m_wake;
};

TEST(Thread, RunsNamedBodyBetweenPreAndPostAndReportsRunning) {
    StoppableThread thread;
    EXPECT_FALSE(thread.isRunning());
    ASSERT_TRUE(thread.start());
    EXPECT_FALSE(thread.start()) << "a thread starts once";
    thread.m_started.get_future().wait();
    EXPECT_TRUE(thread.isRunning());

    thread.requestStop();
    thread.join();
    EXPECT_FALSE(thread.isRunning());
    EXPECT_EQ(thread.m_order, (std::vector<std::string>{"pre", "run", "post"}));
    EXPECT_EQ(thread.m_name, "StoppableThread");
}

TEST(Semaphore, CountsTimesOutAndWakesATimedDownFromAnotherThread) {
    Semaphore semaphore(1);
    EXPECT_TRUE(semaphore.down(0));
    EXPECT_FALSE(semaphore.down(5));
    semaphore.up();
    semaphore.up();
    EXPECT_TRUE(semaphore.down(0));
    EXPECT_TRUE(semaphore.down(0));
    EXPECT_FALSE(semaphore.down(0));
    std::thread upper([&] { semaphore.up(); });
    EXPECT_TRUE(semaphore.down(60'000));
    upper.join();
}

TEST(CondVar, WaitsWithReentrantMutexUntilPredicateOrTimeout) {
    Mutex mutex;
    CondVar condition;
    bool ready = false;
    {
        MutexGuard guard(mutex);
        EXPECT_FALSE(condition.wait(mutex, 5, [&] { return ready; }));
    }
    std::thread signaller([&] {
        MutexGuard guard(mutex);
        MutexGuard again(mutex);  // re-entrant
        ready = true;
        condition.broadcast();
    });
    {
        MutexGuard guard(mutex);
        EXPECT_TRUE(condition.wait(mutex, 60'000, [&] { return ready; }));
    }
    signaller.join();
}

TEST(AsyncQueueThread, RunsJobsInOrderOnOneNamedThread) {
    AsyncQueueThread queue("ItemQueue");
    std::vector<int> order;
    std::vector<std::string> names;
    std::promise<void> done;
    for (int i = 0; i < 50; ++i) {
        ASSERT_TRUE(queue.push([&, i] {
            order.push_back(i);
            names.push_back(qel::common::system::currentThreadName());
            EXPECT_TRUE(queue.isQueueThread());
        }));
    }
    queue.push([&] { done.set_value(); });
    done.get_future().wait();
    queue.stop();

    std::vector<int> expected(50);
    std::iota(expected.begin(), expected.end(), 0);
    EXPECT_EQ(order, expected);
    EXPECT_EQ(names.front(), "ItemQueue");
    EXPECT_FALSE(queue.isQueueThread());
}

TEST(AsyncQueueThread, StopDropsPendingJobsAndRefusesNewOnes) {
    AsyncQueueThread queue("q");
    std::promise<void> entered;
    std::promise<void> release;
    auto releaseFuture = release.get_future().share();
    std::atomic<int> ran{0};
    queue.push([&] {
        entered.set_value();
        releaseFuture.wait();
        ++ran;
    });
    auto dropped = std::make_shared<int>(0);
    queue.push([&ran, dropped] { ++ran; });
    entered.get_future().wait();

    std::thread stopper([&] { queue.stop(); });
    // The pending job's captures are released by stop even before the running job ends.
    while (dropped.use_count() > 1) {
        std::this_thread::yield();
    }
    release.set_value();
    stopper.join();

    EXPECT_EQ(ran.load(), 1);
    EXPECT_FALSE(queue.push([] {}));
    EXPECT_FALSE(AsyncQueueThread().push(nullptr));
}

TEST(AsyncQueueThread, OwnerDroppedInsideAJobEndsCleanly) {
    auto queue = std::make_shared<AsyncQueueThread>("self");
    std::promise<void> done;
    std::weak_ptr<AsyncQueueThread> watch = queue;
    queue->push([owner = queue, &done]() mutable {
        owner.reset();  // not the last reference yet
        done.set_value();
    });
    // Hand the last reference to the queue's own thread.
    std::promise<void> last;
    queue->push([q = std::move(queue), &last]() mutable {
        q.reset();
        last.set_value();
    });
    done.get_future().wait();
    last.get_future().wait();
    EXPECT_TRUE(watch.expired());
}

}  // namespace
