// A retried attempt whose outcome fulfils or fails a requested condition.
//
// Contract: an empty attempt function succeeds at the first attempt; an empty callback makes
// `finish` do nothing.
#pragma once

#include "core/IRetryRequest.h"
#include "core/IUpdateConditionCallback.h"

#include <functional>
#include <memory>

namespace qel::onlineservices::framework::core {

class ConditionRetryRequest : public IRetryRequest {
public:
    ConditionRetryRequest(std::function<bool(unsigned int)> attempt, std::shared_ptr<IUpdateConditionCallback> callback)
        : m_attempt(std::move(attempt)), m_callback(std::move(callback)) {}

    bool exec(unsigned int attempt) override;
    void finish(bool success) override;

private:
    std::function<bool(unsigned int)> const m_attempt;
    std::shared_ptr<IUpdateConditionCallback> const m_callback;
};

}  // namespace qel::onlineservices::framework::core
