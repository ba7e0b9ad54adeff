// A client built by the factory, over the host RSI client, against the backend simulator on
// loopback: the use cases as an application hears them, the entries' GET-compare-POST across
// clients, and releasing a client while events arrive.
#include "BackendSimulator.h"
#include "NetworkingSimulator.h"
#include "rsi/SharedRsiClient.h"
#include "rsi/host/HostRsiClient.h"
#include "support/LogCapture.h"
#include "support/RsiRecorders.h"
#include "support/RunStateRecorder.h"

#include <onlineservices/framework/OnlineServiceClientFactory.h>

#include <gtest/gtest.h>

#include <algorithm>
#include <atomic>
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

// Counts tokens and KVS values.
struct EventCounter : IServiceDataListener, IKVSListener {
    void onTokenChanged(std::string const&, std::string const&) override { events.add(1); }
    void onKVSItemChanged(std::string const&, std::string const&) override { events.add(1); }
    Recorder<int> events;
};

// Voluntary context switches (each one a wait that blocked) of this process's threads: id -> (name, count).
using Switches = std::map<std::string, std::pair<std::string, long>>;
Switches threadSwitches() {
    Switches threads;
    for (auto const& task : std::filesystem::directory_iterator("/proc/self/task")) {
        auto& [name, count] = threads[task.path().filename().string()];
        std::ifstream(task.path() / "comm") >> name;
        std::ifstream status(task.path() / "status");
        for (std::string line; std::getline(status, line);) {
            if (line.rfind("voluntary_ctxt_switches:", 0) == 0) {
                count = std::stol(line.substr(line.find(':') + 1));
            }
        }
    }
    return threads;
}

bool isItemQueue(std::string const& threadName) {
    auto const tags = {"svc:", "tok:", "prv:", "kvs:", "job:"};
    return std::any_of(tags.begin(), tags.end(), [&](char const* tag) { return threadName.rfind(tag, 0) == 0; });
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

    // POSTs below `resource` whose body holds `bodyPart`.
    Posts postsTo(std::string const& resource, std::string const& bodyPart = "") const {
        Posts posts;
        for (auto const& message : simulator.received()) {
            if (message.channel == "http" && message.method == "POST" && message.target.rfind(resource, 0) == 0 &&
                message.body.find(bodyPart) != std::string::npos) {
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

TEST_F(ClientEndToEndTest, UseCasesAreHeardInOrderWithTheirBannersAndNetworkingFollowsThem) {
    auto client = build(describe());
    ASSERT_NE(client, nullptr);
    client->startup();
    EXPECT_EQ(states->take(RS::RESUMED), (States{RS::CREATED, RS::STARTED, RS::RESUMED}));
    EXPECT_EQ(log.count(LogLevel::Info, "------ RUNNING ------"), 1u);
    ASSERT_TRUE(networking.waitForCalls(1));
    EXPECT_EQ(networking.calls().front().method + " " + networking.calls().front().serviceId, "getInternetAccess nav");

    std::size_t const callsBefore = networking.calls().size();
    client->pauseConnection();  // gives the access up, without waiting for the service
    EXPECT_EQ(states->take(RS::PAUSED), States{RS::PAUSED});
    ASSERT_TRUE(networking.waitForCalls(callsBefore + 1));
    auto const calls = networking.calls();
    EXPECT_TRUE(std::any_of(calls.begin() + static_cast<std::ptrdiff_t>(callsBefore), calls.end(), [](auto const& call) {
        return call.method == "dropInternetAccess" && call.serviceId == "nav";
    }));
    networking.setOcuAvailable(false);
    networking.setOcuAvailable(true);  // a paused client goes back to pausing
    EXPECT_EQ(states->take(RS::PAUSED), (States{RS::DISCONNECTED, RS::CREATED, RS::STARTED, RS::PAUSED}));
    client->unpauseConnection();
    EXPECT_EQ(states->take(RS::RESUMED), States{RS::RESUMED});

    ASSERT_TRUE(simulator.setDisableReasons("nav", {"license"}));
    EXPECT_EQ(states->take(RS::STOPPED), (States{RS::PAUSED, RS::STOPPED}));
    ASSERT_TRUE(simulator.setDisableReasons("nav", {}));
    EXPECT_EQ(states->take(RS::RESUMED), (States{RS::STARTED, RS::RESUMED}));

    networking.setOcuAvailable(false);
    EXPECT_EQ(states->take(RS::DISCONNECTED), States{RS::DISCONNECTED});
    networking.setOcuAvailable(true);
    EXPECT_EQ(states->take(RS::RESUMED), (States{RS::CREATED, RS::STARTED, RS::RESUMED}));
    EXPECT_EQ(log.count(LogLevel::Info, "NETW Event: ocu is not available"), 2u);
    EXPECT_EQ(log.count(LogLevel::Info, "NETW Event: ocu is available"), 2u);

    client->stop();
    EXPECT_EQ(states->take(RS::DESTROYED), States{RS::DESTROYED});
    EXPECT_EQ(log.count(LogLevel::Info, "------ NOT RUNNING ------"), 1u);
    client->stop();
    EXPECT_EQ(log.count(LogLevel::Info, "------ NOT RUNNING ------"), 1u);
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
    Posts const changed = postsTo("/capabilitiesmanagement/capabilities", R"("value":"2")");
    Posts const unchanged = postsTo("/capabilitiesmanagement/capabilities", R"("value":"on")");
    EXPECT_EQ(changed.creates + changed.updates, 1u);
    EXPECT_EQ(unchanged.creates + unchanged.updates, 0u);
}

TEST_F(ClientEndToEndTest, AnIdleClientWakesItsWorkerAtMostOncePerSecondAndItsItemsNever) {
    auto client = build(describe());
    client->startup();
    ASSERT_EQ(states->take(RS::RESUMED).back(), RS::RESUMED);
    // The initial events are being processed still; idle is when the item threads went quiet.
    auto const itemSwitches = [](Switches const& threads) {
        long sum = 0;
        for (auto const& [id, entry] : threads) {
            sum += isItemQueue(entry.first) ? entry.second : 0;
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
    long workerWakeUps = -1;
    int itemQueues = 0;
    for (auto const& [id, entry] : threadSwitches()) {
        auto const before = settled.find(id);
        if (before == settled.end()) {
            continue;  // threads in both snapshots only
        }
        long const woke = entry.second - before->second.second;
        if (isItemQueue(entry.first)) {
            ++itemQueues;
            EXPECT_EQ(woke, 0) << entry.first << " woke up while idle";
        } else if (entry.first == "framework_nav.R") {  // the RSI worker, named after the client's logger
            workerWakeUps = woke;
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
    EXPECT_TRUE(services->events.waitFor(20, 10000));
    client.reset();  // on the application's thread, while events keep coming
    done = true;
    backend.join();
    // Once released, the client calls no listener any more.
    std::size_t const heard = services->events.size();
    simulator.setKvsValue("kvs-color", "after");
    simulator.rotateToken("tok-nav");
    EXPECT_FALSE(services->events.waitFor(heard + 1, 200));
}

}  // namespace
}  // namespace qel::test
