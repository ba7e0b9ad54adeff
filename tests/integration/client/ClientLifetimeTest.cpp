// Letting a factory-built client go at the moments that have bitten: while RESUMED is delivered
// on the networking retry thread, without `stop`, in an event flood, from inside a listener; and
// a binding dispatcher released on its own thread.
#include "BackendSimulator.h"
#include "NetworkingSimulator.h"
#include "commonapi/EventDispatcher.h"
#include "common/Thread.h"
#include "rsi/SharedRsiClient.h"
#include "rsi/host/HostRsiClient.h"
#include "subscriptions/SubscriptionManager.h"
#include "support/LogCapture.h"
#include "support/RunStateRecorder.h"

#include <onlineservices/framework/OnlineServiceClientFactory.h>

#include <gtest/gtest.h>

#include <algorithm>
#include <atomic>
#include <chrono>
#include <condition_variable>
#include <filesystem>
#include <fstream>
#include <mutex>
#include <thread>

namespace qel::test {
namespace {

using namespace onlineservices::framework;
using namespace onlineservices::framework::core;
using common::logging::LogLevel;
using v1::qel::networking::api::definitions::ResultCodes_e;
using RS = RunState;
using States = std::vector<RunState>;
using Clock = std::chrono::steady_clock;

constexpr char const* BACKEND = R"({
  "tokens": [{"id": "tok-nav", "name": "nav", "token": "first"}],
  "services": [{"id": "svc-nav", "name": "nav", "baseUrl": "https://nav.example.com"}],
  "privacyGroups": [{"name": "nav"}],
  "kvs": [{"id": "kvs-color", "name": "nav.color", "owner": "nav", "value": "red"}]
})";

// Names of this process's threads that the framework started for a client.
std::vector<std::string> clientThreads() {
    std::vector<std::string> names;
    for (auto const& task : std::filesystem::directory_iterator("/proc/self/task")) {
        std::string name;
        std::ifstream(task.path() / "comm") >> name;
        for (auto const* prefix : {"RetryRequest", "framework", "Teardown", "svc:", "tok:", "prv:", "kvs:", "job:"}) {
            if (name.rfind(prefix, 0) == 0) {
                names.push_back(name);
            }
        }
    }
    return names;
}

// Waits (real time, as a safety limit) until `done` holds; for work of other threads.
template <typename Predicate>
bool eventually(Predicate done, int limitMs = 5000) {
    auto const deadline = Clock::now() + std::chrono::milliseconds(limitMs);
    while (!done()) {
        if (Clock::now() > deadline) {
            return false;
        }
        std::this_thread::yield();
    }
    return true;
}

// A joined thread can still be listed in /proc for a moment (long under an emulator), so the
// listing is given a short while to catch up; a thread that is still running fails it.
bool threadsGone() {
    return eventually([] { return clientThreads().empty(); }, 1000);
}

// Holds the first RESUMED until the test lets it go; records the thread it was heard on.
struct HoldingListener : IRunStateListener {
    void onRunStateChanged(RunState state) override {
        std::unique_lock<std::mutex> lock(mutex);
        heard.push_back(state);
        if (state == RS::RESUMED && thread.empty()) {
            thread = common::system::currentThreadName();
            changed.notify_all();
            changed.wait_for(lock, std::chrono::seconds(10), [this] { return letGo; });
        }
        changed.notify_all();
    }
    bool waitHolding() {
        std::unique_lock<std::mutex> lock(mutex);
        return changed.wait_for(lock, std::chrono::seconds(10), [this] { return !thread.empty(); });
    }
    void release() {
        std::lock_guard<std::mutex> guard(mutex);
        letGo = true;
        changed.notify_all();
    }
    std::mutex mutex;
    std::condition_variable changed;
    std::vector<RunState> heard;  // guarded by mutex
    std::string thread;           // guarded by mutex
    bool letGo = false;           // guarded by mutex
};

struct SlowKvsListener : IKVSListener {
    void onKVSItemChanged(std::string const&, std::string const&) override {
        std::this_thread::sleep_for(std::chrono::milliseconds(2));  // an application that takes its time
        calls.fetch_add(1);
    }
    std::atomic<int> calls{0};
};

class ClientLifetimeTest : public ::testing::Test {
protected:
    void SetUp() override {
        SubscriptionManager::setDefaultNetworkingRetryInterval(5);
        ASSERT_TRUE(simulator.loadScenario(BACKEND));
        ASSERT_TRUE(simulator.start());
        std::string pattern = ::testing::TempDir() + "client-life-XXXXXX";
        ASSERT_NE(mkdtemp(pattern.data()), nullptr);
        m_dir = pattern;
        ASSERT_TRUE(networking.start());
    }
    void TearDown() override {
        networking.stop();
        simulator.stop();
        std::filesystem::remove_all(m_dir);
        SubscriptionManager::setDefaultNetworkingRetryInterval(SubscriptionManager::NETWORKING_RETRY_INTERVAL_MS);
    }

    std::shared_ptr<IOnlineServiceClient> build() {
        OnlineServiceClientConfig config;
        config.serviceIds = {"nav"};
        config.kvsItems = {"nav.color"};
        config.iniFilePath = m_dir + "/framework.ini";
        rsi::client::host::HostRsiClient::Options options;
        options.endpoint.port = simulator.port();
        rsi::client::SetSharedRsiClient(std::make_shared<rsi::client::host::HostRsiClient>(options));
        auto client = OnlineServiceClientFactory::createOnlineServiceClient(config);
        rsi::client::SetSharedRsiClient(nullptr);
        if (client) {
            client->addRunStateListener(states);
        }
        return client;
    }

    sim::backend::BackendSimulator simulator;
    sim::networking::NetworkingSimulator networking;
    std::shared_ptr<RunStateRecorder> states = std::make_shared<RunStateRecorder>();
    LogCapture log;
    std::string m_dir;
};

TEST_F(ClientLifetimeTest, ReleaseWhileResumedIsDelivered) {
    // Networking arrives last, on its retry thread: refused until every other condition is met.
    networking.refuse("nav", ResultCodes_e::NOT_ALLOWED);
    auto client = build();
    ASSERT_NE(client, nullptr);
    auto const holding = std::make_shared<HoldingListener>();
    client->addRunStateListener(holding);
    client->startup();
    ASSERT_TRUE(eventually([&] {
        return log.countPrefix(LogLevel::Info, "Condition event: SUBSCRIBED_TOKENMANAGEMENT : true") > 0 &&
               log.countPrefix(LogLevel::Info, "Condition event: SUBSCRIBED_KVS : true") > 0;
    }));
    networking.grant("nav");
    ASSERT_TRUE(holding->waitHolding());
    EXPECT_EQ(holding->thread, "RetryRequestThr");

    std::atomic<bool> released{false};
    std::thread application([&] {
        client.reset();
        released = true;
    });
    // The release waits for the listener it found running.
    EXPECT_FALSE(eventually([&] { return released.load(); }, 100));
    holding->release();
    application.join();

    EXPECT_EQ(holding->heard, (States{RS::CREATED, RS::STARTED, RS::RESUMED, RS::DESTROYED}));
    EXPECT_TRUE(threadsGone()) << ::testing::PrintToString(clientThreads());
    EXPECT_EQ(log.countPrefix(LogLevel::Error, "Thread RetryRequestThread destroyed from itself"), 0u);
}

TEST_F(ClientLifetimeTest, ReleaseWithoutStopReportsDestroyed) {
    auto client = build();
    ASSERT_NE(client, nullptr);
    client->startup();
    ASSERT_EQ(states->take(RS::RESUMED).back(), RS::RESUMED);
    client.reset();
    EXPECT_EQ(states->take(), States{RS::DESTROYED});
    EXPECT_TRUE(threadsGone()) << ::testing::PrintToString(clientThreads());
    // The networking access was given back.
    ASSERT_TRUE(networking.waitForCalls(2));
    EXPECT_EQ(networking.calls().back().method, "dropInternetAccess");
}

TEST_F(ClientLifetimeTest, ReleaseDuringEventFlood) {
    auto client = build();
    ASSERT_NE(client, nullptr);
    auto const kvs = std::make_shared<SlowKvsListener>();
    client->addKVSListener(kvs);
    client->startup();
    ASSERT_EQ(states->take(RS::RESUMED).back(), RS::RESUMED);

    std::atomic<bool> flooding{true};
    std::thread backend([&] {
        for (int round = 0; flooding; ++round) {
            simulator.setKvsValue("kvs-color", "c" + std::to_string(round));
        }
    });
    while (kvs->calls.load() < 20) {
        std::this_thread::yield();
    }
    auto const start = Clock::now();
    client.reset();
    auto const releaseMs = std::chrono::duration_cast<std::chrono::milliseconds>(Clock::now() - start).count();
    int const callsAtRelease = kvs->calls.load();
    flooding = false;
    backend.join();
    // 100 ms of queued events plus one listener call, with room for a slow sanitizer build.
    EXPECT_LT(releaseMs, 1000);
    EXPECT_EQ(kvs->calls.load(), callsAtRelease);
    EXPECT_EQ(states->take(), States{RS::DESTROYED});
    EXPECT_TRUE(threadsGone()) << ::testing::PrintToString(clientThreads());
}

TEST_F(ClientLifetimeTest, LastHandleDroppedInsideAListenerIsTornDownElsewhere) {
    struct Owner : IRunStateListener {
        void onRunStateChanged(RunState state) override {
            if (state == RS::RESUMED) {
                client.reset();  // against the contract: the last handle, on a framework thread
            }
        }
        std::shared_ptr<IOnlineServiceClient> client;
    };
    auto const owner = std::make_shared<Owner>();
    owner->client = build();
    ASSERT_NE(owner->client, nullptr);
    owner->client->addRunStateListener(owner);
    owner->client->startup();
    EXPECT_EQ(states->take(RS::DESTROYED).back(), RS::DESTROYED);
    EXPECT_EQ(log.countPrefix(LogLevel::Warning, "Client handle released on framework thread"), 1u);
    // The teardown thread joins the others, then ends itself; the next release joins it.
    ASSERT_TRUE(eventually([] {
        auto const threads = clientThreads();
        return std::all_of(threads.begin(), threads.end(), [](auto const& name) { return name == "Teardown"; });
    }));
    common::system::joinRetiredThreads();
    EXPECT_TRUE(threadsGone()) << ::testing::PrintToString(clientThreads());
}

TEST(DispatcherLifetime, DispatcherReleasedOnItsOwnThread) {
    LogCapture log;
    auto holder = std::make_shared<std::shared_ptr<CommonAPI::EventDispatcher>>(
        std::make_shared<CommonAPI::EventDispatcher>("life-dispatch"));
    std::atomic<bool> ran{false};
    (*holder)->post([holder, &ran] {
        holder->reset();  // the last reference, on the dispatcher's own thread
        ran = true;
    });
    holder.reset();
    ASSERT_TRUE(eventually([&] { return ran.load(); }));
    ASSERT_TRUE(eventually(
        [&] { return log.countPrefix(LogLevel::Warning, "Dispatcher thread released on itself") == 1; }));
    common::system::joinRetiredThreads();
    for (auto const& task : std::filesystem::directory_iterator("/proc/self/task")) {
        std::string name;
        std::ifstream(task.path() / "comm") >> name;
        EXPECT_NE(name, "life-dispatch");
    }
}

}  // namespace
}  // namespace qel::test
