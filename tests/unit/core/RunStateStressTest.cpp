#include "ClientRig.h"

#include <gtest/gtest.h>

#include <set>

namespace {

using namespace qel::test;

// Flags flip on three threads while the backend answers on two others; then a stop. The walk
// must end in DESTROYED, and every state heard must follow from the one before by a listed step.
TEST(RunStateStress, FlagChangesRacingWithConditionReportsEndInDestroyedThroughLegalSteps) {
    // Without preconditions every request comes from the walk itself, so each condition is
    // answered in the order the machine asked, and its last answer is the machine's last wish.
    ClientRig rig(ScriptedBackend::Mode::THREADED, std::make_unique<PreconditionTable>());
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

    // Every step some use case lists, written out.
    using S = RunState;
    std::set<Transition> const legal{
        {S::DISCONNECTED, S::CREATED}, {S::INVALID, S::CREATED},      {S::CREATED, S::STARTED},
        {S::STARTED, S::RESUMED},      {S::STOPPED, S::STARTED},      {S::PAUSED, S::RESUMED},
        {S::STARTED, S::PAUSED},       {S::RESUMED, S::PAUSED},       {S::PAUSED, S::STOPPED},
        {S::INVALID, S::DISCONNECTED}, {S::CREATED, S::DISCONNECTED}, {S::STARTED, S::DISCONNECTED},
        {S::RESUMED, S::DISCONNECTED}, {S::PAUSED, S::DISCONNECTED},  {S::STOPPED, S::DISCONNECTED},
        {S::DISCONNECTED, S::DESTROYED}, {S::INVALID, S::DESTROYED},  {S::CREATED, S::DESTROYED},
        {S::STARTED, S::DESTROYED},    {S::RESUMED, S::DESTROYED},    {S::PAUSED, S::DESTROYED},
        {S::STOPPED, S::DESTROYED},
    };
    RunState previous = RunState::INVALID;
    for (auto const state : rig.recorder->take(RunState::DESTROYED)) {
        EXPECT_EQ(legal.count({previous, state}), 1u) << rig.client->toString(Transition{previous, state});
        previous = state;
    }
    EXPECT_EQ(previous, RunState::DESTROYED);
}

}  // namespace
