#include "commonapi/EventDispatcher.h"

#include <utility>

namespace CommonAPI {

EventDispatcher::EventDispatcher(std::string const& name) : Thread(name) {
    start();
}

EventDispatcher::~EventDispatcher() {
    stop();
    join();
}

void EventDispatcher::post(std::function<void()> job) {
    {
        std::lock_guard<std::mutex> guard(m_mutex);
        if (m_stopping) {
            return;
        }
        m_jobs.push_back(std::move(job));
    }
    m_wakeUp.notify_one();
}

void EventDispatcher::stop() {
    {
        std::lock_guard<std::mutex> guard(m_mutex);
        m_stopping = true;
    }
    m_wakeUp.notify_one();
}

void EventDispatcher::run() {
    for (;;) {
        std::function<void()> job;
        {
            std::unique_lock<std::mutex> lock(m_mutex);
            m_wakeUp.wait(lock, [this] { return m_stopping || !m_jobs.empty(); });
            if (m_jobs.empty()) {
                return;  // stopping, and everything posted before has run
            }
            job = std::move(m_jobs.front());
            m_jobs.pop_front();
        }
        job();
    }
}

}  // namespace CommonAPI
