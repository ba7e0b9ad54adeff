// What a log statement costs on a hot path, enabled and disabled.
#include "common/Logger.h"

#include <benchmark/benchmark.h>

#include <string>

namespace {

using qel::common::logging::LogConfig;
using qel::common::logging::LogLevel;
using qel::common::logging::Logger;

void BM_LogRecordBelowThreshold(benchmark::State& state) {
    LogConfig::setThreshold(LogLevel::Info);
    Logger const logger("framework_nav.RSIClientWrapper");
    std::string const id = "3f2a7c1e-5b0d-4e9a-9c61-2d8e4b7f0a13";
    for (auto _ : state) {
        logger << LogLevel::Trace << "Time reaming until the next retry: " << 42 << " for " << id;
    }
}
BENCHMARK(BM_LogRecordBelowThreshold);

void BM_LogRecordEnabledNoSink(benchmark::State& state) {
    auto const previous = LogConfig::threshold();
    LogConfig::setThreshold(LogLevel::Trace);
    LogConfig::setSinks({});  // measures formatting and dispatch, not the terminal
    Logger const logger("framework_nav.RSIClientWrapper");
    std::string const id = "3f2a7c1e-5b0d-4e9a-9c61-2d8e4b7f0a13";
    for (auto _ : state) {
        logger << LogLevel::Trace << "Time reaming until the next retry: " << 42 << " for " << id;
    }
    LogConfig::setThreshold(previous);
}
BENCHMARK(BM_LogRecordEnabledNoSink);

}  // namespace
