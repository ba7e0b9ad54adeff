#include "common/Thread.h"

#include "common/Logger.h"
#include "common/NoDestructor.h"

#include <pthread.h>

#include <cstdint>
#include <map>
#include <mutex>
#include <system_error>
#include <vector>

namespace qel::common::system {

using logging::LogLevel;

namespace {

class RetiredThreads {
public:
    static RetiredThreads& instance() {
        static RetiredThreads retired;
        return retired;
    }
    ~RetiredThreads() { joinAll(); }

    void adopt(std::thread thread) {
        std::lock_guard<std::mutex> const lock(m_mutex);
        m_threads.push_back(std::move(thread));
    }
    // Started under the lock, so that a `joinAll()` that runs once `body` has had an effect
    // (an object deleted, say) always finds the thread.
    void spawn(std::function<void()> body) {
        std::lock_guard<std::mutex> const lock(m_mutex);
        m_threads.emplace_back(std::move(body));
    }
    void joinAll() {
        std::vector<std::thread> threads;
        {
            std::lock_guard<std::mutex> const lock(m_mutex);
            threads.swap(m_threads);
        }
        for (auto& thread : threads) {
            if (thread.get_id() == std::this_thread::get_id()) {
                adopt(std::move(thread));  // a retired thread cannot join itself
            } else {
                thread.join();
            }
        }
    }

private:
    std::mutex m_mutex;
    std::vector<std::thread> m_threads;  // guarded by m_mutex
};

thread_local bool t_frameworkThread = false;

// Names of the marked threads that have not yet finished: each leaves the list in its thread-exit
// cleanup, before a join of it can return.
class RunningFrameworkThreads {
public:
    // Never destroyed: a thread may end while the process exits.
    static RunningFrameworkThreads& instance() {
        static NoDestructor<RunningFrameworkThreads> running;
        return running.get();
    }
    std::uint64_t add(std::string name) {
        std::lock_guard<std::mutex> const lock(m_mutex);
        m_names.emplace(++m_last, std::move(name));
        return m_last;
    }
    void remove(std::uint64_t key) {
        std::lock_guard<std::mutex> const lock(m_mutex);
        m_names.erase(key);
    }
    std::vector<std::string> names() const {
        std::lock_guard<std::mutex> const lock(m_mutex);
        std::vector<std::string> names;
        for (auto const& entry : m_names) {
            names.push_back(entry.second);
        }
        return names;
    }

private:
    mutable std::mutex m_mutex;
    std::uint64_t m_last = 0;                      // under m_mutex
    std::map<std::uint64_t, std::string> m_names;  // under m_mutex
};

struct RunningMark {
    explicit RunningMark(std::string name) : key(RunningFrameworkThreads::instance().add(std::move(name))) {}
    ~RunningMark() { RunningFrameworkThreads::instance().remove(key); }
    std::uint64_t const key;
};

}  // namespace

void markFrameworkThread() {
    if (!t_frameworkThread) {
        thread_local RunningMark const mark(currentThreadName());
        t_frameworkThread = true;
    }
}

std::vector<std::string> runningFrameworkThreads() {
    return RunningFrameworkThreads::instance().names();
}

bool isFrameworkThread() {
    return t_frameworkThread;
}

void handOverTeardown(std::string const& mistake, std::function<void()> teardown) {
    logging::Logger("platform.thread") << LogLevel::Warning << mistake;
    try {
        RetiredThreads::instance().spawn([teardown = std::move(teardown)] {
            setCurrentThreadName("Teardown");
            teardown();
        });
    } catch (std::system_error const& error) {
        // No thread to spare: better a late join at exit than a self-join now.
        logging::Logger("platform.thread") << LogLevel::Error << "Could not start teardown thread: " << error.what();
    }
}

void retireThread(std::thread thread) {
    if (thread.joinable()) {
        RetiredThreads::instance().adopt(std::move(thread));
    }
}

void joinRetiredThreads() {
    RetiredThreads::instance().joinAll();
}

void setCurrentThreadName(std::string const& name) {
    pthread_setname_np(pthread_self(), name.substr(0, 15).c_str());
}

std::string currentThreadName() {
    char name[16] = {};
    pthread_getname_np(pthread_self(), name, sizeof(name));
    return name;
}

Thread::Thread(std::string name, std::shared_ptr<Runnable> runnable)
    : m_name(std::move(name)), m_runnable(std::move(runnable)) {}

Thread::~Thread() {
    if (!m_thread.joinable()) {
        return;
    }
    if (m_thread.get_id() == std::this_thread::get_id()) {
        // Joining itself would throw; the owner broke the contract, so keep the process alive.
        logging::Logger("platform.thread") << LogLevel::Error << "Thread " << m_name << " destroyed from itself";
        requestStop();
        retireThread(std::move(m_thread));
        return;
    }
    requestStop();
    m_thread.join();
}

bool Thread::start() {
    {
        MutexGuard guard(m_stateMutex);
        if (m_started) {
            return false;
        }
        m_started = true;
        m_running = true;
    }
    try {
        m_thread = std::thread(&Thread::body, this);
    } catch (std::system_error const& error) {
        logging::Logger("platform.thread") << LogLevel::Error << "Could not start thread " << m_name << ": "
                                           << error.what();
        MutexGuard guard(m_stateMutex);
        m_running = false;
        return false;
    }
    return true;
}

void Thread::join() {
    if (m_thread.joinable() && m_thread.get_id() != std::this_thread::get_id()) {
        m_thread.join();
    }
}

void Thread::run() {
    if (m_runnable) {
        m_runnable->run();
    }
}

void Thread::requestStop() {
    m_stopRequested.store(true);
}

bool Thread::isRunning() const {
    MutexGuard guard(m_stateMutex);
    return m_running;
}

void Thread::body() {
    setCurrentThreadName(m_name);
    markFrameworkThread();
    preExecute();
    run();
    postExecute();
    MutexGuard guard(m_stateMutex);
    m_running = false;
}

}  // namespace qel::common::system
