// A flood of service events to an item whose listener takes 1 ms per call: how much resident
// memory the backlog costs, and whether the listener still ends on the newest state.
//   rss_growth_MB   resident memory after the flood minus before it
//   delivered       listener calls; final_is_newest 1 when the last call carried the last event
#include "common/Logger.h"
#include "core/Notifier.h"
#include "dataformats/Json.h"
#include "rsi/IRSIClientWrapper.h"
#include "subscriptions/ServiceItem.h"

#include "SilentWrapper.h"

#include <benchmark/benchmark.h>

#include <unistd.h>

#include <atomic>
#include <chrono>
#include <fstream>
#include <string>
#include <thread>

namespace {

using qel::common::logging::LogConfig;
using qel::common::logging::LogLevel;
using qel::onlineservices::framework::FrameworkConfig;
using namespace qel::onlineservices::framework::core;
using namespace qel::rsi::client;

constexpr int EVENTS = 30000;

using qel::benchmarks::SilentWrapper;

class SlowListener : public IServiceDataListener {
public:
    void onBaseURLChanged(std::string const&, std::string const& baseUrl) override {
        std::this_thread::sleep_for(std::chrono::milliseconds(1));
        lastUrl = baseUrl;
        calls.fetch_add(1);
    }
    std::string lastUrl;  // written on the item's queue thread, read after it drained
    std::atomic<int> calls{0};
};

double residentMegabytes() {
    std::ifstream statm("/proc/self/statm");
    long size = 0;
    long resident = 0;
    statm >> size >> resident;
    return static_cast<double>(resident) * static_cast<double>(sysconf(_SC_PAGESIZE)) / (1024.0 * 1024.0);
}

std::string urlOf(int version) {
    return "https://nav.services.example.com/api/v" + std::to_string(version);
}

Response serviceEvent(int version) {
    Response response;
    response.setId(1);  // the resource subscription
    response.setData(qel::dataformats::json::parse(
        R"({"type":"data","data":[{"id":"3f2a9c4e-8b1d-4e7a-9f60-2c5d8e1b7a43","name":"nav","serviceHostSystem":"005F",)"
        R"("baseUrl":")" + urlOf(version) + R"(","uri":"/services/nav","accessToken":{"uri":"/services/nav/at"},)"
        R"("disableReasons":[],"privacyGroups":["location","navigation-history"],"requires":["connectivity"],)"
        R"("type":["online","foreground"],"apnType":"internet","version":"2.4.1","priority":3}]})"));
    return response;
}

void BM_ItemBacklogFlood(benchmark::State& state) {
    LogConfig::setSinks({});
    LogConfig::setThreshold(LogLevel::Warning);
    auto const config = std::make_shared<FrameworkConfig>();
    auto const notifier = std::make_shared<Notifier>(config);
    auto const listener = std::make_shared<SlowListener>();
    notifier->addListener(std::weak_ptr<IServiceDataListener>(listener));
    auto const item = std::make_shared<ServiceItem>(qel::common::logging::Logger("bench"), notifier,
                                                    std::make_shared<SilentWrapper>(), "nav");
    item->subscribe(RSISubscriptionCallback([](bool) {}));
    RequestState const succeeded(RequestStateSucceeded, "");

    double growth = 0;
    for (auto _ : state) {
        double const before = residentMegabytes();
        for (int version = 1; version <= EVENTS; ++version) {
            item->handleEvent(succeeded, serviceEvent(version));
        }
        growth = residentMegabytes() - before;
        item->waitForQueue(60000);
    }
    item->shutdown();
    state.counters["rss_growth_MB"] = growth;
    state.counters["delivered"] = listener->calls.load();
    state.counters["final_is_newest"] = listener->lastUrl == urlOf(EVENTS) ? 1 : 0;
}
BENCHMARK(BM_ItemBacklogFlood)->Iterations(1)->UseRealTime()->Unit(benchmark::kMillisecond);

}  // namespace
