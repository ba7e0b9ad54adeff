// The RSI jobs waiting for a retry, ordered by the time their retry falls due.
//
// Contract: thread-safe. A job is armed from the worker (a failed try) or from the client's
// threads (a closed subscription); the worker takes only what has fallen due, so its loop costs
// the retries that are due, not everything held. A request is owned here until it is retried; a
// subscription only weakly, since the wrapper's registry owns it. A job armed twice is held
// twice: the older entry finds the retry not yet due by the job's own reckoning and is dropped.
#pragma once

#include "common/Clock.h"
#include "rsi/IRSIJob.h"

#include <map>
#include <memory>
#include <mutex>
#include <vector>

namespace qel::onlineservices::framework::core {

class RSIRetryQueue {
public:
    struct Entry {
        std::shared_ptr<IRSIJob> owned;  // requests only: nobody else keeps them
        std::weak_ptr<IRSIJob> job;
        unsigned int subscriptionId = 0;  // the wrapper's id; 0 for a request
        qel::common::system::Clock::timeValue due = 0;
    };

    void arm(Entry entry);
    // Removes and returns the entries due before `now`, earliest first.
    std::vector<Entry> takeDue(qel::common::system::Clock::timeValue now);

private:
    std::mutex m_mutex;
    std::multimap<qel::common::system::Clock::timeValue, Entry> m_entries;  // guarded by m_mutex
};

}  // namespace qel::onlineservices::framework::core
