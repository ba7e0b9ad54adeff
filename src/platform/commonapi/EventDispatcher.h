// A binding's own named thread: runs posted jobs one after another, in the order posted.
//
// Contract: `post` never blocks on a job; jobs posted after `stop` are dropped. The destructor
// stops and joins the thread (it must not run on the thread itself). Jobs run without any lock.
#pragma once

#include "common/Thread.h"

#include <condition_variable>
#include <deque>
#include <functional>
#include <mutex>
#include <string>

namespace CommonAPI {

class EventDispatcher final : public qel::common::system::Thread {
public:
    explicit EventDispatcher(std::string const& name);
    ~EventDispatcher() override;

    void post(std::function<void()> job);
    void stop();
    void run() override;

private:
    std::mutex m_mutex;
    std::condition_variable m_wakeUp;
    std::deque<std::function<void()>> m_jobs;  // guarded by m_mutex
    bool m_stopping = false;                    // guarded by m_mutex
};

}  // namespace CommonAPI
