// One attempt of work that may have to be tried again, and the report of its outcome.
//
// Contract: `exec(attempt)` makes one attempt (attempts count from 1) and returns true on
// success; `finish(success)` is called at most once, after the last attempt. Both run on the
// retry thread.
#pragma once

namespace qel::onlineservices::framework::core {

class IRetryRequest {
public:
    virtual ~IRetryRequest() = default;
    virtual bool exec(unsigned int attempt) = 0;
    virtual void finish(bool success) = 0;
};

}  // namespace qel::onlineservices::framework::core
