// Drives the RSI wrapper's worker from a test, so that retries run right after the clock moved
// instead of at the worker's next one-second wake-up.
//
//   clock.advance(10001);
//   ASSERT_TRUE(runWorkerLoop(*wrapper));   // one full loop (job and retry passes) has run since
//   ASSERT_TRUE(drainWorker(*wrapper));     // every queued job has run, including jobs they queued
#pragma once

#include "rsi/RSIClientWrapper.h"

namespace qel::test {

inline constexpr std::uint32_t WORKER_WAIT_LIMIT_MS = 5000;

inline bool runWorkerLoop(onlineservices::framework::core::RSIClientWrapper& wrapper) {
    return wrapper.waitForWorkerLoop(wrapper.wakeWorker(), WORKER_WAIT_LIMIT_MS);
}

inline bool drainWorker(onlineservices::framework::core::RSIClientWrapper& wrapper) {
    constexpr int MAX_LOOPS = 1000;
    for (int loop = 0; loop < MAX_LOOPS; ++loop) {
        if (!runWorkerLoop(wrapper)) {
            return false;
        }
        if (wrapper.queuedJobCount() == 0) {
            // One more loop, so that a job popped after the check has finished too.
            return runWorkerLoop(wrapper);
        }
    }
    return false;
}

}  // namespace qel::test
