// The entries of one posting run, reported as one outcome.
//
// Contract: the set owns the entries of one `post` call (null entries are left out), so an
// entry that only its posting holds is still answered. Every failed entry reports false at once;
// true is reported once, after the last entry succeeded; a set without entries reports true as
// soon as it is started. Each entry's completion function keeps the set alive while the entry is
// pending; once every entry has answered the set lets its entries go, which ends that cycle.
// Thread-safe.
#pragma once

#include "core/IUpdateConditionCallback.h"
#include "rsi/RSIEntry.h"

#include <cstddef>
#include <memory>
#include <mutex>
#include <vector>

namespace qel::onlineservices::framework::core {

class RSIEntrySet {
public:
    RSIEntrySet(std::vector<std::shared_ptr<RSIEntry>> const& entries,
                std::shared_ptr<IUpdateConditionCallback> callback);

    // The entries still held: all of them until every one has answered.
    std::vector<std::shared_ptr<RSIEntry>> entries() const;
    // Reports true at once when there is nothing to post.
    void reportIfEmpty();
    // One entry's outcome of this run.
    void entrySetProcessSuccess(bool success);

private:
    std::shared_ptr<IUpdateConditionCallback> const m_callback;
    std::size_t const m_entryCount;
    mutable std::mutex m_mutex;
    std::vector<std::shared_ptr<RSIEntry>> m_entries;  // guarded by m_mutex
    std::size_t m_successCount = 0;                    // guarded by m_mutex
    std::size_t m_answerCount = 0;                     // guarded by m_mutex
};

}  // namespace qel::onlineservices::framework::core
