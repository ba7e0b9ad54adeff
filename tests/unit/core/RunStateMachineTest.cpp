#include "ClientRig.h"

#include "support/LogCapture.h"

#include <gtest/gtest.h>

#include <chrono>
#include <functional>
#include <future>
#include <thread>

namespace {

using namespace qel::test;
using qel::common::logging::LogLevel;
using Mode = ScriptedBackend::Mode;
using States = std::vector<RunState>;
using Requests = std::vector<ConditionRequest>;
using Lines = std::vector<std::string>;
constexpr RunState INVALID = RunState::INVALID, CREATED = RunState::CREATED, STARTED = RunState::STARTED,
                   RESUMED = RunState::RESUMED, PAUSED = RunState::PAUSED, STOPPED = RunState::STOPPED,
                   DESTROYED = RunState::DESTROYED, DISCONNECTED = RunState::DISCONNECTED;

using C = ConditionName;

// The conditions each transition waits for, in request order, written out.
Requests const UP{{C::RSI_SERVICEMANAGEMENT_AVALAIABLE, true}, {C::RSI_BACKENDJOBS_AVAILABLE, true},
                  {C::RSI_CAPABILITIESMANAGEMENT_AVAILABLE, true}, {C::RSI_ONLINEKVS_AVAILABLE, true},
                  {C::RSI_TOKENMANAGEMENT_AVAILABLE, true}, {C::POSTED_CAPABILITIES, true},
                  {C::POSTED_JOBENTRIES, true}, {C::POSTED_OPERATION_ENTRIES, true},
                  {C::SUBSCRIBED_SERVICEMANAGEMENT, true}};
Requests const SERVICES_DOWN{{C::SUBSCRIBED_SERVICEMANAGEMENT, false}};
Requests const STARTED_DOWN{{C::SUBSCRIBED_KVS, false}, {C::SUBSCRIBED_PRIVACYSETUP, false},
                            {C::SUBSCRIBED_SERVICEMANAGEMENT, false}};
std::map<Transition, Requests> const TRANSITION_CONDITIONS{
    {{INVALID, CREATED}, UP},
    {{DISCONNECTED, CREATED}, UP},
    {{CREATED, STARTED}, {{C::SUBSCRIBED_PRIVACYSETUP, true}, {C::POSTED_KVS, true}}},
    {{STARTED, RESUMED},
     {{C::SUBSCRIBED_KVS, true}, {C::SUBSCRIBED_BACKENDJOBS, true}, {C::SUBSCRIBED_TOKENMANAGEMENT, true},
      {C::CONNECTED_NETWORKING, true}}},
    {{STARTED, PAUSED}, {{C::SUBSCRIBED_KVS, true}}},
    {{RESUMED, PAUSED}, {{C::CONNECTED_NETWORKING, false}, {C::SUBSCRIBED_TOKENMANAGEMENT, false}}},
    {{PAUSED, RESUMED}, {{C::SUBSCRIBED_TOKENMANAGEMENT, true}, {C::CONNECTED_NETWORKING, true}}},
    {{PAUSED, STOPPED}, {{C::SUBSCRIBED_BACKENDJOBS, false}, {C::SUBSCRIBED_KVS, false}, {C::SUBSCRIBED_PRIVACYSETUP, false}}},
    {{STOPPED, STARTED}, {{C::SUBSCRIBED_PRIVACYSETUP, true}}},
    {{INVALID, DESTROYED}, {}},
    {{CREATED, DESTROYED}, SERVICES_DOWN},
    {{STARTED, DESTROYED}, STARTED_DOWN},
    {{RESUMED, DESTROYED},
     {{C::SUBSCRIBED_TOKENMANAGEMENT, false}, {C::SUBSCRIBED_BACKENDJOBS, false}, {C::SUBSCRIBED_KVS, false},
      {C::SUBSCRIBED_PRIVACYSETUP, false}, {C::SUBSCRIBED_SERVICEMANAGEMENT, false}}},
    {{PAUSED, DESTROYED},
     {{C::SUBSCRIBED_BACKENDJOBS, false}, {C::SUBSCRIBED_KVS, false}, {C::SUBSCRIBED_PRIVACYSETUP, false},
      {C::SUBSCRIBED_SERVICEMANAGEMENT, false}}},
    {{STOPPED, DESTROYED}, SERVICES_DOWN},
    {{INVALID, DISCONNECTED}, SERVICES_DOWN},
    {{CREATED, DISCONNECTED}, SERVICES_DOWN},
    {{STARTED, DISCONNECTED}, STARTED_DOWN},
    {{RESUMED, DISCONNECTED},
     {{C::SUBSCRIBED_TOKENMANAGEMENT, false}, {C::SUBSCRIBED_KVS, false}, {C::SUBSCRIBED_PRIVACYSETUP, false},
      {C::SUBSCRIBED_SERVICEMANAGEMENT, false}}},
    {{PAUSED, DISCONNECTED}, STARTED_DOWN},
    {{STOPPED, DISCONNECTED}, SERVICES_DOWN},
};

Requests conditionsOf(RunState from, RunState to) {
    return TRANSITION_CONDITIONS.at({from, to});
}

// Starts the client and answers until it stands in `state`; forgets what was heard and asked.
void parkAt(ClientRig& rig, RunState state) {
    rig.client->startup();
    if (state == PAUSED || state == STOPPED || state == DISCONNECTED) {
        ASSERT_TRUE(rig.answerUntil(RESUMED));
        rig.client->setPaused(state == PAUSED);
        rig.client->setDisableReasonActive(state == STOPPED);
        rig.client->ocuConnCallback(state != DISCONNECTED);
    }
    ASSERT_TRUE(rig.answerUntil(state));
    rig.recorder->take();
    rig.backend->takeRequested();
}

TEST(RunStateMachine, TheFactoryTransitionTableIsTheWrittenOutOne) {
    EXPECT_EQ(*buildTransitionTable(), TRANSITION_CONDITIONS);
}

TEST(RunStateMachine, TypicalStartWalksToResumedWhetherAnswersComeAtOnceLaterOrFromOtherThreads) {
    Requests requests;
    for (auto const& [from, to] : {Transition{INVALID, CREATED}, {CREATED, STARTED}, {STARTED, RESUMED}}) {
        auto const more = conditionsOf(from, to);
        requests.insert(requests.end(), more.begin(), more.end());
    }
    LogCapture log;
    ClientRig atOnce(Mode::AT_ONCE);
    atOnce.client->startup();
    EXPECT_EQ(atOnce.recorder->take(), (States{CREATED, STARTED, RESUMED}));
    EXPECT_EQ(atOnce.backend->takeRequested(), requests);
    EXPECT_EQ(log.count(LogLevel::Info, "------ RUNNING ------"), 1u);
    EXPECT_EQ(log.count(LogLevel::Debug, "------ NEW STATE STARTED ------"), 1u);

    ClientRig later(Mode::LATER);
    later.client->startup();
    // Postings and the service list wait in the condition manager for the services.
    EXPECT_EQ(later.backend->takeRequested(), Requests(requests.begin(), requests.begin() + 5));
    ASSERT_TRUE(later.answerUntil(RESUMED));
    EXPECT_EQ(later.recorder->take(), (States{CREATED, STARTED, RESUMED}));

    ClientRig threaded(Mode::THREADED);
    threaded.client->startup();
    EXPECT_EQ(threaded.recorder->take(RESUMED), (States{CREATED, STARTED, RESUMED}));
}

TEST(RunStateMachine, PauseDisableReasonDisconnectAndStopWalkFromEveryStateTheyApplyTo) {
    using Trigger = std::function<void(OnlineServiceClient&)>;
    Trigger const pause = [](auto& c) { c.pauseConnection(); }, unpause = [](auto& c) { c.unpauseConnection(); },
                  disable = [](auto& c) { c.onDisableReasonChanged("nav", {"blocked"}); },
                  enable = [](auto& c) { c.setDisableReasonActive(false); },
                  lose = [](auto& c) { c.ocuConnCallback(false); }, regain = [](auto& c) { c.ocuConnCallback(true); },
                  stop = [](auto& c) { c.stop(); };
    auto const both = [](Trigger first, Trigger second) { return [=](auto& c) { first(c), second(c); }; };
    struct Walk {
        RunState from;
        Trigger trigger;
        States heard;  // until the goal
    };
    std::vector<Walk> const walks{
        {INVALID, pause, {CREATED, STARTED, PAUSED}}, {CREATED, pause, {STARTED, PAUSED}},
        {STARTED, pause, {PAUSED}}, {RESUMED, pause, {PAUSED}}, {STOPPED, both(pause, enable), {STARTED, PAUSED}},
        {DISCONNECTED, both(pause, regain), {CREATED, STARTED, PAUSED}}, {PAUSED, unpause, {RESUMED}},
        {INVALID, disable, {CREATED, STARTED, PAUSED, STOPPED}}, {CREATED, disable, {STARTED, PAUSED, STOPPED}},
        {STARTED, disable, {PAUSED, STOPPED}}, {RESUMED, disable, {PAUSED, STOPPED}}, {PAUSED, disable, {STOPPED}},
        {DISCONNECTED, both(disable, regain), {CREATED, STARTED, PAUSED, STOPPED}},
        {STOPPED, enable, {STARTED, RESUMED}},
        {INVALID, lose, {DISCONNECTED}}, {CREATED, lose, {DISCONNECTED}}, {STARTED, lose, {DISCONNECTED}},
        {RESUMED, lose, {DISCONNECTED}}, {PAUSED, lose, {DISCONNECTED}}, {STOPPED, lose, {DISCONNECTED}},
        {DISCONNECTED, regain, {CREATED, STARTED, RESUMED}},
        {CREATED, stop, {DESTROYED}}, {STARTED, stop, {DESTROYED}}, {RESUMED, stop, {DESTROYED}},
        {PAUSED, stop, {DESTROYED}}, {STOPPED, stop, {DESTROYED}},
    };
    for (auto const& walk : walks) {
        SCOPED_TRACE(OnlineServiceClient::m_runstateStrings.at(walk.from) + " to " +
                     OnlineServiceClient::m_runstateStrings.at(walk.heard.back()));
        ClientRig rig(Mode::LATER);
        parkAt(rig, walk.from);
        walk.trigger(*rig.client);
        // Parked on the way up, the machine already asked for its next step and does not ask again.
        bool const awaited = (walk.from == INVALID && walk.heard.front() == CREATED) ||
                             (walk.from == CREATED && walk.heard.front() == STARTED);
        EXPECT_EQ(rig.backend->takeRequested(), awaited ? Requests() : conditionsOf(walk.from, walk.heard.front()));
        ASSERT_TRUE(rig.answerUntil(walk.heard.back()));
        EXPECT_EQ(rig.recorder->take(), walk.heard);
    }
}

TEST(RunStateMachine, StopFromInvalidOrDisconnectedIsDestroyedAtOnce) {
    for (auto const from : {INVALID, DISCONNECTED}) {
        LogCapture log;
        ClientRig rig(Mode::LATER);
        parkAt(rig, from);
        log.clear();
        rig.client->stop();
        EXPECT_EQ(rig.recorder->take(), States{DESTROYED});
        // DISCONNECTED -> DESTROYED is unlisted: refused in words, then taken all the same.
        auto lines = log.messages();
        lines.erase(lines.begin(), lines.begin() + (from == INVALID ? 2 : 1));  // use case, request line
        Lines expected{"No conditions found", "------ NOT RUNNING ------", "------ NEW STATE DESTROYED ------",
                       "notifyRunState ", "stop"};  // the last line is the RSI client wrapper's
        if (from == DISCONNECTED) {
            expected.insert(expected.begin(), "State transition DISCONNECTED -> DESTROYED not allowed!");
        }
        EXPECT_EQ(lines, expected);
        rig.backend->answerRound();  // late answers for the abandoned walk move nothing
        EXPECT_EQ(rig.client->getRunState(), DESTROYED);
    }
}

TEST(RunStateMachine, NothingMovesBeforeStartupOrAfterStop) {
    ClientRig rig(Mode::AT_ONCE);
    auto const shake = [&] {
        for (bool const on : {true, false}) {
            rig.client->setPaused(on);
            rig.client->ocuConnCallback(!on);
        }
        rig.client->updateRunState();
        EXPECT_TRUE(rig.backend->takeRequested().empty());
        EXPECT_TRUE(rig.recorder->take().empty());
    };
    shake();
    rig.client->startup();
    rig.client->stop();
    rig.client->stop();
    EXPECT_EQ(rig.recorder->take(), (States{CREATED, STARTED, RESUMED, DESTROYED}));
    rig.backend->takeRequested();
    shake();
}

TEST(RunStateMachine, AReportThatDoesNotSettleTheAwaitedTransitionLeavesTheStateAlone) {
    LogCapture log;
    ClientRig rig(Mode::LATER);
    rig.client->startup();
    std::map<ConditionName, bool> report, incomplete, wrongValue;
    for (auto const& [name, value] : conditionsOf(INVALID, CREATED)) {
        report[name] = incomplete[name] = wrongValue[name] = value;
    }
    incomplete.erase(ConditionName::SUBSCRIBED_SERVICEMANAGEMENT);
    wrongValue[ConditionName::POSTED_CAPABILITIES] = false;
    rig.client->notifyConditions(incomplete);
    rig.client->notifyConditions(wrongValue);
    EXPECT_EQ(rig.client->getRunState(), INVALID);
    EXPECT_EQ(log.messages(LogLevel::Error),
              Lines{"State transition INVALID -> CREATED not allowed, can't check conditions"});
    rig.client->notifyConditions(report);
    EXPECT_EQ(rig.recorder->take(), States{CREATED});
}

TEST(RunStateMachine, SkippedConditionsAreNotWaitedFor) {
    FrameworkSubConfig skipAll;
    skipAll.skipServiceSubscription = skipAll.skipTokenSubscription = skipAll.skipPrivacySubscription = true;
    skipAll.skipJobSubscription = skipAll.skipKVSSubscription = skipAll.skipNetworkingRegistration = true;
    skipAll.skipCapabilities = skipAll.skipJobEntries = skipAll.skipOperationEntries = true;
    ClientRig rig(Mode::LATER, buildPreconditionTable(), skipAll);
    rig.client->startup();
    EXPECT_EQ(rig.recorder->take(), (States{CREATED, STARTED, RESUMED}));
    EXPECT_TRUE(rig.backend->takeRequested().empty());

    // Without a service list there is neither a token subscription nor networking to wait for.
    ClientWorkload const noServiceList{false, true, true, true, true, true, true, true, true};
    auto const skips = buildSkipConditions(FrameworkSubConfig(), noServiceList);
    std::vector<ConditionName> skipped;
    for (auto const& [skip, condition] : *skips) {
        if (skip) {
            skipped.push_back(condition);
        }
    }
    EXPECT_EQ(skipped, (std::vector<ConditionName>{C::SUBSCRIBED_TOKENMANAGEMENT, C::SUBSCRIBED_SERVICEMANAGEMENT,
                                                   C::SUBSCRIBED_SERVICEMANAGEMENT, C::CONNECTED_NETWORKING}));
}

TEST(RunStateMachine, UseCaseFollowsTheFlagsByPriorityAndAnUnwiredClientDoesNotStart) {
    LogCapture log;
    ClientRig rig(Mode::LATER);
    log.clear();
    rig.client->setPaused(false);  // unchanged: nothing at all
    rig.client->setPaused(true);
    rig.client->onDisableReasonChanged("nav", {"undefined", "blocked"});
    rig.client->setDisconnected(true);
    rig.client->setStopRequested(true);
    rig.client->setDisconnected(false);
    EXPECT_EQ(log.messages(LogLevel::Info),
              (Lines{"Change usecase PAUSE",
                     "Received disableReason callback for service nav, number of disableReasons: 2",
                     "Already disabled: 0", "Valid disableReasons: 1", "Change usecase DISABLEREASON",
                     "Change usecase DISCONNECT", "Change usecase SHUTDOWN"}));
    EXPECT_EQ(rig.client->toString(Transition{static_cast<RunState>(5), static_cast<RunState>(8)}),
              "STOPPED -> UNKNOWN_STATE");

    auto config = std::make_shared<FrameworkConfig>();
    config->ignoreDisableReasons = true;
    auto unwired = std::make_shared<OnlineServiceClient>(config, std::make_shared<Notifier>(config));
    std::make_shared<OnlineServiceClient>(config, nullptr)->startup();
    unwired->startup();
    unwired->setRsiClient(rig.wrapper);
    unwired->startup();
    unwired->setConditionManager(rig.conditions);
    unwired->startup();
    unwired->onDisableReasonChanged("nav", {"blocked"});
    EXPECT_EQ(log.messages(LogLevel::Error), (Lines{"toString: Unknown runstate value: 8",
                                                    "Framework startup not possible: no notifier defined!",
                                                    "Framework startup not possible: no rsi client defined!",
                                                    "Framework startup not possible: no condition manager defined!",
                                                    "Framework startup not possible: no subscription manager defined!"}));
    EXPECT_EQ(log.messages(LogLevel::Warning), Lines{"DisableReason ignored because due to framework configuration!"});
    EXPECT_EQ(unwired->getRunState(), RunState::INVALID);
    EXPECT_EQ(unwired->getUsecase(), UseCase::RUNNING);
}

TEST(RunStateMachine, DisableReasonClearsOnlyWhenNoServiceIsDisabledAndKVSUpdatesReachTheManager) {
    LogCapture log;
    ClientRig rig(Mode::AT_ONCE);
    rig.client->onDisableReasonChanged("nav", {"blocked"});
    EXPECT_EQ(rig.client->getUsecase(), UseCase::DISABLEREASON);
    rig.client->onDisableReasonChanged("nav", {"undefined"});  // no service item holds a reason
    EXPECT_EQ(rig.client->getUsecase(), UseCase::RUNNING);

    EXPECT_EQ(rig.client->updateKVSItem("color", "red"), KVS_ITEM_NOT_FOUND);
    EXPECT_TRUE(log.contains(LogLevel::Error, "No KVS item with key <color> existing. Ignoring call."));
}

// Asked directly, a transition is looked up whatever the machine stands at: listed ones have
// their conditions requested, unlisted ones are refused in words and reported as "take it".
TEST(RunStateMachine, RequestConditionsLooksTheTransitionUpWhateverTheCurrentState) {
    LogCapture log;
    ClientRig rig(Mode::LATER, std::make_unique<PreconditionTable>());
    ASSERT_EQ(rig.client->getRunState(), INVALID);
    log.clear();

    EXPECT_FALSE(rig.client->requestConditions({DISCONNECTED, DESTROYED}));
    EXPECT_EQ(log.messages(), (Lines{"State transition DISCONNECTED -> DESTROYED not allowed!", "No conditions found"}));
    EXPECT_EQ(log.count(LogLevel::Error, "State transition DISCONNECTED -> DESTROYED not allowed!"), 1u);
    EXPECT_EQ(log.count(LogLevel::Warning, "No conditions found"), 1u);
    EXPECT_TRUE(rig.backend->takeRequested().empty());

    log.clear();
    EXPECT_TRUE(rig.client->requestConditions({PAUSED, STOPPED}));
    EXPECT_TRUE(log.contains(LogLevel::Info, "Request state transition conditions for PAUSED -> STOPPED"));
    EXPECT_EQ(rig.backend->takeRequested(), (Requests{{C::SUBSCRIBED_BACKENDJOBS, false}, {C::SUBSCRIBED_KVS, false},
                                                       {C::SUBSCRIBED_PRIVACYSETUP, false}}));
    EXPECT_EQ(rig.client->getRunState(), INVALID);
    rig.backend->answerRound();  // the requested transition's answers settle it, wherever it began
    EXPECT_EQ(rig.client->getRunState(), STOPPED);
    EXPECT_EQ(rig.recorder->take(), States{STOPPED});
}

// While one thread delivers a listener call that waits for a backend thread, that thread's
// condition report moves the client and notifies the run state: it must get through.
TEST(RunStateMachine, ABackendThreadReportingWhileAListenerWaitsForItDoesNotDeadlock) {
    ClientRig rig(Mode::LATER);
    parkAt(rig, RESUMED);
    struct Waiter : IServiceDataListener {
        void onDisableReasonChanged(std::string const&, std::vector<std::string> const&) override {
            auto backend = std::async(std::launch::async, [this] { rig->backend->answerRound(); });
            finished = backend.wait_for(std::chrono::seconds(30)) == std::future_status::ready;
        }
        ClientRig* rig = nullptr;
        bool finished = false;
    };
    auto const waiter = std::make_shared<Waiter>();
    waiter->rig = &rig;
    rig.notifier->addListener(std::weak_ptr<IServiceDataListener>(waiter));  // after the client

    rig.notifier->notifyDisableReason("nav", {"blocked"});
    EXPECT_TRUE(waiter->finished);
    EXPECT_EQ(rig.client->getRunState(), PAUSED);
    ASSERT_TRUE(rig.answerUntil(STOPPED));
    EXPECT_EQ(rig.recorder->take(), (States{PAUSED, STOPPED}));
}

// Flags flip on three threads while the backend answers on two others; then a stop. The walk
// must end in DESTROYED, and every state heard must follow from the one before by a listed step.
TEST(RunStateStress, FlagChangesRacingWithConditionReportsEndInDestroyedThroughLegalSteps) {
    // Without preconditions every request comes from the walk itself, so each condition is
    // answered in the order the machine asked, and its last answer is the machine's last wish.
    ClientRig rig(Mode::THREADED, std::make_unique<PreconditionTable>());
    rig.client->startup();
    std::vector<std::thread> threads;
    for (int flipper = 0; flipper < 3; ++flipper) {
        threads.emplace_back([&rig, flipper] {
            for (int i = 0; i < 300; ++i) {
                flipper == 0 ? rig.client->setPaused(i % 2 == 0)
                             : flipper == 1 ? rig.client->ocuConnCallback(i % 2 == 0)
                                            : rig.client->setDisableReasonActive(i % 2 == 0);
            }
        });
    }
    for (auto& thread : threads) {
        thread.join();
    }
    rig.client->stop();

    // The listed steps, and the unlisted one a stop takes from DISCONNECTED.
    RunState previous = INVALID;
    for (auto const state : rig.recorder->take(DESTROYED)) {
        bool const legal = TRANSITION_CONDITIONS.count({previous, state}) == 1 ||
                           (previous == DISCONNECTED && state == DESTROYED);
        EXPECT_TRUE(legal) << rig.client->toString(Transition{previous, state});
        previous = state;
    }
    EXPECT_EQ(previous, DESTROYED);
}

}  // namespace
