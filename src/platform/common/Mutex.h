// Re-entrant mutex and its scope guard.
//
// Contract: the thread that holds a `Mutex` may lock it again; it must unlock it as often.
// Prefer `MutexGuard` to manual `lock`/`unlock`.
#pragma once

#include <mutex>

namespace qel::common::system {

class CondVar;

class Mutex {
public:
    Mutex() = default;
    Mutex(Mutex const&) = delete;
    Mutex& operator=(Mutex const&) = delete;

    void lock() { m_mutex.lock(); }
    bool tryLock() { return m_mutex.try_lock(); }
    void unlock() { m_mutex.unlock(); }

    // BasicLockable spelling, so that standard lock types work too.
    bool try_lock() { return tryLock(); }

private:
    friend class CondVar;
    std::recursive_mutex m_mutex;
};

class MutexGuard {
public:
    explicit MutexGuard(Mutex& mutex) : m_mutex(mutex) { m_mutex.lock(); }
    MutexGuard(MutexGuard const&) = delete;
    MutexGuard& operator=(MutexGuard const&) = delete;
    ~MutexGuard() { m_mutex.unlock(); }

private:
    Mutex& m_mutex;
};

}  // namespace qel::common::system
