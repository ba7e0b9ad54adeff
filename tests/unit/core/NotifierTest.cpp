#include "core/Notifier.h"

#include "support/LogCapture.h"
#include "support/ManualClock.h"

#include <gtest/gtest.h>

#include <atomic>
#include <chrono>
#include <future>
#include <stdexcept>
#include <thread>

namespace {

using namespace qel::onlineservices::framework;
using namespace qel::onlineservices::framework::core;
using Lines = std::vector<std::string>;
using qel::common::logging::LogLevel;

struct Recorder : IServiceDataListener, IRunStateListener, IKVSListener, IBackendJobListener {
    void onTokenChanged(std::string const& id, std::string const& token) override { calls.push_back(id + " " + token); }
    void onRunStateChanged(RunState state) override { calls.push_back(std::to_string(static_cast<int>(state))); }
    void onKVSItemChanged(std::string const& key, std::string const& value) override {
        value == "bad" ? throw std::runtime_error("listener broke") : calls.push_back(key + "=" + value);
    }
    BackendJobAcknowledgeCode onBackendJobReceived(std::shared_ptr<dataitems::JobObject> const&) override {
        return BackendJobAcknowledgeCode::INVALID_PAYLOAD;
    }
    Lines calls;
};

TEST(Notifier, ListenersHearInRegistrationOrderAndExpiredOnesAreDroppedWithTheLineOfTheirList) {
    qel::test::LogCapture log;
    auto config = std::make_shared<FrameworkConfig>();
    config->loggerName = "framework_nav";
    Notifier notifier(config);
    auto gone = std::make_shared<Recorder>(), stays = std::make_shared<Recorder>();
    for (auto const& listener : {gone, gone, stays, stays}) {  // added twice: called twice
        notifier.addListener(std::weak_ptr<IServiceDataListener>(listener));
    }
    notifier.addListener(std::weak_ptr<IRunStateListener>(gone));
    notifier.addListener(std::weak_ptr<IRunStateListener>(stays));
    notifier.addListener(std::weak_ptr<IKVSListener>(gone));
    notifier.addListener(std::weak_ptr<IKVSListener>(stays));
    notifier.setListener(std::weak_ptr<IBackendJobListener>(stays));
    gone.reset();

    auto token = std::make_shared<dataitems::AccessTokenObject>();
    token->token = "abc";
    notifier.notifyAccessToken("nav", token);
    notifier.notifyRunState(RunState::DISCONNECTED);
    notifier.notifyKVSItem("color", "bad");
    notifier.notifyKVSItem("color", "red");
    EXPECT_EQ(stays->calls, (Lines{"nav abc", "nav abc", "7", "color=red"}));
    EXPECT_EQ(log.messages(), (Lines{"notifyAccessToken", "Access Token listener expired, removing!",
                                     "Access Token listener expired, removing!", "notifyRunState ",
                                     "Runstate listener expired, removing!", "KVS listener expired, removing!",
                                     "Listener failed: listener broke"}));
    EXPECT_EQ(log.entries().front().context, "framework_nav.notifier");

    auto ack = BackendJobAcknowledgeCode::SUCCESS;
    EXPECT_TRUE(notifier.notifyBackendJob(nullptr, ack));
    EXPECT_EQ(ack, BackendJobAcknowledgeCode::INVALID_PAYLOAD);
    stays.reset();
    ack = BackendJobAcknowledgeCode::SUCCESS;
    EXPECT_FALSE(notifier.notifyBackendJob(nullptr, ack));
    EXPECT_EQ(ack, BackendJobAcknowledgeCode::SUCCESS);
}

// Two threads notify at once, of different lists; the listener notes whenever it is entered
// while another call is still inside, and what it heard, per sender.
TEST(Notifier, CallsFromTwoNotifyingThreadsNeverOverlapAndKeepEachSendersOrder) {
    struct Overlaps : IServiceDataListener, IKVSListener, IRunStateListener {
        void enter(std::string const& what) {
            if (inside.fetch_add(1) != 0) {
                ++overlaps;
            }
            std::this_thread::yield();  // widen the window a second caller would need
            heard.push_back(what);      // unguarded: calls must not overlap
            inside.fetch_sub(1);
        }
        void onBaseURLChanged(std::string const& id, std::string const& url) override { enter(id + url); }
        void onKVSItemChanged(std::string const& key, std::string const& value) override { enter(key + value); }
        void onRunStateChanged(RunState) override { enter("state"); }
        std::atomic<int> inside{0};
        std::atomic<int> overlaps{0};
        std::vector<std::string> heard;
    };
    Notifier notifier(std::make_shared<FrameworkConfig>());
    auto listener = std::make_shared<Overlaps>();
    notifier.addListener(std::weak_ptr<IServiceDataListener>(listener));
    notifier.addListener(std::weak_ptr<IKVSListener>(listener));
    notifier.addListener(std::weak_ptr<IRunStateListener>(listener));

    constexpr int ROUNDS = 2000;
    std::thread kvs([&] {
        for (int i = 0; i < ROUNDS; ++i) {
            notifier.notifyKVSItem("k", std::to_string(i));
        }
    });
    std::thread urls([&] {
        for (int i = 0; i < ROUNDS; ++i) {
            notifier.notifyBaseURL("u", std::to_string(i));
            notifier.notifyRunState(RunState::RESUMED);
        }
    });
    kvs.join();
    urls.join();

    EXPECT_EQ(listener->overlaps.load(), 0);
    ASSERT_EQ(listener->heard.size(), 3u * ROUNDS);
    int nextKvs = 0, nextUrl = 0;
    for (auto const& what : listener->heard) {
        if (what[0] == 'k') {
            EXPECT_EQ(what, "k" + std::to_string(nextKvs++));
        } else if (what[0] == 'u') {
            EXPECT_EQ(what, "u" + std::to_string(nextUrl++));
        }
    }
    EXPECT_EQ(nextKvs, ROUNDS);
    EXPECT_EQ(nextUrl, ROUNDS);
}

// A notification made from inside a listener is heard after that listener returned, not nested
// in it; a backend job asked from inside a listener is refused instead of waiting for ever.
TEST(Notifier, NotificationFromInsideAListenerIsDeliveredAfterItAndAJobAskedThereIsRefused) {
    qel::test::LogCapture log;
    Notifier notifier(std::make_shared<FrameworkConfig>());
    struct Nesting : IServiceDataListener, IRunStateListener, IBackendJobListener {
        void onBaseURLChanged(std::string const&, std::string const& url) override {
            heard.push_back("url " + url + " in");
            notifier->notifyRunState(RunState::CREATED);
            auto ack = BackendJobAcknowledgeCode::INVALID_PAYLOAD;
            jobAnswered = notifier->notifyBackendJob(nullptr, ack);
            heard.push_back("url " + url + " out");
        }
        void onRunStateChanged(RunState state) override { heard.push_back(std::to_string(static_cast<int>(state))); }
        BackendJobAcknowledgeCode onBackendJobReceived(std::shared_ptr<dataitems::JobObject> const&) override {
            heard.push_back("job");
            return BackendJobAcknowledgeCode::SUCCESS;
        }
        Notifier* notifier = nullptr;
        bool jobAnswered = true;
        Lines heard;
    };
    auto listener = std::make_shared<Nesting>();
    listener->notifier = &notifier;
    notifier.addListener(std::weak_ptr<IServiceDataListener>(listener));
    notifier.addListener(std::weak_ptr<IRunStateListener>(listener));
    notifier.setListener(std::weak_ptr<IBackendJobListener>(listener));

    notifier.notifyBaseURL("nav", "a");
    EXPECT_EQ(listener->heard, (Lines{"url a in", "url a out", "1"}));
    EXPECT_FALSE(listener->jobAnswered);
    EXPECT_TRUE(log.contains(LogLevel::Error, "notifyBackendJob from inside a listener refused"));

    // Outside any listener the job is answered as usual.
    auto ack = BackendJobAcknowledgeCode::INVALID_PAYLOAD;
    EXPECT_TRUE(notifier.notifyBackendJob(nullptr, ack));
    EXPECT_EQ(ack, BackendJobAcknowledgeCode::SUCCESS);
}

// A job asked while another thread delivers waits for its turn and gets the answer, and a
// listener's exception still reaches the thread that asked.
TEST(Notifier, JobAskedWhileAnotherThreadDeliversIsAnsweredToTheAskingThread) {
    Notifier notifier(std::make_shared<FrameworkConfig>());
    struct Jobs : IServiceDataListener, IBackendJobListener {
        void onBaseURLChanged(std::string const&, std::string const&) override {
            asking = std::async(std::launch::async, [this] {
                auto ack = BackendJobAcknowledgeCode::UNKNOWN_ERROR;
                bool const answered = notifier->notifyBackendJob(nullptr, ack);
                return answered && ack == BackendJobAcknowledgeCode::INVALID_PAYLOAD;
            });
            heard.push_back("url");
        }
        BackendJobAcknowledgeCode onBackendJobReceived(std::shared_ptr<dataitems::JobObject> const& job) override {
            if (job) {
                throw std::runtime_error("job broke");
            }
            heard.push_back("job");
            return BackendJobAcknowledgeCode::INVALID_PAYLOAD;
        }
        Notifier* notifier = nullptr;
        std::future<bool> asking;
        Lines heard;
    };
    auto listener = std::make_shared<Jobs>();
    listener->notifier = &notifier;
    notifier.addListener(std::weak_ptr<IServiceDataListener>(listener));
    notifier.setListener(std::weak_ptr<IBackendJobListener>(listener));

    notifier.notifyBaseURL("nav", "a");
    ASSERT_EQ(listener->asking.wait_for(std::chrono::seconds(30)), std::future_status::ready);
    EXPECT_TRUE(listener->asking.get());
    EXPECT_EQ(listener->heard, (Lines{"url", "job"}));

    auto ack = BackendJobAcknowledgeCode::UNKNOWN_ERROR;
    EXPECT_THROW(notifier.notifyBackendJob(std::make_shared<dataitems::JobObject>(), ack), std::runtime_error);
}

// Shutdown: after `close` only run states get in, and events queued behind a listener are
// delivered until the bound has passed on the framework clock, then dropped.
TEST(Notifier, AClosedNotifierTakesOnlyRunStatesAndDropsQueuedEventsOnceItsBoundPassed) {
    qel::test::ManualClock clock;
    qel::test::LogCapture log;
    struct Closing : IKVSListener {
        void onKVSItemChanged(std::string const& key, std::string const& value) override {
            calls.push_back(key + "=" + value);
            if (value != "first") {
                return;
            }
            notifier->notifyKVSItem("k", "queued");  // behind this call
            notifier->close(100);
            notifier->notifyKVSItem("k", "refused");
            notifier->notifyRunState(RunState::DESTROYED);
            clock->advance(advanceMs);
        }
        Notifier* notifier = nullptr;
        qel::test::ManualClock* clock = nullptr;
        std::int64_t advanceMs = 0;
        Lines calls;
    };
    auto const run = [&](std::int64_t advanceMs) {
        Notifier notifier(std::make_shared<FrameworkConfig>());
        auto const listener = std::make_shared<Closing>();
        listener->notifier = &notifier;
        listener->clock = &clock;
        listener->advanceMs = advanceMs;
        auto const states = std::make_shared<Recorder>();
        notifier.addListener(std::weak_ptr<IKVSListener>(listener));
        notifier.addListener(std::weak_ptr<IRunStateListener>(states));
        notifier.notifyKVSItem("k", "first");
        notifier.notifyKVSItem("k", "after");
        BackendJobAcknowledgeCode ack = BackendJobAcknowledgeCode::UNKNOWN_ERROR;
        EXPECT_FALSE(notifier.notifyBackendJob(nullptr, ack));
        EXPECT_EQ(states->calls, Lines{"6"});
        return listener->calls;
    };
    EXPECT_EQ(run(99), (Lines{"k=first", "k=queued"}));
    EXPECT_EQ(log.count(LogLevel::Warning, "Shutdown: 1 queued notifications dropped"), 0u);
    EXPECT_EQ(run(100), Lines{"k=first"});
    EXPECT_EQ(log.count(LogLevel::Warning, "Shutdown: 1 queued notifications dropped"), 1u);
}

}  // namespace
