#include "async/AsyncQueueThread.h"

#include "common/Logger.h"
#include "common/Thread.h"

#include <condition_variable>
#include <deque>
#include <mutex>

namespace qel::onlineservices::common::utils {

using qel::common::logging::LogLevel;

struct AsyncQueueThread::State {
    std::mutex mutex;
    std::condition_variable wake;
    std::deque<std::function<void()>> jobs;  // guarded by mutex
    std::string name;                        // guarded by mutex
    bool stopped = false;                    // guarded by mutex
    std::thread::id threadId;                // guarded by mutex

    void loop() {
        std::unique_lock<std::mutex> lock(mutex);
        qel::common::system::setCurrentThreadName(name);
        while (true) {
            wake.wait(lock, [this] { return stopped || !jobs.empty(); });
            if (stopped) {
                return;
            }
            auto job = std::move(jobs.front());
            jobs.pop_front();
            lock.unlock();
            job();
            job = nullptr;  // captured owners are released outside the lock
            lock.lock();
        }
    }
};

AsyncQueueThread::AsyncQueueThread(std::string name) : m_state(std::make_shared<State>()) {
    m_state->name = std::move(name);
}

AsyncQueueThread::~AsyncQueueThread() {
    stop();
}

void AsyncQueueThread::setName(std::string name) {
    std::lock_guard<std::mutex> lock(m_state->mutex);
    m_state->name = std::move(name);
}

bool AsyncQueueThread::push(std::function<void()> job) {
    if (!job) {
        return false;
    }
    // The job may own this queue and drop it on the queue thread before we return, so only
    // the shared state is touched once the job is queued, and the wake-up happens under its lock.
    auto const state = m_state;
    std::lock_guard<std::mutex> lock(state->mutex);
    if (state->stopped) {
        return false;
    }
    if (!m_thread.joinable()) {
        m_thread = std::thread([state] { state->loop(); });
        state->threadId = m_thread.get_id();
    }
    state->jobs.push_back(std::move(job));
    state->wake.notify_one();
    return true;
}

void AsyncQueueThread::stop() {
    std::thread thread;
    std::deque<std::function<void()>> dropped;
    {
        std::lock_guard<std::mutex> lock(m_state->mutex);
        m_state->stopped = true;
        dropped.swap(m_state->jobs);
        thread = std::move(m_thread);
    }
    m_state->wake.notify_all();
    dropped.clear();  // their captures are destroyed here, outside the lock
    if (!thread.joinable()) {
        return;
    }
    if (thread.get_id() == std::this_thread::get_id()) {
        // The owner went away inside one of our jobs, so nobody is left to join: the loop ends
        // right after that job. Owners avoid this by stopping the queue before letting go.
        std::string name;
        {
            std::lock_guard<std::mutex> lock(m_state->mutex);
            name = m_state->name;
        }
        qel::common::logging::Logger("platform.async")
            << LogLevel::Warning << "Queue " << name << " released from its own thread; it ends unjoined";
        thread.detach();
        return;
    }
    thread.join();
}

bool AsyncQueueThread::isQueueThread() const {
    std::lock_guard<std::mutex> lock(m_state->mutex);
    return m_state->threadId == std::this_thread::get_id();
}

}  // namespace qel::onlineservices::common::utils
