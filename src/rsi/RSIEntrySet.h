// The entries of one posting run, reported as one outcome.
//
// Contract: every failed entry reports false at once; true is reported once, after the last
// entry succeeded. The set holds only the number of entries: each entry's completion function
// keeps the set alive, so holding the entries back would make a cycle. Thread-safe.
#pragma once

#include "core/IUpdateConditionCallback.h"

#include <atomic>
#include <cstddef>
#include <memory>

namespace qel::onlineservices::framework::core {

class RSIEntrySet {
public:
    RSIEntrySet(std::size_t entryCount, std::shared_ptr<IUpdateConditionCallback> callback);

    void entrySetProcessSuccess(bool success);

private:
    std::size_t const m_entryCount;
    std::shared_ptr<IUpdateConditionCallback> const m_callback;
    std::atomic<std::size_t> m_successCount{0};
};

}  // namespace qel::onlineservices::framework::core
