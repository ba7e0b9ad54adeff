#include "async/AsyncQueueThread.h"

#include "common/Logger.h"
#include "common/Thread.h"

#include <algorithm>
#include <condition_variable>
#include <iterator>
#include <list>
#include <map>
#include <mutex>

namespace qel::onlineservices::common::utils {

using qel::common::logging::LogLevel;

struct AsyncQueueThread::State {
    // Enough for the few events an item usually has pending.
    static constexpr std::size_t SPARE_ENTRIES = 8;

    struct Entry {
        std::uint32_t kind;
        std::function<void()> job;
    };
    using Entries = std::list<Entry>;

    std::mutex mutex;
    std::condition_variable wake;
    Entries jobs;                                          // guarded by mutex
    // Guarded by mutex. `jobs.end()` when none of the kind is pending: the entry of a kind stays,
    // so that a push does not allocate one each time the queue ran empty.
    std::map<std::uint32_t, Entries::iterator> newestOfKind;
    Entries spare;  // guarded by mutex; emptied entries, reused so that a push does not allocate
    std::size_t highWaterMark = DEFAULT_HIGH_WATER_MARK;   // guarded by mutex
    bool aboveHighWater = false;                           // guarded by mutex
    std::size_t overtaken = 0;                             // guarded by mutex
    std::string name;                                      // guarded by mutex
    bool stopped = false;                                  // guarded by mutex
    std::thread::id threadId;                              // guarded by mutex

    void loop() {
        std::unique_lock<std::mutex> lock(mutex);
        qel::common::system::setCurrentThreadName(name);
        qel::common::system::markFrameworkThread();
        while (true) {
            wake.wait(lock, [this] { return stopped || !jobs.empty(); });
            if (stopped) {
                return;
            }
            auto job = takeFront();
            lock.unlock();
            job();
            job = nullptr;  // captured owners are released outside the lock
            lock.lock();
        }
    }

    std::function<void()> takeFront() {
        Entry& front = jobs.front();
        auto const newest = newestOfKind.find(front.kind);
        if (newest != newestOfKind.end() && newest->second == jobs.begin()) {
            newest->second = jobs.end();
        }
        auto job = std::move(front.job);
        front.job = nullptr;
        if (spare.size() < SPARE_ENTRIES) {
            spare.splice(spare.begin(), jobs, jobs.begin());
        } else {
            jobs.pop_front();
        }
        if (jobs.size() <= highWaterMark / 2) {
            aboveHighWater = false;  // the episode is over; the next crossing reports again
        }
        return job;
    }

    // Drops the pending job of `kind` when the backlog is at its mark; returns it for release
    // outside the lock.
    std::function<void()> makeRoomFor(std::uint32_t kind) {
        if (kind == 0 || jobs.size() < highWaterMark) {
            return nullptr;
        }
        auto const newest = newestOfKind.find(kind);
        if (newest == newestOfKind.end() || newest->second == jobs.end()) {
            return nullptr;
        }
        auto overtakenJob = std::move(newest->second->job);
        jobs.erase(newest->second);
        newest->second = jobs.end();
        ++overtaken;
        return overtakenJob;
    }

    void append(std::uint32_t kind, std::function<void()> job) {
        if (spare.empty()) {
            jobs.push_back({kind, std::move(job)});
        } else {
            jobs.splice(jobs.end(), spare, spare.begin());
            jobs.back().kind = kind;
            jobs.back().job = std::move(job);
        }
        if (kind != 0) {
            newestOfKind[kind] = std::prev(jobs.end());
        }
    }

    // The pending count when a push finds the backlog at its mark for the first time in an
    // episode, else 0.
    std::size_t noteCrossing() {
        if (aboveHighWater || jobs.size() < highWaterMark) {
            return 0;
        }
        aboveHighWater = true;
        return jobs.size();
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

void AsyncQueueThread::setHighWaterMark(std::size_t mark) {
    std::lock_guard<std::mutex> lock(m_state->mutex);
    m_state->highWaterMark = std::max<std::size_t>(mark, 1);
}

bool AsyncQueueThread::push(std::function<void()> job) {
    return push(std::move(job), 0).queued;
}

AsyncQueueThread::Pushed AsyncQueueThread::push(std::function<void()> job, std::uint32_t kind) {
    Pushed pushed;
    if (!job) {
        return pushed;
    }
    std::function<void()> overtaken;  // released after the lock, like every captured owner
    // The job may own this queue and drop it on the queue thread before we return, so only
    // the shared state, kept alive here, is touched once the job is queued.
    auto const state = m_state;
    std::unique_lock<std::mutex> lock(state->mutex);
    if (state->stopped) {
        return pushed;
    }
    if (!m_thread.joinable()) {
        m_thread = std::thread([state] { state->loop(); });
        state->threadId = m_thread.get_id();
    }
    pushed.crossedHighWater = state->noteCrossing();
    overtaken = state->makeRoomFor(kind);
    state->append(kind, std::move(job));
    pushed.queued = true;
    lock.unlock();
    // Outside the lock, so that the woken thread does not at once block on it.
    state->wake.notify_one();
    return pushed;
}

void AsyncQueueThread::stop() {
    std::thread thread;
    State::Entries dropped;
    {
        std::lock_guard<std::mutex> lock(m_state->mutex);
        m_state->stopped = true;
        dropped.swap(m_state->jobs);
        m_state->newestOfKind.clear();
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
            << LogLevel::Warning << "Queue " << name << " released from its own thread; it is joined later";
        qel::common::system::retireThread(std::move(thread));
        return;
    }
    thread.join();
}

bool AsyncQueueThread::isQueueThread() const {
    std::lock_guard<std::mutex> lock(m_state->mutex);
    return m_state->threadId == std::this_thread::get_id();
}

std::size_t AsyncQueueThread::overtakenCount() const {
    std::lock_guard<std::mutex> lock(m_state->mutex);
    return m_state->overtaken;
}

}  // namespace qel::onlineservices::common::utils
