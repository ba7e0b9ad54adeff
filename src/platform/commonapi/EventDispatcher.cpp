#include "commonapi/EventDispatcher.h"

#include "common/Thread.h"

#include <condition_variable>
#include <deque>
#include <mutex>
#include <utility>

namespace CommonAPI {

struct EventDispatcher::Queue {
    std::mutex mutex;
    std::condition_variable wakeUp;
    std::deque<std::function<void()>> jobs;  // guarded by mutex
    bool stopping = false;                   // guarded by mutex

    void run() {
        for (;;) {
            std::function<void()> job;
            {
                std::unique_lock<std::mutex> lock(mutex);
                wakeUp.wait(lock, [this] { return stopping || !jobs.empty(); });
                if (jobs.empty()) {
                    return;  // stopping, and everything posted before has run
                }
                job = std::move(jobs.front());
                jobs.pop_front();
            }
            job();
        }
    }
};

EventDispatcher::EventDispatcher(std::string name) : m_queue(std::make_shared<Queue>()) {
    m_thread = std::thread([queue = m_queue, name = std::move(name)] {
        qel::common::system::setCurrentThreadName(name);
        qel::common::system::markFrameworkThread();
        queue->run();
    });
}

EventDispatcher::~EventDispatcher() {
    stop();
    if (m_thread.get_id() == std::this_thread::get_id()) {
        // The thread ends after the job that held the last reference; another thread joins it.
        qel::common::system::handOverTeardown(
            "Dispatcher thread released on itself by its last job; joined by a teardown thread",
            [thread = std::make_shared<std::thread>(std::move(m_thread))] { thread->join(); });
    } else if (m_thread.joinable()) {
        m_thread.join();
    }
}

void EventDispatcher::post(std::function<void()> job) {
    std::lock_guard<std::mutex> guard(m_queue->mutex);
    if (m_queue->stopping) {
        return;
    }
    m_queue->jobs.push_back(std::move(job));
    // Woken under the lock: once it is free, the job may release this dispatcher.
    m_queue->wakeUp.notify_one();
}

void EventDispatcher::stop() {
    {
        std::lock_guard<std::mutex> guard(m_queue->mutex);
        m_queue->stopping = true;
    }
    m_queue->wakeUp.notify_one();
}

}  // namespace CommonAPI
