// A client wired the way the factory wires it, with a condition manager whose actions are
// answered by a scripted backend: at once, when the test says so, or on backend threads.
#pragma once

#include "async/AsyncQueueThread.h"
#include "core/ConditionManager.h"
#include "core/ConditionTables.h"
#include "core/OnlineServiceClient.h"
#include "rsi/RSIClientWrapper.h"
#include "subscriptions/SubscriptionManager.h"
#include "support/RunStateRecorder.h"

#include <array>
#include <functional>
#include <mutex>
#include <ostream>

namespace qel::onlineservices::framework::core {
inline void PrintTo(ConditionName name, std::ostream* out) { *out << toString(name); }
inline void PrintTo(RunState state, std::ostream* out) { *out << static_cast<int>(state); }
}  // namespace qel::onlineservices::framework::core

namespace qel::test {

using namespace onlineservices::framework;
using namespace onlineservices::framework::core;

// Stands in for everything the condition actions reach; answers each request with its value.
class ScriptedBackend {
public:
    enum class Mode {
        AT_ONCE,   // inside the action
        LATER,     // when the test calls answerRound()
        THREADED,  // on two backend threads; each condition always on the same one, in request order
    };

    explicit ScriptedBackend(Mode mode) : m_mode(mode) {}
    std::unique_ptr<ConditionActionTable> actions() {
        auto table = std::make_unique<ConditionActionTable>();
        for (std::uint32_t name = 0; name < 15; ++name) {
            for (bool const value : {true, false}) {
                ConditionRequest const request{static_cast<ConditionName>(name), value};
                (*table)[request] = [this, request](auto callback) { onAction(request, std::move(callback)); };
            }
        }
        return table;
    }
    // Answers what is held now; requests made meanwhile wait for the next round. False if none.
    bool answerRound() {
        std::vector<std::function<void()>> round;
        {
            std::lock_guard<std::mutex> guard(m_mutex);
            round.swap(m_held);
        }
        for (auto const& answer : round) {
            answer();
        }
        return !round.empty();
    }
    // Ends the backend threads; what they still hold is dropped.
    void shutdown() {
        for (auto& lane : m_lanes) {
            lane.stop();
        }
    }
    // The requests that reached an action since the last call.
    std::vector<ConditionRequest> takeRequested() {
        std::lock_guard<std::mutex> guard(m_mutex);
        return std::exchange(m_requested, {});
    }

private:
    void onAction(ConditionRequest const& request, std::shared_ptr<IUpdateConditionCallback> callback) {
        auto answer = [request, callback] { callback->notify(request.second); };
        {
            std::lock_guard<std::mutex> guard(m_mutex);
            m_requested.push_back(request);
            if (m_mode == Mode::LATER) {
                m_held.push_back(answer);
                return;
            }
        }
        if (m_mode == Mode::AT_ONCE) {
            answer();
        } else {
            m_lanes[static_cast<std::size_t>(request.first) % m_lanes.size()].push(answer);
        }
    }

    Mode const m_mode;
    std::mutex m_mutex;
    std::vector<ConditionRequest> m_requested;     // guarded by m_mutex
    std::vector<std::function<void()>> m_held;     // guarded by m_mutex
    std::array<onlineservices::common::utils::AsyncQueueThread, 2> m_lanes;
};

// Everything the factory builds for the run-state machine, nothing more.
struct ClientRig {
    explicit ClientRig(ScriptedBackend::Mode mode,
                       std::unique_ptr<PreconditionTable> preconditions = buildPreconditionTable(),
                       FrameworkSubConfig const& settings = FrameworkSubConfig())
        : backend(std::make_shared<ScriptedBackend>(mode)) {
        static_cast<FrameworkSubConfig&>(*config) = settings;
        conditions = std::make_shared<ConditionManager>(config, backend->actions(), std::move(preconditions));
        client->setRsiClient(wrapper);
        client->setConditionManager(conditions);
        client->setSubscriptionManager(subscriptions);
        auto usecases = buildUsecaseTable();
        auto transitions = buildTransitionTable();
        auto skips = buildSkipConditions(*config, {true, true, true, true, true, true, true, true, true});
        client->setUsecases(usecases);
        client->setTransitions(transitions);
        client->setSkipConditions(skips);
        notifier->addListener(std::weak_ptr<IServiceDataListener>(client));
        conditions->addConditionListener(client);
        client->addRunStateListener(recorder);
    }
    // Stopped and drained here, so that the client is not released last on a backend thread.
    ~ClientRig() {
        client->stop();
        backend->shutdown();
    }
    // Answers round after round until the client stands in `state`.
    bool answerUntil(RunState state) {
        for (int round = 0; round < 50 && client->getRunState() != state && backend->answerRound(); ++round) {
        }
        return client->getRunState() == state;
    }

    std::shared_ptr<FrameworkConfig> config = std::make_shared<FrameworkConfig>();
    std::shared_ptr<ScriptedBackend> backend;
    std::shared_ptr<Notifier> notifier = std::make_shared<Notifier>(config);
    std::shared_ptr<ConditionManager> conditions;
    // Never started: the scripted backend answers the conditions, nothing goes to the RSI client.
    std::shared_ptr<RSIClientWrapper> wrapper = std::make_shared<RSIClientWrapper>(config);
    std::shared_ptr<SubscriptionManager> subscriptions = std::make_shared<SubscriptionManager>(config, notifier, wrapper);
    std::shared_ptr<OnlineServiceClient> client = std::make_shared<OnlineServiceClient>(config, notifier);
    std::shared_ptr<RunStateRecorder> recorder = std::make_shared<RunStateRecorder>();
};

}  // namespace qel::test
