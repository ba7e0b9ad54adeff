// Carries the last reference of a removed subscription into the job queue, so that the
// subscription is destroyed, and thus unsubscribed at the client, on the worker thread when the
// job is dropped after processing. Processing itself does nothing.
#pragma once

#include "rsi/IRSIJob.h"
#include "rsi/RSISubscription.h"

#include <memory>

namespace qel::onlineservices::framework::core {

class RSIUnSubRequest : public IRSIJob {
public:
    RSIUnSubRequest(std::shared_ptr<RSISubscription> subscription, qel::common::logging::Logger logger);

    void process() override {}
    void confirmRequestSuccess() override {}

private:
    std::shared_ptr<RSISubscription> const m_subscription;
};

}  // namespace qel::onlineservices::framework::core
