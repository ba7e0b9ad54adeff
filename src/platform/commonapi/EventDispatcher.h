// A binding's own named thread: runs posted jobs one after another, in the order posted.
//
// Contract: `post` never blocks on a job; jobs posted after `stop` are dropped. The destructor
// stops the thread, which first runs what was posted before, and joins it. Released on the
// thread itself (a job held the last reference), it cannot join: the thread then ends after that
// job and a teardown thread joins it, with a warning (see `handOverTeardown`). Jobs run without any lock.
#pragma once

#include <functional>
#include <memory>
#include <string>
#include <thread>

namespace CommonAPI {

class EventDispatcher final {
public:
    explicit EventDispatcher(std::string name);
    ~EventDispatcher();
    EventDispatcher(EventDispatcher const&) = delete;
    EventDispatcher& operator=(EventDispatcher const&) = delete;

    void post(std::function<void()> job);
    void stop();

private:
    struct Queue;

    std::shared_ptr<Queue> m_queue;  // shared with the thread, so that it outlives a release there
    std::thread m_thread;
};

}  // namespace CommonAPI
