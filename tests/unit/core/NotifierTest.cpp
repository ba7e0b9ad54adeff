#include "core/Notifier.h"

#include "support/LogCapture.h"

#include <gtest/gtest.h>

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

}  // namespace
