// A named thread with a stop request and a running state.
//
// Contract: derive and override `run()`, or hand a `Runnable` to the constructor. `start()`
// launches the thread, which names itself (visible in `top -H` and gdb), then calls
// `preExecute()`, `run()` and `postExecute()`. A derived class must call `join()` in its own
// destructor: by the time the base destructor runs, the derived part is gone. A thread must not
// be destroyed from itself.
#pragma once

#include "common/Mutex.h"

#include <atomic>
#include <functional>
#include <memory>
#include <string>
#include <thread>
#include <vector>

namespace qel::common::system {

class Runnable {
public:
    virtual ~Runnable() = default;
    virtual void run() = 0;
};

class Thread : public Runnable {
public:
    // `name` is cut to 15 characters for the operating system. A null `runnable` means that the
    // derived class's `run()` is the body.
    explicit Thread(std::string name, std::shared_ptr<Runnable> runnable = nullptr);
    ~Thread() override;
    Thread(Thread const&) = delete;
    Thread& operator=(Thread const&) = delete;

    // Starts the thread once; false if it was started before or could not be created.
    bool start();
    // Waits for the thread to end; returns at once if it never started or was joined already.
    void join();

    void run() override;
    virtual void preExecute() {}
    virtual void postExecute() {}
    // Asks the body to end; the body polls `isStopRequested()` (derived classes may also wake it).
    virtual void requestStop();

    bool isRunning() const;
    bool isStopRequested() const { return m_stopRequested.load(); }
    std::string const& getName() const { return m_name; }

protected:
    // Guards the running state; derived classes may read it under this lock.
    Mutex& stateMutex() const { return m_stateMutex; }

private:
    void body();

    std::string const m_name;
    std::shared_ptr<Runnable> const m_runnable;
    mutable Mutex m_stateMutex;
    bool m_running = false;  // guarded by m_stateMutex
    bool m_started = false;  // guarded by m_stateMutex
    std::atomic<bool> m_stopRequested{false};
    std::thread m_thread;  // touched only by the owner's thread
};

// A thread whose owner was released on that very thread cannot be joined by it. Handed over
// here instead of being detached, it finishes on its own and is joined by the next
// `joinRetiredThreads()` on another thread, or at exit.
void retireThread(std::thread thread);
// Joins the retired threads, except the calling one; returns when they have ended.
void joinRetiredThreads();

// Framework threads (every `Thread`, item queue and binding dispatcher) mark themselves, so that
// an owner released on one of them can tell that it must not join from there.
void markFrameworkThread();
bool isFrameworkThread();
// Names of the framework threads that have not finished yet; a thread leaves the list before a
// join of it returns. For diagnostics: which threads outlived their owner's release.
std::vector<std::string> runningFrameworkThreads();
// The calling thread's name as the operating system knows it.
std::string currentThreadName();
// Runs `teardown` on a thread of its own ("Teardown"), which may join framework threads, and
// logs `mistake` as a warning. For an owner whose last reference was dropped on a framework
// thread. The teardown thread is joined by the next `joinRetiredThreads()`, or at exit.
void handOverTeardown(std::string const& mistake, std::function<void()> teardown);

// A shared pointer's deleter for an object that owns threads: released on a framework thread
// (which may be one of the object's own), it is deleted by a teardown thread instead.
// `deleted`, when set, runs once the object is gone, on whichever thread deleted it.
template <typename T>
struct DeleteOffFrameworkThreads {
    char const* what;
    std::function<void()> deleted;
    void operator()(T* object) const {
        auto remove = [object, deleted = deleted] {
            delete object;
            if (deleted) {
                deleted();
            }
        };
        if (!isFrameworkThread()) {
            remove();
            return;
        }
        handOverTeardown(std::string(what) + " released on framework thread " + currentThreadName() +
                             "; deleted by a teardown thread",
                         std::move(remove));
    }
};

// `std::make_shared` for such an object.
template <typename T, typename... Args>
std::shared_ptr<T> makeThreadOwner(char const* what, Args&&... args) {
    return std::shared_ptr<T>(new T(std::forward<Args>(args)...), DeleteOffFrameworkThreads<T>{what, nullptr});
}

// The same, with `deleted` run once the object is gone, so that an owner can wait for that.
template <typename T, typename... Args>
std::shared_ptr<T> makeThreadOwnerNotifying(char const* what, std::function<void()> deleted, Args&&... args) {
    return std::shared_ptr<T>(new T(std::forward<Args>(args)...),
                              DeleteOffFrameworkThreads<T>{what, std::move(deleted)});
}

// Names the calling thread (at most 15 characters are kept).
void setCurrentThreadName(std::string const& name);

}  // namespace qel::common::system
