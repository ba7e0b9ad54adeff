#include "rsi/RSIUnSubRequest.h"

namespace qel::onlineservices::framework::core {

RSIUnSubRequest::RSIUnSubRequest(std::shared_ptr<RSISubscription> subscription, qel::common::logging::Logger logger)
    : IRSIJob(std::move(logger)), m_subscription(std::move(subscription)) {}

}  // namespace qel::onlineservices::framework::core
