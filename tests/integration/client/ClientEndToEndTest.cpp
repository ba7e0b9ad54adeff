// A client built by the factory, over the host RSI client, against the backend simulator on
// loopback: the use cases as an application hears them, the entries' GET-compare-POST across
// clients, and releasing a client while events arrive.
#include "BackendSimulator.h"
#include "NetworkingSimulator.h"
#include "rsi/SharedRsiClient.h"
#include "rsi/host/HostRsiClient.h"
#include "support/LogCapture.h"
#include "support/RunStateRecorder.h"

#include <onlineservices/framework/OnlineServiceClientFactory.h>

#include <gtest/gtest.h>

#include <algorithm>
#include <atomic>
#include <condition_variable>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <map>
#include <thread>

namespace qel::test {
namespace {

using namespace onlineservices::framework;
using namespace onlineservices::framework::core;
using common::logging::LogLevel;
using RS = RunState;
using States = std::vector<RunState>;

constexpr char const* BACKEND = R"({
  "tokens": [{"id": "tok-nav", "name": "nav", "token": "first"}],
  "services": [{"id": "svc-nav", "name": "nav", "baseUrl": "https://nav.example.com"}],
  "privacyGroups": [{"name": "nav"}],
  "kvs": [{"id": "kvs-color", "name": "nav.color", "owner": "nav", "value": "red"},
          {"id": "kvs-size", "name": "nav.size", "owner": "nav", "value": "3"}]
})";

// Counts tokens and KVS values; lets the test wait for a number of them.
struct EventCounter : IServiceDataListener, IKVSListener {
    void onTokenChanged(std::string const&, std::string const&) override { count(); }
    void onKVSItemChanged(std::string const&, std::string const&) override { count(); }
    void count() {
        std::lock_guard<std::mutex> guard(mutex);
        ++events;
        changed.notify_all();
    }
    bool waitFor(int wanted, std::chrono::milliseconds limit = std::chrono::seconds(10)) {
        std::unique_lock<std::mutex> lock(mutex);
        return changed.wait_for(lock, limit, [&] { return events >= wanted; });
    }
    std::mutex mutex;
    std::condition_variable changed;
    int events = 0;  // guarded by mutex
};

// Voluntary context switches (each one a wait that blocked) of this process's threads, by thread id.
struct ThreadSwitches {
    std::string name;
    long count = 0;
};
std::map<std::string, ThreadSwitches> threadSwitches() {
    std::map<std::string, ThreadSwitches> threads;
    for (auto const& task : std::filesystem::directory_iterator("/proc/self/task")) {
        ThreadSwitches entry;
        std::ifstream(task.path() / "comm") >> entry.name;
        std::ifstream status(task.path() / "status");
        for (std::string line; std::getline(status, line);) {
            if (line.rfind("voluntary_ctxt_switches:", 0) == 0) {
                entry.count = std::stol(line.substr(line.find(':') + 1));
            }
        }
        threads[task.path().filename().string()] = entry;
    }
    return threads;
}

bool isItemQueue(std::string const& threadName) {
    for (auto const* tag : {"svc:", "tok:", "prv:", "kvs:", "job:"}) {
        if (threadName.rfind(tag, 0) == 0) {
            return true;
        }
    }
    return false;
}

// Switches per thread between two snapshots (threads in both only).
std::map<std::string, ThreadSwitches> switchesBetween(std::map<std::string, ThreadSwitches> const& before,
                                                      std::map<std::string, ThreadSwitches> const& after) {
    std::map<std::string, ThreadSwitches> delta;
    for (auto const& [id, entry] : after) {
        auto const earlier = before.find(id);
        if (earlier != before.end()) {
            delta[id] = ThreadSwitches{entry.name, entry.count - earlier->second.count};
        }
    }
    return delta;
}

struct Posts {
    std::size_t creates = 0;  // POST to a resource
    std::size_t updates = 0;  // POST to an element
};

class ClientEndToEndTest : public ::testing::Test {
protected:
    void SetUp() override {
        ASSERT_TRUE(simulator.loadScenario(BACKEND));
        ASSERT_TRUE(simulator.start());
        std::string pattern = ::testing::TempDir() + "client-e2e-XXXXXX";
        ASSERT_NE(mkdtemp(pattern.data()), nullptr);
        m_dir = pattern;
        // The networking service, in this process through the in-process binding.
        ASSERT_TRUE(networking.start());
    }
    void TearDown() override {
        networking.stop();
        simulator.stop();
        std::filesystem::remove_all(m_dir);
    }

    OnlineServiceClientConfig describe(std::string const& capabilityValue = "1") const {
        OnlineServiceClientConfig config;
        config.serviceIds = {"nav"};
        config.kvsItems = {"nav.color", "nav.size"};
        config.capabilities = {{"005F.nav.route", capabilityValue}, {"005F.nav.voice", "on"}};
        config.jobEntries = {std::make_shared<JobEntry>(JobEntry{"nav", "nav.xsd", "nav"})};
        config.operationEntries = {std::make_shared<OperationEntry>(OperationEntry{"vehicleState", "JSON", "s", "nav"})};
        config.iniFilePath = m_dir + "/framework.ini";
        return config;
    }

    // A factory-built client on a host RSI client of its own that talks to the simulator.
    std::shared_ptr<IOnlineServiceClient> build(OnlineServiceClientConfig const& config) {
        rsi::client::host::HostRsiClient::Options options;
        options.endpoint.port = simulator.port();
        options.requestTimeoutMs = 2000;
        options.subscribeTimeoutMs = 2000;
        rsi::client::SetSharedRsiClient(std::make_shared<rsi::client::host::HostRsiClient>(options));
        auto client = OnlineServiceClientFactory::createOnlineServiceClient(config);
        rsi::client::SetSharedRsiClient(nullptr);  // the client keeps its own
        if (client) {
            client->addRunStateListener(states);
        }
        return client;
    }

    Posts postsTo(std::string const& resource) const {
        Posts posts;
        for (auto const& message : simulator.received()) {
            if (message.channel == "http" && message.method == "POST" && message.target.rfind(resource, 0) == 0) {
                ++(message.target.size() > resource.size() + 1 ? posts.updates : posts.creates);
            }
        }
        return posts;
    }

    sim::backend::BackendSimulator simulator;
    sim::networking::NetworkingSimulator networking;
    std::shared_ptr<RunStateRecorder> states = std::make_shared<RunStateRecorder>();
    LogCapture log;
    std::string m_dir;
};

TEST_F(ClientEndToEndTest, UseCasesAreHeardInOrderWithTheirBanners) {
    auto client = build(describe());
    ASSERT_NE(client, nullptr);
    client->startup();
    EXPECT_EQ(states->take(RS::RESUMED), (States{RS::CREATED, RS::STARTED, RS::RESUMED}));
    EXPECT_EQ(log.count(LogLevel::Info, "------ RUNNING ------"), 1u);

    client->pauseConnection();
    EXPECT_EQ(states->take(RS::PAUSED), States{RS::PAUSED});
    client->unpauseConnection();
    EXPECT_EQ(states->take(RS::RESUMED), States{RS::RESUMED});

    ASSERT_TRUE(simulator.setDisableReasons("nav", {"license"}));
    EXPECT_EQ(states->take(RS::STOPPED), (States{RS::PAUSED, RS::STOPPED}));
    ASSERT_TRUE(simulator.setDisableReasons("nav", {}));
    EXPECT_EQ(states->take(RS::RESUMED), (States{RS::STARTED, RS::RESUMED}));

    client->stop();
    EXPECT_EQ(states->take(RS::DESTROYED), States{RS::DESTROYED});
    EXPECT_EQ(log.count(LogLevel::Info, "------ NOT RUNNING ------"), 1u);
    client->stop();
    EXPECT_EQ(log.count(LogLevel::Info, "------ NOT RUNNING ------"), 1u);
}

TEST_F(ClientEndToEndTest, DisconnectFollowsTheOcuStateAndNetworkingIsDroppedOnStop) {
    auto client = build(describe());
    client->startup();
    ASSERT_EQ(states->take(RS::RESUMED), (States{RS::CREATED, RS::STARTED, RS::RESUMED}));
    ASSERT_TRUE(networking.waitForCalls(1));
    EXPECT_EQ(networking.calls().front().method, "getInternetAccess");
    EXPECT_EQ(networking.calls().front().serviceId, "nav");

    networking.setOcuAvailable(false);
    EXPECT_EQ(states->take(RS::DISCONNECTED), States{RS::DISCONNECTED});
    networking.setOcuAvailable(true);
    EXPECT_EQ(states->take(RS::RESUMED), (States{RS::CREATED, RS::STARTED, RS::RESUMED}));

    std::size_t const callsBefore = networking.calls().size();
    client->pauseConnection();  // gives the access up, without waiting for the service
    EXPECT_EQ(states->take(RS::PAUSED), States{RS::PAUSED});
    ASSERT_TRUE(networking.waitForCalls(callsBefore + 1));
    auto const calls = networking.calls();
    EXPECT_TRUE(std::any_of(calls.begin() + static_cast<std::ptrdiff_t>(callsBefore), calls.end(), [](auto const& call) {
        return call.method == "dropInternetAccess" && call.serviceId == "nav";
    }));
    client->stop();
    EXPECT_EQ(states->take(RS::DESTROYED), States{RS::DESTROYED});
}

TEST_F(ClientEndToEndTest, EntriesAreWrittenOnceAndASecondClientOnlyReadsThem) {
    auto first = build(describe());
    first->startup();
    ASSERT_EQ(states->take(RS::RESUMED).back(), RS::RESUMED);
    first.reset();
    EXPECT_EQ(postsTo("/capabilitiesmanagement/capabilities").creates, 2u);
    EXPECT_EQ(postsTo("/backendjobs/jobEntries").creates, 1u);
    EXPECT_EQ(postsTo("/backendjobs/operationEntries").creates, 1u);

    simulator.clearReceived();
    auto second = build(describe());
    second->startup();
    ASSERT_EQ(states->take(RS::RESUMED).back(), RS::RESUMED);
    second.reset();
    for (auto const* resource :
         {"/capabilitiesmanagement/capabilities", "/backendjobs/jobEntries", "/backendjobs/operationEntries"}) {
        Posts const posts = postsTo(resource);
        EXPECT_EQ(posts.creates + posts.updates, 0u) << resource;
    }

    // A capability whose value changed is written again; the unchanged one is not.
    simulator.clearReceived();
    auto third = build(describe("2"));
    third->startup();
    ASSERT_EQ(states->take(RS::RESUMED).back(), RS::RESUMED);
    third.reset();
    auto const received = simulator.received();
    auto const writesOf = [&](std::string const& value) {
        return std::count_if(received.begin(), received.end(), [&](auto const& message) {
            return message.method == "POST" && message.target.rfind("/capabilitiesmanagement/capabilities", 0) == 0 &&
                   message.body.find(value) != std::string::npos;
        });
    };
    EXPECT_EQ(writesOf(R"("value":"2")"), 1);
    EXPECT_EQ(writesOf(R"("value":"on")"), 0);
}

TEST_F(ClientEndToEndTest, AnIdleClientWakesItsWorkerAtMostOncePerSecondAndItsItemsNever) {
    auto client = build(describe());
    client->startup();
    ASSERT_EQ(states->take(RS::RESUMED).back(), RS::RESUMED);
    // The initial events are being processed still; idle is when the item threads went quiet.
    auto const itemSwitches = [](std::map<std::string, ThreadSwitches> const& threads) {
        long sum = 0;
        for (auto const& [id, entry] : threads) {
            sum += isItemQueue(entry.name) ? entry.count : 0;
        }
        return sum;
    };
    auto settled = threadSwitches();
    for (int check = 0; check < 50; ++check) {
        std::this_thread::sleep_for(std::chrono::milliseconds(100));
        auto const now = threadSwitches();
        bool const quiet = itemSwitches(now) == itemSwitches(settled) && now.size() == settled.size();
        settled = now;
        if (quiet) {
            break;
        }
    }

    std::this_thread::sleep_for(std::chrono::milliseconds(1000));  // the idle window
    auto const window = switchesBetween(settled, threadSwitches());
    long workerWakeUps = -1;
    int itemQueues = 0;
    for (auto const& [id, entry] : window) {
        if (isItemQueue(entry.name)) {
            ++itemQueues;
            EXPECT_EQ(entry.count, 0) << entry.name << " woke up while idle";
        } else if (entry.name == "framework_nav.R") {  // the RSI worker, named after the client's logger
            workerWakeUps = entry.count;
        }
    }
    // Service, token, privacy, two KVS and the job item: each had its initial event.
    EXPECT_EQ(itemQueues, 6);
    // One wait of up to 1000 ms per loop: at most one ends inside the window (two when the window
    // meets a loop on both of its edges).
    EXPECT_GE(workerWakeUps, 0);
    EXPECT_LE(workerWakeUps, 2);
    RecordProperty("worker_wakeups_per_second", static_cast<int>(workerWakeUps));
    client->stop();
}

TEST_F(ClientEndToEndTest, DestroyClientWhileEventsArrive) {
    auto client = build(describe());
    auto services = std::make_shared<EventCounter>();
    client->addServiceDataListener(services);
    client->addKVSListener(services);
    client->startup();
    ASSERT_EQ(states->take(RS::RESUMED).back(), RS::RESUMED);

    std::atomic<bool> done{false};
    std::thread backend([&] {
        for (int round = 0; !done; ++round) {
            simulator.setKvsValue("kvs-color", "c" + std::to_string(round));
            simulator.rotateToken("tok-nav");
        }
    });
    EXPECT_TRUE(services->waitFor(20));
    client.reset();  // on the application's thread, while events keep coming
    done = true;
    backend.join();
    // Once released, the client calls no listener any more.
    int const heard = [&] {
        std::lock_guard<std::mutex> guard(services->mutex);
        return services->events;
    }();
    simulator.setKvsValue("kvs-color", "after");
    simulator.rotateToken("tok-nav");
    EXPECT_FALSE(services->waitFor(heard + 1, std::chrono::milliseconds(200)));
}

}  // namespace
}  // namespace qel::test
