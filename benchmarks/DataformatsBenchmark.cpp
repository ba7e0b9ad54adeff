// Cost of the data-value library on the framework's hottest input: a service-list event parsed,
// read member by member through `Ref` the way the service records read it, and deep-copied.
#include "ServiceListEvent.h"

#include "dataformats/Json.h"
#include "dataformats/Ref.h"

#include <benchmark/benchmark.h>

#include <string>
#include <vector>

namespace {

using qel::benchmarks::SERVICE_LIST_EVENT;
using namespace qel::dataformats::data;
namespace json = qel::dataformats::json;

std::vector<std::string> readStrings(Ref array) {
    std::vector<std::string> strings;
    for (unsigned long i = 0; i < array.getArraySize(); ++i) {
        strings.push_back(array[i].asString());
    }
    return strings;
}

// Walks the member names of one service entry and converts the known ones.
void readService(Ref service) {
    std::vector<std::string> names;
    service.getObjectKeys(names);
    for (auto const& name : names) {
        Ref member = service(name);
        if (name == "disableReasons" || name == "privacyGroups" || name == "requires" || name == "type") {
            benchmark::DoNotOptimize(readStrings(member));
        } else if (name == "accessToken") {
            benchmark::DoNotOptimize(member("uri").asString());
        } else if (name == "activeMonitoringService" || name == "blocksDisabling") {
            benchmark::DoNotOptimize(member.asBoolean());
        } else if (name == "apnType" || name == "baseUrl" || name == "uri" || name == "id" || name == "name") {
            benchmark::DoNotOptimize(member.asString());
        }
    }
}

void BM_ParseServiceListEvent(benchmark::State& state) {
    for (auto _ : state) {
        auto event = json::parse(SERVICE_LIST_EVENT);
        benchmark::DoNotOptimize(event.get());
    }
    state.SetBytesProcessed(static_cast<std::int64_t>(state.iterations() * SERVICE_LIST_EVENT.size()));
    state.counters["event_bytes"] = static_cast<double>(SERVICE_LIST_EVENT.size());
}
BENCHMARK(BM_ParseServiceListEvent);

void BM_ParseAndReadServiceListEvent(benchmark::State& state) {
    for (auto _ : state) {
        auto event = json::parse(SERVICE_LIST_EVENT);
        Ref root(event.get());
        benchmark::DoNotOptimize(root("type").asString());
        benchmark::DoNotOptimize(root("data")[0]("name").asString());
        Ref services = root("data");
        for (unsigned long i = 0; i < services.getArraySize(); ++i) {
            readService(services[i]);
        }
    }
    state.SetBytesProcessed(static_cast<std::int64_t>(state.iterations() * SERVICE_LIST_EVENT.size()));
}
BENCHMARK(BM_ParseAndReadServiceListEvent);

void BM_CopyServiceListEvent(benchmark::State& state) {
    auto event = json::parse(SERVICE_LIST_EVENT);
    for (auto _ : state) {
        auto copy = event->copy();
        benchmark::DoNotOptimize(copy.get());
    }
}
BENCHMARK(BM_CopyServiceListEvent);

void BM_StringifyServiceListEvent(benchmark::State& state) {
    auto event = json::parse(SERVICE_LIST_EVENT);
    for (auto _ : state) {
        benchmark::DoNotOptimize(json::stringify(event.get()));
    }
}
BENCHMARK(BM_StringifyServiceListEvent);

}  // namespace
