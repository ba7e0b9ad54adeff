// Runs pushed functions one after another, in push order, on one named thread of its own.
//
// Contract: `push` may be called from any thread, also from inside a queued function. The thread
// starts with the first push, so the name can still be set after construction. `stop()` drops
// the functions not yet started, waits for the running one and joins; after it `push` refuses.
// Owners stop the queue before releasing it. Dropping the queue's owner from inside a queued
// function still works, with a warning: the thread then ends on its own after that function
// returns instead of being joined.
#pragma once

#include <functional>
#include <memory>
#include <string>
#include <thread>

namespace qel::onlineservices::common::utils {

class AsyncQueueThread {
public:
    explicit AsyncQueueThread(std::string name = "AsyncQueue");
    ~AsyncQueueThread();
    AsyncQueueThread(AsyncQueueThread const&) = delete;
    AsyncQueueThread& operator=(AsyncQueueThread const&) = delete;

    // Takes effect when the thread starts (at the first push). At most 15 characters are kept.
    void setName(std::string name);

    // Queues `job`; false (and `job` dropped) once the queue was stopped or for an empty function.
    bool push(std::function<void()> job);

    // Idempotent. Returns when the thread has ended, except when called from the thread itself.
    void stop();

    // True on the queue's own thread, i.e. inside a queued function.
    bool isQueueThread() const;

private:
    struct State;
    std::shared_ptr<State> m_state;  // shared with the thread, so it outlives a self-stop
    std::thread m_thread;            // touched only under m_state->mutex
};

}  // namespace qel::onlineservices::common::utils
