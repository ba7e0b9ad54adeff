// Hears run states; lets a test (or benchmark) wait for one.
#pragma once

#include <onlineservices/framework/IRunStateListener.h>

#include <algorithm>
#include <chrono>
#include <condition_variable>
#include <mutex>
#include <optional>
#include <utility>
#include <vector>

namespace qel::test {

using onlineservices::framework::core::IRunStateListener;
using onlineservices::framework::core::RunState;

struct RunStateRecorder : IRunStateListener {
    void onRunStateChanged(RunState state) override {
        std::lock_guard<std::mutex> guard(mutex);
        states.push_back(state);
        changed.notify_all();
    }
    // What was heard since the last call; first waits (up to 30 s) until `awaited` was heard.
    std::vector<RunState> take(std::optional<RunState> awaited = std::nullopt) {
        std::unique_lock<std::mutex> lock(mutex);
        changed.wait_for(lock, std::chrono::seconds(30),
                         [&] { return !awaited || std::count(states.begin(), states.end(), *awaited) > 0; });
        return std::exchange(states, {});
    }
    std::mutex mutex;
    std::condition_variable changed;
    std::vector<RunState> states;  // guarded by mutex
};

}  // namespace qel::test
