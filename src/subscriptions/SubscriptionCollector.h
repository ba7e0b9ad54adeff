// Folds the answers of several subscription items into one answer to a condition callback.
//
// Contract: answers may arrive on any thread. The first answer that differs from the expected
// one is passed on at once; otherwise the expected value is passed on when `total` answers have
// arrived. Either way the callback hears exactly one answer; later ones are ignored. The
// callback is called outside the collector's lock.
#pragma once

#include "common/Mutex.h"
#include "core/IUpdateConditionCallback.h"

#include <cstdint>
#include <memory>

namespace qel::onlineservices::framework::core {

class SubscriptionCollector {
public:
    // `expected`: true for a subscription, false for an unsubscription.
    SubscriptionCollector(std::shared_ptr<IUpdateConditionCallback> callback, bool expected, std::uint16_t total);

    void fold(bool result);

private:
    qel::common::system::Mutex m_mutex;
    std::shared_ptr<IUpdateConditionCallback> const m_callback;
    bool m_done = false;  // guarded by m_mutex
    bool const m_expected;
    std::uint16_t m_received = 0;  // guarded by m_mutex
    std::uint16_t const m_total;
};

}  // namespace qel::onlineservices::framework::core
