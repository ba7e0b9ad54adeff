#include "core/Notifier.h"

#include "support/LogCapture.h"

#include <gtest/gtest.h>

#include <chrono>
#include <future>
#include <stdexcept>

namespace {

using namespace qel::onlineservices::framework;
using namespace qel::onlineservices::framework::core;
using Lines = std::vector<std::string>;

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

// A listener that waits for another thread's notification must not block that thread: the
// client's state machine does exactly this across the condition manager's listener lock.
TEST(Notifier, ListenerWaitingForAnotherThreadsNotificationDoesNotDeadlock) {
    Notifier notifier(std::make_shared<FrameworkConfig>());
    auto runStates = std::make_shared<Recorder>();
    notifier.addListener(std::weak_ptr<IRunStateListener>(runStates));

    struct Waiter : IServiceDataListener {
        Notifier* notifier = nullptr;
        bool otherFinished = false;
        void onBaseURLChanged(std::string const&, std::string const&) override {
            auto other = std::async(std::launch::async, [this] { notifier->notifyRunState(RunState::CREATED); });
            otherFinished = other.wait_for(std::chrono::seconds(30)) == std::future_status::ready;
        }
    };
    auto waiter = std::make_shared<Waiter>();
    waiter->notifier = &notifier;
    notifier.addListener(std::weak_ptr<IServiceDataListener>(waiter));

    notifier.notifyBaseURL("nav", "https://example.invalid");
    EXPECT_TRUE(waiter->otherFinished);
    EXPECT_EQ(runStates->calls, Lines{"1"});
}

}  // namespace
