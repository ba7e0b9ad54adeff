// Soak: the subscription WebSocket drops at random moments, many times, against the in-process
// backend simulator, and every subscription must come back exactly once, with no job notified
// twice. Long; not part of the test suite. Run by hand:
//   build/default/benchmarks/qel_soak
//   BM_LinkDropSoak/<drops>   counters:
//     subscriptions_restored_pct  recoveries after which the backend held every subscription, no more
//     subscriptions_lost          subscriptions missing after the last recovery
//     extra_subscriptions         duplicates seen after a recovery (summed)
//     jobs_notified_twice         jobs the listener heard more than once
//     jobs_notified               distinct jobs the listener heard
//     jobs_unacknowledged         pushed jobs the backend saw no acknowledgement of in time
// Each round drops the link once while idle and once at a random moment of the re-subscriptions
// that follow (half of those drops are a crash and restart of the backend), then lets the retries
// run. The retry delays pass on a manual clock, so the run takes seconds, not hours.
#include "BackendSimulator.h"
#include "common/Logger.h"
#include "rsi/RSIClientWrapper.h"
#include "rsi/SharedRsiClient.h"
#include "rsi/host/HostRsiClient.h"
#include "subscriptions/JobItem.h"
#include "subscriptions/KVSItem.h"
#include "subscriptions/PrivacyItem.h"
#include "subscriptions/ServiceItem.h"
#include "subscriptions/SubscriptionManager.h"
#include "subscriptions/TokenItem.h"
#include "support/ManualClock.h"
#include "support/RsiRecorders.h"
#include "support/RsiWorkerDriver.h"

#include <onlineservices/framework/IBackendJobListener.h>

#include <benchmark/benchmark.h>

#include <atomic>
#include <chrono>
#include <map>
#include <memory>
#include <mutex>
#include <random>
#include <string>
#include <thread>

namespace {

namespace core = qel::onlineservices::framework::core;
using qel::common::logging::LogConfig;
using qel::common::logging::LogLevel;
using qel::sim::backend::BackendSimulator;
using namespace qel::rsi::client;

constexpr char const* BACKEND = R"({
  "tokens": [{"id": "tok-nav", "name": "nav", "token": "t0"}],
  "services": [{"id": "svc-nav", "name": "nav", "baseUrl": "https://nav.example.com"}],
  "privacyGroups": [{"id": "prv-nav", "name": "nav"}],
  "kvs": [{"id": "kvs-1", "name": "nav.color", "value": "red"}],
  "jobs": [{"id": "job-0", "name": "nav"}]
})";

// What the rig holds at the backend: the service, privacy and job resources, the token and KVS
// elements.
constexpr std::size_t SUBSCRIPTIONS = 5;
// Longer than any retry delay: one step lets every armed retry fall due.
constexpr std::int64_t CLOCK_STEP_MS = 90001;
constexpr int RECOVERY_ROUNDS = 40;
constexpr auto ROUND_WAIT = std::chrono::milliseconds(25);
// The random moment of a drop after the re-subscriptions began (loopback subscribes take ~0.1 ms).
constexpr int MAX_DROP_DELAY_US = 3000;

// Counts the retries the RSI jobs arm, so that a drop can wait until the client has noticed it.
class RetryCounter : public qel::common::logging::LogSink {
public:
    void write(qel::common::logging::LogEntry const& entry) override {
        if (entry.message.rfind("Retrying in ", 0) == 0) {
            m_armed.fetch_add(1);
        }
    }
    std::size_t armed() const { return m_armed.load(); }

private:
    std::atomic<std::size_t> m_armed{0};
};

class JobCounter : public core::IBackendJobListener {
public:
    core::BackendJobAcknowledgeCode onBackendJobReceived(
        std::shared_ptr<qel::onlineservices::framework::dataitems::JobObject> const& job) override {
        std::lock_guard<std::mutex> lock(m_mutex);
        ++m_heard[job->id];
        return core::BackendJobAcknowledgeCode::SUCCESS;
    }
    std::size_t distinct() const {
        std::lock_guard<std::mutex> lock(m_mutex);
        return m_heard.size();
    }
    std::size_t heardTwice() const {
        std::lock_guard<std::mutex> lock(m_mutex);
        std::size_t twice = 0;
        for (auto const& [id, times] : m_heard) {
            twice += times > 1 ? 1 : 0;
        }
        return twice;
    }

private:
    mutable std::mutex m_mutex;
    std::map<std::string, int> m_heard;  // guarded by m_mutex
};

// The framework side: a wrapper over the host client and one item of each kind for service "nav".
class Rig {
public:
    explicit Rig(std::uint16_t port) {
        qel::rsi::client::host::HostRsiClient::Options options;
        options.endpoint.port = port;
        options.requestTimeoutMs = 2000;
        options.subscribeTimeoutMs = 2000;
        SetSharedRsiClient(std::make_shared<qel::rsi::client::host::HostRsiClient>(options));
        wrapper = std::make_shared<core::RSIClientWrapper>(config);
        SetSharedRsiClient(nullptr);  // the wrapper keeps its client
        wrapper->start();
        manager = std::make_unique<core::SubscriptionManager>(config, notifier, wrapper);
        notifier->setListener(std::weak_ptr<core::IBackendJobListener>(jobs));

        auto const token = std::make_shared<core::TokenItem>(logger, notifier, wrapper, "nav");
        auto const service = std::make_shared<core::ServiceItem>(logger, notifier, wrapper, "nav");
        service->setTokenHandler(token);
        manager->addService("nav", service);
        auto const kvs = std::make_shared<core::KVSItem>(logger, notifier, wrapper, "nav.color");
        kvs->handleURI("kvs-1");
        manager->addKVSItem("nav.color", kvs);
        items = {service, token, kvs, std::make_shared<core::PrivacyItem>(logger, notifier, wrapper, "nav"),
                 std::make_shared<core::JobItem>(logger, notifier, wrapper, "nav")};
        manager->subscribe(items, subscribed);
    }
    ~Rig() {
        manager->shutdown();
        wrapper->stop();
    }
    Rig(Rig const&) = delete;
    Rig& operator=(Rig const&) = delete;

    // Lets every armed retry fall due and the worker run them; false if the worker hung.
    bool step(qel::test::ManualClock& clock) {
        clock.advance(CLOCK_STEP_MS);
        return qel::test::runWorkerLoop(*wrapper);
    }

    std::shared_ptr<qel::onlineservices::framework::FrameworkConfig> config =
        std::make_shared<qel::onlineservices::framework::FrameworkConfig>();
    std::shared_ptr<core::Notifier> notifier = std::make_shared<core::Notifier>(config);
    std::shared_ptr<JobCounter> jobs = std::make_shared<JobCounter>();
    std::shared_ptr<qel::test::RecordingCallback> subscribed = std::make_shared<qel::test::RecordingCallback>();
    std::shared_ptr<core::RSIClientWrapper> wrapper;
    std::unique_ptr<core::SubscriptionManager> manager;
    core::SubscriptionManager::Items items;
    qel::common::logging::Logger logger{"soak"};
};

// Steps the clock until the backend holds every subscription on two checks in a row (a close
// still under way may end subscriptions made meanwhile, which then come back on the next retry);
// the count seen at the end.
std::size_t recover(BackendSimulator& simulator, Rig& rig, qel::test::ManualClock& clock) {
    std::size_t count = 0;
    int stable = 0;
    for (int round = 0; round < RECOVERY_ROUNDS && stable < 2; ++round) {
        if (!rig.step(clock)) {
            break;
        }
        auto const deadline = std::chrono::steady_clock::now() + ROUND_WAIT;
        while (simulator.subscriptionCount() < SUBSCRIPTIONS && std::chrono::steady_clock::now() < deadline) {
            std::this_thread::sleep_for(std::chrono::microseconds(200));
        }
        count = simulator.subscriptionCount();
        stable = count == SUBSCRIPTIONS ? stable + 1 : 0;
    }
    return count;
}

// Pushes a new job and lets the worker run until the backend has its acknowledgement.
bool pushAcknowledgedJob(BackendSimulator& simulator, Rig& rig, qel::test::ManualClock& clock) {
    std::size_t const acknowledged = simulator.acknowledgements().size();
    simulator.pushJob(R"({"name":"nav"})");
    auto const deadline = std::chrono::steady_clock::now() + std::chrono::seconds(5);
    while (simulator.acknowledgements().size() == acknowledged && std::chrono::steady_clock::now() < deadline) {
        rig.step(clock);
        std::this_thread::sleep_for(std::chrono::microseconds(200));
    }
    return simulator.acknowledgements().size() > acknowledged;
}

// Drops the link: a close handshake, or a crash and restart of the backend on the same port.
void dropLink(BackendSimulator& simulator, bool crash) {
    if (!crash) {
        simulator.closeAllWebSockets();
        return;
    }
    std::uint16_t const port = simulator.port();
    simulator.stop();
    for (int attempt = 0; attempt < 100 && !simulator.start(port); ++attempt) {
        std::this_thread::sleep_for(std::chrono::milliseconds(10));
    }
}

struct Tally {
    int recoveries = 0;
    int restored = 0;
    int unacknowledged = 0;
    std::size_t extra = 0;
    std::size_t last = SUBSCRIPTIONS;  // subscriptions after the last recovery
};

// One round: an acknowledged job, a drop while idle, a drop at a random moment of the
// re-subscriptions that follow, and the recovery.
void runRound(BackendSimulator& simulator, Rig& rig, qel::test::ManualClock& clock, RetryCounter const& retries,
              int delayUs, bool crash, Tally& tally) {
    // A second notification would be a fault; a job whose acknowledgement failed is rightly taken
    // again, so none may be in flight when the link drops.
    tally.unacknowledged += pushAcknowledgedJob(simulator, rig, clock) ? 0 : 1;

    // Once every subscription has armed its retry, the next step starts the re-subscriptions.
    std::size_t const armed = retries.armed();
    dropLink(simulator, false);
    auto const deadline = std::chrono::steady_clock::now() + std::chrono::seconds(2);
    while (retries.armed() < armed + SUBSCRIPTIONS && std::chrono::steady_clock::now() < deadline) {
        std::this_thread::sleep_for(std::chrono::microseconds(100));
    }
    clock.advance(CLOCK_STEP_MS);
    std::uint64_t const loop = rig.wrapper->wakeWorker();
    std::this_thread::sleep_for(std::chrono::microseconds(delayUs));
    dropLink(simulator, crash);
    rig.wrapper->waitForWorkerLoop(loop, qel::test::WORKER_WAIT_LIMIT_MS);

    tally.last = recover(simulator, rig, clock);
    ++tally.recoveries;
    tally.restored += tally.last == SUBSCRIPTIONS ? 1 : 0;
    tally.extra += tally.last > SUBSCRIPTIONS ? tally.last - SUBSCRIPTIONS : 0;
}

void BM_LinkDropSoak(benchmark::State& state) {
    auto const retries = std::make_shared<RetryCounter>();
    LogConfig::setSinks({retries});
    LogConfig::setThreshold(LogLevel::Warning);
    for (auto _ : state) {
        qel::test::ManualClock clock;
        BackendSimulator simulator;
        if (!simulator.loadScenario(BACKEND) || !simulator.start()) {
            state.SkipWithError("simulator did not start");
            return;
        }
        Rig rig(simulator.port());
        if (recover(simulator, rig, clock) != SUBSCRIPTIONS || !rig.subscribed->values.waitFor(1)) {
            state.SkipWithError("subscriptions did not start");
            return;
        }
        std::mt19937 random(14);  // fixed: a run can be repeated
        std::uniform_int_distribution<int> delayUs(0, MAX_DROP_DELAY_US);
        Tally tally;
        for (int round = 0; 2 * (round + 1) <= state.range(0); ++round) {
            runRound(simulator, rig, clock, *retries, delayUs(random), round % 2 == 1, tally);
        }
        state.counters["drops"] = static_cast<double>(tally.recoveries * 2);
        state.counters["subscriptions_restored_pct"] =
            tally.recoveries == 0 ? 0.0 : 100.0 * tally.restored / tally.recoveries;
        state.counters["subscriptions_lost"] =
            static_cast<double>(tally.last < SUBSCRIPTIONS ? SUBSCRIPTIONS - tally.last : 0);
        state.counters["extra_subscriptions"] = static_cast<double>(tally.extra);
        state.counters["jobs_notified"] = static_cast<double>(rig.jobs->distinct());
        state.counters["jobs_notified_twice"] = static_cast<double>(rig.jobs->heardTwice());
        state.counters["jobs_unacknowledged"] = static_cast<double>(tally.unacknowledged);
    }
    LogConfig::setSinks({});
}
BENCHMARK(BM_LinkDropSoak)->Arg(1000)->Iterations(1)->Unit(benchmark::kSecond)->UseRealTime();

}  // namespace

