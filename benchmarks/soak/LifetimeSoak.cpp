// Soak: many client lives, each let go at a random moment, against the backend simulator and the
// in-process networking binding. Not part of the test suite. Run by hand or from CI:
//   scripts/lifetime-soak.sh [preset] [lives] [first seed]
//   build/<preset>/benchmarks/soak/qel_lifetime_soak [--lives N] [--seed S] [--batch B]
// Life i uses seed S+i, so one failing moment is replayed with `--seed <its seed> --lives 1`.
// Lives run in child processes, `--batch` lives per child, so a crash ends one child and is
// counted, and the next child goes on with the following seed. Counted per life: crashes (a
// child ended by a signal or a sanitizer report), hangs (a release over 2 s, or a child silent
// for 20 s), framework threads still running when the release returned, threads and file
// descriptors of the process above the baseline once the simulators settled, and listener
// calls after the release returned. Prints release-time p99 and maximum, with and without an
// event flood. Exit status 0 only when every count is 0.
#include "BackendSimulator.h"
#include "NetworkingSimulator.h"
#include "common/Logger.h"
#include "common/Thread.h"
#include "rsi/SharedRsiClient.h"
#include "rsi/host/HostRsiClient.h"
#include "subscriptions/SubscriptionManager.h"

#include <onlineservices/framework/OnlineServiceClientFactory.h>

#include <algorithm>
#include <csignal>
#include <atomic>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <mutex>
#include <random>
#include <string>
#include <thread>
#include <vector>

#include <execinfo.h>
#include <poll.h>
#include <sys/wait.h>
#include <unistd.h>

namespace {

namespace fw = qel::onlineservices::framework;
namespace core = qel::onlineservices::framework::core;
using core::RunState;
using Clock = std::chrono::steady_clock;
using ResultCodes = v1::qel::networking::api::definitions::ResultCodes_e;

constexpr char const* BACKEND = R"({
  "tokens": [{"id": "tok-nav", "name": "nav", "token": "t0"}],
  "services": [{"id": "svc-nav", "name": "nav", "baseUrl": "https://nav.example.com"}],
  "privacyGroups": [{"id": "prv-nav", "name": "nav"}],
  "kvs": [{"id": "kvs-1", "name": "nav.color", "owner": "nav", "value": "red"}]
})";

enum Moment {
    DURING_STARTUP,
    INSIDE_RESUMED_LISTENER,
    RIGHT_AFTER_RESUMED,
    EVENT_FLOOD,
    NETWORKING_RETRYING,
    KVS_UPDATE_STALLED,
    JOB_ACKNOWLEDGEMENT,
    LINK_DROP,
    LISTENER_HOLDS_CLIENT,
    MOMENTS
};
char const* const MOMENT_NAMES[] = {"startup",       "in-resumed-listener", "after-resumed",
                                    "flood",         "networking-retrying", "kvs-update-stalled",
                                    "job-ack",       "link-drop",           "listener-holds-client"};

long countEntries(char const* directory) {
    long count = 0;
    for ([[maybe_unused]] auto const& entry : std::filesystem::directory_iterator(directory)) {
        ++count;
    }
    return count;
}

// Threads a client starts that have not finished; none may outlive its release. A teardown
// thread counts unless `withTeardown` is false. The platform's threads (the RSI client's, the
// networking binding's dispatcher) belong to the rig, which outlives the release.
int frameworkThreads(bool withTeardown = true, std::string* names = nullptr) {
    std::vector<std::string> running = qel::common::system::runningFrameworkThreads();
    if (withTeardown) {
        // Teardown threads are not framework threads; they are found by name.
        for (auto const& task : std::filesystem::directory_iterator("/proc/self/task")) {
            std::string name;
            std::ifstream(task.path() / "comm") >> name;
            if (name == "Teardown") {
                running.push_back(name);
            }
        }
    }
    int count = 0;
    for (auto const& name : running) {
        for (auto const* prefix : {"RetryRequest", "framework", "Teardown", "svc:", "tok:", "prv:", "kvs:", "job:"}) {
            if (name.rfind(prefix, 0) == 0) {
                ++count;
                if (names) {
                    *names += " " + name;
                }
            }
        }
    }
    return count;
}

// Every listener of a life; counts calls that come after the release returned.
struct Listeners : core::IRunStateListener, core::IKVSListener, core::IServiceDataListener, core::IBackendJobListener {
    void onRunStateChanged(RunState state) override {
        noteCall();
        if (state == RunState::RESUMED) {
            inResumed = true;
            resumedSeen = true;
            pause(resumedPauseUs);
            inResumed = false;
        }
        if (state == RunState::DESTROYED) {
            destroyed = true;
        }
        if (dropHolderOn == state) {
            takeHolder().reset();  // against the contract: may be the last handle, on a framework thread
        }
    }
    void onKVSItemChanged(std::string const&, std::string const&) override {
        noteCall();
        kvsEvents.fetch_add(1);
        pause(eventPauseUs);
    }
    void onTokenChanged(std::string const&, std::string const&) override { noteCall(); }
    core::BackendJobAcknowledgeCode onBackendJobReceived(std::shared_ptr<fw::dataitems::JobObject> const&) override {
        noteCall();
        jobs.fetch_add(1);
        pause(eventPauseUs);
        return core::BackendJobAcknowledgeCode::SUCCESS;
    }
    std::shared_ptr<core::IOnlineServiceClient> takeHolder() {
        std::lock_guard<std::mutex> guard(holderMutex);
        return std::move(holder);
    }
    void noteCall() {
        if (released.load()) {
            lateCalls.fetch_add(1);
        }
    }
    static void pause(int us) {
        if (us > 0) {
            std::this_thread::sleep_for(std::chrono::microseconds(us));
        }
    }
    // Set by the main thread while framework threads may already be calling.
    std::atomic<int> resumedPauseUs{0}, eventPauseUs{0};
    std::atomic<bool> inResumed{false}, resumedSeen{false}, destroyed{false}, released{false};
    std::atomic<int> kvsEvents{0}, jobs{0}, lateCalls{0};
    std::mutex holderMutex;
    std::shared_ptr<core::IOnlineServiceClient> holder;  // under holderMutex; LISTENER_HOLDS_CLIENT only
    std::atomic<RunState> dropHolderOn{RunState::INVALID};
};

bool waitFor(std::function<bool()> const& done, int limitMs) {
    auto const deadline = Clock::now() + std::chrono::milliseconds(limitMs);
    while (!done()) {
        if (Clock::now() > deadline) {
            return false;
        }
        std::this_thread::sleep_for(std::chrono::microseconds(200));
    }
    return true;
}

struct Life {
    long releaseUs = 0;
    bool flood = false;
    int frameworkThreadsLeft = 0;
    int lateCalls = 0;
    std::string threadNames;  // of the framework threads left
};

class Rig {
public:
    bool start() {
        std::string pattern = std::filesystem::temp_directory_path().string() + "/qel-lifetime-XXXXXX";
        if (!mkdtemp(pattern.data())) {
            return false;
        }
        m_dir = pattern;
        core::SubscriptionManager::setDefaultNetworkingRetryInterval(5);
        return backend.loadScenario(BACKEND) && backend.start() && networking.start();
    }
    ~Rig() {
        networking.stop();
        backend.stop();
        std::filesystem::remove_all(m_dir);
    }

    // The platform's RSI client lives for the process on a head unit, longer than any framework
    // client; each life gets its own here, held by the rig until the life's release was checked.
    std::shared_ptr<core::IOnlineServiceClient> build(std::shared_ptr<qel::rsi::client::ISharedRsiClient>& rsiClient) {
        core::OnlineServiceClientConfig config;
        config.serviceIds = {"nav"};
        config.kvsItems = {"nav.color"};
        config.jobEntries = {std::make_shared<core::JobEntry>(core::JobEntry{"nav", "nav.xsd", "nav"})};
        config.iniFilePath = m_dir + "/framework.ini";
        qel::rsi::client::host::HostRsiClient::Options options;
        options.endpoint.port = backend.port();
        options.requestTimeoutMs = 1000;
        options.subscribeTimeoutMs = 1000;
        rsiClient = std::make_shared<qel::rsi::client::host::HostRsiClient>(options);
        qel::rsi::client::SetSharedRsiClient(rsiClient);
        auto client = core::OnlineServiceClientFactory::createOnlineServiceClient(config);
        qel::rsi::client::SetSharedRsiClient(nullptr);
        return client;
    }

    Life live(std::uint32_t seed, Moment moment);

    qel::sim::backend::BackendSimulator backend;
    qel::sim::networking::NetworkingSimulator networking;

private:
    std::string m_dir;
};

Life Rig::live(std::uint32_t seed, Moment moment) {
    std::mt19937 random(seed);
    auto const uniform = [&random](int low, int high) { return std::uniform_int_distribution<int>(low, high)(random); };
    Life life;
    auto const listeners = std::make_shared<Listeners>();
    listeners->resumedPauseUs = uniform(0, 3000);
    listeners->eventPauseUs = uniform(0, 3000);
    bool const stopFirst = uniform(0, 1) == 1;
    if (moment == NETWORKING_RETRYING) {
        networking.refuse("nav", ResultCodes::NOT_ALLOWED, static_cast<std::uint32_t>(uniform(1, 8)));
    }
    std::shared_ptr<qel::rsi::client::ISharedRsiClient> rsiClient;
    auto client = build(rsiClient);
    if (!client) {
        std::fprintf(stderr, "seed %u: no client\n", seed);
        std::exit(3);
    }
    client->addRunStateListener(listeners);
    client->addKVSListener(listeners);
    client->addServiceDataListener(listeners);
    client->setBackendJobListener(listeners);
    client->startup();

    std::atomic<bool> pushing{false};
    std::thread pusher;
    std::thread updater;
    std::shared_ptr<core::IOnlineServiceClient> updaterHandle;
    long updaterReleaseUs = 0;
    auto const resumed = [&] { return waitFor([&] { return listeners->resumedSeen.load(); }, 5000); };
    switch (moment) {
    case DURING_STARTUP:
        Listeners::pause(uniform(0, 3000));
        break;
    case INSIDE_RESUMED_LISTENER:
        listeners->resumedPauseUs = uniform(1000, 5000);
        waitFor([&] { return listeners->inResumed.load(); }, 5000);
        break;
    case RIGHT_AFTER_RESUMED:
        resumed();
        break;
    case EVENT_FLOOD:
        resumed();
        life.flood = true;
        pushing = true;
        pusher = std::thread([&] {
            for (int round = 0; pushing; ++round) {
                backend.setKvsValue("kvs-1", "v" + std::to_string(round));
            }
        });
        waitFor([&] { return listeners->kvsEvents.load() > 0; }, 2000);
        Listeners::pause(uniform(0, 20000));
        break;
    case NETWORKING_RETRYING:
        Listeners::pause(uniform(0, 15000));
        break;
    case KVS_UPDATE_STALLED:
        resumed();
        backend.delayAnswers("*", static_cast<std::uint32_t>(uniform(50, 400)));
        updaterHandle = client;
        updater = std::thread([&updaterHandle, &updaterReleaseUs] {
            updaterHandle->updateKVSItem("nav.color", "blue");
            auto const start = Clock::now();
            updaterHandle.reset();  // the release, if the main thread let go first
            updaterReleaseUs = std::chrono::duration_cast<std::chrono::microseconds>(Clock::now() - start).count();
        });
        Listeners::pause(uniform(0, 5000));
        break;
    case JOB_ACKNOWLEDGEMENT:
        resumed();
        backend.pushJob(R"({"name":"nav"})");
        Listeners::pause(uniform(0, 5000));
        break;
    case LINK_DROP:
        resumed();
        backend.closeAllWebSockets();
        Listeners::pause(uniform(0, 10000));
        break;
    case LISTENER_HOLDS_CLIENT:
        listeners->dropHolderOn = uniform(0, 1) == 1 ? RunState::RESUMED : RunState::DESTROYED;
        {
            std::lock_guard<std::mutex> guard(listeners->holderMutex);
            listeners->holder = client;
        }
        Listeners::pause(uniform(0, 5000));
        break;
    case MOMENTS:
        break;
    }

    auto const start = Clock::now();
    if (stopFirst) {
        client->stop();
    }
    client.reset();
    life.releaseUs = std::chrono::duration_cast<std::chrono::microseconds>(Clock::now() - start).count();
    if (updater.joinable()) {
        updater.join();  // its handle may have been the last one: then its drop was the release
        life.releaseUs = std::max(life.releaseUs, updaterReleaseUs);
    }
    if (moment != LISTENER_HOLDS_CLIENT) {
        life.frameworkThreadsLeft = frameworkThreads(true, &life.threadNames);
        listeners->released = true;
    }
    pushing = false;
    if (pusher.joinable()) {
        pusher.join();
    }
    if (moment == LISTENER_HOLDS_CLIENT) {
        // The handle may still be held (no RESUMED yet) or torn down on a teardown thread.
        listeners->takeHolder().reset();
        // A teardown thread joins the others before it ends; then it is joined here.
        waitFor([] { return frameworkThreads(false) == 0; }, 2000);
        qel::common::system::joinRetiredThreads();
        life.releaseUs = std::chrono::duration_cast<std::chrono::microseconds>(Clock::now() - start).count();
        life.frameworkThreadsLeft = frameworkThreads(true, &life.threadNames);
        listeners->released = true;
    }
    backend.delayAnswers("*", 0);
    networking.grant("nav");
    Listeners::pause(2000);  // a late listener call would come now
    life.lateCalls = listeners->lateCalls.load();
    rsiClient.reset();  // joins its WebSocket reader
    return life;
}

// A crashing child prints where, so that the seed comes with a first clue.
void printStackAndDie(int signal) {
    void* frames[64];
    int const count = backtrace(frames, 64);
    backtrace_symbols_fd(frames, count, STDERR_FILENO);
    std::signal(signal, SIG_DFL);
    std::raise(signal);
}

// The child: runs lives [first, first + count) and reports each on `out`.
int runChild(std::uint32_t firstSeed, int count, FILE* out) {
    std::signal(SIGSEGV, printStackAndDie);
    std::signal(SIGBUS, printStackAndDie);
    qel::common::logging::LogConfig::setSinks({});  // thousands of lives; the counts tell
    Rig rig;
    if (!rig.start()) {
        std::fprintf(stderr, "simulators did not start\n");
        return 3;
    }
    rig.live(firstSeed, RIGHT_AFTER_RESUMED);  // warm-up: lazily made process-wide parts
    auto const settle = [] { std::this_thread::sleep_for(std::chrono::milliseconds(20)); };
    settle();
    long const baseThreads = countEntries("/proc/self/task");
    long const baseFds = countEntries("/proc/self/fd");
    for (int i = 0; i < count; ++i) {
        std::uint32_t const seed = firstSeed + static_cast<std::uint32_t>(i);
        auto const moment = static_cast<Moment>(seed % MOMENTS);
        std::fprintf(out, "start %u\n", seed);
        std::fflush(out);
        Life const life = rig.live(seed, moment);
        // Simulator sessions of the life close on their own threads: give them a moment.
        long threads = 0, fds = 0;
        for (int look = 0; look < 50; ++look) {
            threads = countEntries("/proc/self/task") - baseThreads;
            fds = countEntries("/proc/self/fd") - baseFds;
            if (threads <= 0 && fds <= 0) {
                break;
            }
            settle();
        }
        if (life.frameworkThreadsLeft > 0) {
            std::fprintf(stderr, "seed %u: framework threads left:%s\n", seed, life.threadNames.c_str());
        }
        std::fprintf(out, "life %u %d %d %ld %d %ld %ld %d\n", seed, static_cast<int>(moment), life.flood ? 1 : 0,
                     life.releaseUs, life.frameworkThreadsLeft, std::max(threads, 0L), std::max(fds, 0L),
                     life.lateCalls);
        std::fflush(out);
    }
    return 0;
}

struct Totals {
    int lives = 0, crashes = 0, hangs = 0, threadLeaks = 0, fdLeaks = 0, frameworkThreadLeaks = 0, lateCalls = 0;
    std::vector<long> release, releaseFlood;
    std::vector<std::string> failures;
};

long percentile(std::vector<long> values, double p) {
    if (values.empty()) {
        return 0;
    }
    std::sort(values.begin(), values.end());
    auto const index = static_cast<std::size_t>(p * static_cast<double>(values.size() - 1) + 0.5);
    return values[std::min(index, values.size() - 1)];
}

// Runs one child for seeds [first, first + count); returns the seed after the last one reported.
std::uint32_t runBatch(std::uint32_t first, int count, Totals& totals) {
    int pipeFds[2];
    if (pipe(pipeFds) != 0) {
        std::perror("pipe");
        std::exit(2);
    }
    pid_t const child = fork();
    if (child == 0) {
        close(pipeFds[0]);
        FILE* out = fdopen(pipeFds[1], "w");
        std::_Exit(runChild(first, count, out));
    }
    close(pipeFds[1]);
    FILE* in = fdopen(pipeFds[0], "r");
    std::uint32_t next = first;
    long started = -1;
    bool hung = false;
    char line[256];
    for (;;) {
        pollfd ready{fileno(in), POLLIN, 0};
        if (poll(&ready, 1, 20000) == 0) {
            hung = true;
            kill(child, SIGKILL);
            break;
        }
        if (!std::fgets(line, sizeof line, in)) {
            break;
        }
        unsigned seed = 0;
        int moment = 0, flood = 0, frameworkLeft = 0, late = 0;
        long us = 0, threads = 0, fds = 0;
        if (std::sscanf(line, "start %u", &seed) == 1) {
            started = seed;
        } else if (std::sscanf(line, "life %u %d %d %ld %d %ld %ld %d", &seed, &moment, &flood, &us, &frameworkLeft,
                               &threads, &fds, &late) == 8) {
            ++totals.lives;
            (flood ? totals.releaseFlood : totals.release).push_back(us);
            bool const bad = us > 2'000'000 || frameworkLeft > 0 || threads > 0 || fds > 0 || late > 0;
            totals.hangs += us > 2'000'000 ? 1 : 0;
            totals.frameworkThreadLeaks += frameworkLeft > 0 ? 1 : 0;
            totals.threadLeaks += threads > 0 ? 1 : 0;
            totals.fdLeaks += fds > 0 ? 1 : 0;
            totals.lateCalls += late;
            if (bad) {
                totals.failures.push_back(std::string("seed ") + std::to_string(seed) + " (" + MOMENT_NAMES[moment] +
                                          "): release " + std::to_string(us / 1000) + " ms, framework threads " +
                                          std::to_string(frameworkLeft) + ", threads +" + std::to_string(threads) +
                                          ", fds +" + std::to_string(fds) + ", late calls " + std::to_string(late));
            }
            started = -1;
            next = seed + 1;
        }
    }
    std::fclose(in);
    int status = 0;
    waitpid(child, &status, 0);
    bool const abnormal = hung || !WIFEXITED(status) || WEXITSTATUS(status) != 0;
    if (abnormal) {
        std::string const what = hung                 ? "hang (child silent for 20 s)"
                                 : WIFSIGNALED(status) ? "crash, signal " + std::to_string(WTERMSIG(status))
                                                       : "abnormal exit " + std::to_string(WEXITSTATUS(status));
        (hung ? totals.hangs : totals.crashes) += 1;
        if (started >= 0) {
            ++totals.lives;
            next = static_cast<std::uint32_t>(started) + 1;
            totals.failures.push_back("seed " + std::to_string(started) + " (" +
                                      MOMENT_NAMES[started % MOMENTS] + "): " + what);
        } else {
            totals.failures.push_back("batch from seed " + std::to_string(first) + ": " + what);
            next = first + static_cast<std::uint32_t>(count);
        }
    }
    return next;
}

}  // namespace

int main(int argc, char** argv) {
    int lives = 1000;
    std::uint32_t seed = 1;
    int batch = 50;
    for (int i = 1; i + 1 < argc; i += 2) {
        std::string const option = argv[i];
        if (option == "--lives") {
            lives = std::atoi(argv[i + 1]);
        } else if (option == "--seed") {
            seed = static_cast<std::uint32_t>(std::strtoul(argv[i + 1], nullptr, 10));
        } else if (option == "--batch") {
            batch = std::max(1, std::atoi(argv[i + 1]));
        }
    }
    ::setenv("QEL_COMMONAPI_BINDING", "inprocess", 1);  // the networking service lives in this process
    Totals totals;
    std::uint32_t const end = seed + static_cast<std::uint32_t>(lives);
    auto const began = Clock::now();
    for (std::uint32_t next = seed; next < end;) {
        next = runBatch(next, static_cast<int>(std::min<std::uint32_t>(static_cast<std::uint32_t>(batch), end - next)),
                        totals);
    }
    auto const seconds = std::chrono::duration_cast<std::chrono::seconds>(Clock::now() - began).count();
    for (auto const& failure : totals.failures) {
        std::printf("FAILED %s\n", failure.c_str());
    }
    std::printf("lives %d (seeds %u..%u) in %ld s: crashes %d, hangs %d, lives leaving framework threads %d, "
                "threads %d, fds %d, listener calls after release %d\n",
                totals.lives, seed, end - 1, static_cast<long>(seconds), totals.crashes, totals.hangs,
                totals.frameworkThreadLeaks, totals.threadLeaks, totals.fdLeaks, totals.lateCalls);
    std::printf("release ms without flood: p99 %.1f max %.1f (%zu lives); with flood: p99 %.1f max %.1f (%zu lives)\n",
                percentile(totals.release, 0.99) / 1000.0,
                totals.release.empty() ? 0.0 : *std::max_element(totals.release.begin(), totals.release.end()) / 1000.0,
                totals.release.size(), percentile(totals.releaseFlood, 0.99) / 1000.0,
                totals.releaseFlood.empty()
                    ? 0.0
                    : *std::max_element(totals.releaseFlood.begin(), totals.releaseFlood.end()) / 1000.0,
                totals.releaseFlood.size());
    bool const clean = totals.crashes == 0 && totals.hangs == 0 && totals.frameworkThreadLeaks == 0 &&
                       totals.threadLeaks == 0 && totals.fdLeaks == 0 && totals.lateCalls == 0;
    return clean ? 0 : 1;
}
