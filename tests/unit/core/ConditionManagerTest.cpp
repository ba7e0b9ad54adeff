#include "core/ConditionManager.h"
#include "core/ConditionTables.h"

#include "support/LogCapture.h"

#include <gtest/gtest.h>

#include <functional>

namespace {

using namespace qel::onlineservices::framework;
using namespace qel::onlineservices::framework::core;
using qel::common::logging::LogLevel;
using C = ConditionName;
using Values = std::map<ConditionName, bool>;
using Lines = std::vector<std::string>;

struct Listener : IConditionListener {
    void notifyConditions(Values const& conditions) override {
        reports.push_back(conditions);
        if (onReport) {
            onReport(conditions);
        }
    }
    std::vector<Values> reports;
    std::function<void(Values const&)> onReport;
};

// A manager whose actions keep their callbacks, so the test decides when they answer.
struct Rig {
    Rig() {
        auto actions = std::make_unique<ConditionActionTable>();
        for (auto const name : {C::SUBSCRIBED_TOKENMANAGEMENT, C::RSI_TOKENMANAGEMENT_AVAILABLE, C::SUBSCRIBED_KVS}) {
            (*actions)[{name, true}] = [this, name](auto callback) { ran.push_back(name), callbacks[name] = callback; };
        }
        auto config = std::make_shared<FrameworkConfig>();
        config->loggerName = "framework_nav";
        manager = std::make_shared<ConditionManager>(config, std::move(actions), buildPreconditionTable());
        manager->addConditionListener(listener);
    }
    std::vector<ConditionName> ran;
    std::map<ConditionName, std::shared_ptr<IUpdateConditionCallback>> callbacks;
    std::shared_ptr<Listener> listener = std::make_shared<Listener>();
    std::shared_ptr<ConditionManager> manager;
};

TEST(ConditionManager, RequestsWaitForPreconditionsAndCallbacksReportUntilTheManagerIsGone) {
    qel::test::LogCapture log;
    Rig rig;
    rig.manager->requestCondition(C::RSI_TOKENMANAGEMENT_AVAILABLE, true);
    rig.manager->requestCondition(C::SUBSCRIBED_TOKENMANAGEMENT, true);  // the service list is not there yet
    rig.callbacks.at(C::RSI_TOKENMANAGEMENT_AVAILABLE)->notify(true);
    EXPECT_EQ(rig.ran, std::vector<ConditionName>{C::RSI_TOKENMANAGEMENT_AVAILABLE});
    rig.manager->onUpdateCondition(C::SUBSCRIBED_SERVICEMANAGEMENT, true);
    EXPECT_EQ(rig.ran.back(), C::SUBSCRIBED_TOKENMANAGEMENT);
    EXPECT_EQ(log.messages(LogLevel::Info),
              (Lines{"Request condition: RSI_TOKENMANAGEMENT_AVAILABLE : true",
                     "Condition event: RSI_TOKENMANAGEMENT_AVAILABLE : true",
                     "Condition event: SUBSCRIBED_SERVICEMANAGEMENT : true",
                     "Request condition: SUBSCRIBED_TOKENMANAGEMENT : true"}));
    EXPECT_EQ(log.entries().front().context, "framework_nav.ConditionManager");

    log.clear();
    rig.manager->requestCondition(C::POSTED_CAPABILITIES, false);
    EXPECT_EQ(log.messages(), (Lines{"No preconditions for requesting POSTED_CAPABILITIES : false",
                                     "Request condition: POSTED_CAPABILITIES : false",
                                     "No action defined for condition POSTED_CAPABILITIES : false"}));
    EXPECT_EQ(log.count(LogLevel::Debug, "No preconditions for requesting POSTED_CAPABILITIES : false"), 1u);
    EXPECT_EQ(rig.listener->reports.size(), 2u);

    // A callback may report again later, until its manager is gone.
    auto const callback = rig.callbacks.at(C::RSI_TOKENMANAGEMENT_AVAILABLE);
    callback->notify(false);
    rig.manager.reset();
    callback->notify(true);
    EXPECT_EQ(rig.listener->reports.back(), (Values{{C::RSI_TOKENMANAGEMENT_AVAILABLE, false},
                                                    {C::SUBSCRIBED_SERVICEMANAGEMENT, true}}));
    EXPECT_EQ(rig.listener->reports.size(), 3u);
}

TEST(ConditionManager, ExpiredListenersAreDroppedAndTheOthersHearInOrderAndMayRequestFromInside) {
    Rig rig;
    Lines heard;
    auto gone = std::make_shared<Listener>(), last = std::make_shared<Listener>();
    rig.listener->onReport = [&](Values const& values) {
        heard.push_back("first");
        if (values.size() == 1) {
            rig.manager->requestCondition(C::SUBSCRIBED_KVS, true);  // queued: the KVS is not posted
            rig.manager->onUpdateCondition(C::POSTED_KVS, true);     // a synchronous answer, nested
        }
    };
    last->onReport = [&](Values const&) { heard.push_back("last"); };
    rig.manager->addConditionListener(gone);
    rig.manager->addConditionListener(last);
    gone.reset();
    rig.manager->onUpdateCondition(C::RSI_ONLINEKVS_AVAILABLE, true);
    EXPECT_EQ(heard, (Lines{"first", "first", "last", "last"}));
    EXPECT_EQ(rig.ran, std::vector<ConditionName>{C::SUBSCRIBED_KVS});
}

}  // namespace
