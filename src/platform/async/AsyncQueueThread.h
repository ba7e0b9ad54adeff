// Runs pushed functions one after another, in push order, on one named thread of its own.
//
// Contract: `push` may be called from any thread, also from inside a queued function. The thread
// starts with the first push, so the name can still be set after construction. `stop()` drops
// the functions not yet started, waits for the running one and joins; after it `push` refuses.
// Owners stop the queue before releasing it. Dropping the queue's owner from inside a queued
// function still works, with a warning: the thread then ends on its own after that function
// returns and is joined later (see `retireThread`).
//
// Backlog: a function pushed with a kind (non-zero) carries a whole state. While the queue holds
// its high-water mark or more, pushing one drops the newest pending function of the same kind
// first, so the backlog stays bounded and later states overtake earlier ones without any
// reordering of what stays. Functions without a kind are never dropped. The first push that finds
// the queue at its mark reports it; the next report comes after the queue drained to half the mark.
#pragma once

#include <cstddef>
#include <cstdint>
#include <functional>
#include <memory>
#include <string>
#include <thread>

namespace qel::onlineservices::common::utils {

class AsyncQueueThread {
public:
    static constexpr std::size_t DEFAULT_HIGH_WATER_MARK = 64;

    struct Pushed {
        bool queued = false;
        // Pending functions when this push found the queue at its mark first; otherwise 0.
        std::size_t crossedHighWater = 0;
    };

    explicit AsyncQueueThread(std::string name = "AsyncQueue");
    ~AsyncQueueThread();
    AsyncQueueThread(AsyncQueueThread const&) = delete;
    AsyncQueueThread& operator=(AsyncQueueThread const&) = delete;

    // Takes effect when the thread starts (at the first push). At most 15 characters are kept.
    void setName(std::string name);
    // At least 1; applies from the next push.
    void setHighWaterMark(std::size_t mark);

    // Queues `job`; false (and `job` dropped) once the queue was stopped or for an empty function.
    bool push(std::function<void()> job);
    // Queues `job` of `kind` (0: never dropped), see Backlog above.
    Pushed push(std::function<void()> job, std::uint32_t kind);

    // Idempotent. Returns when the thread has ended, except when called from the thread itself.
    void stop();

    // True on the queue's own thread, i.e. inside a queued function.
    bool isQueueThread() const;
    // Functions dropped so far because a newer one of their kind overtook them.
    std::size_t overtakenCount() const;

private:
    struct State;
    std::shared_ptr<State> m_state;  // shared with the thread, so it outlives a self-stop
    std::thread m_thread;            // touched only under m_state->mutex
};

}  // namespace qel::onlineservices::common::utils
