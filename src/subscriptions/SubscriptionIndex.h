// Names the two subscriptions a subscription item may hold.
//
// Contract: the value doubles as the request id of the subscribe request, so every answer and
// event of a subscription comes back carrying it, and compares with it directly. Any other
// number is unknown.
#pragma once

#include <cstdint>

namespace qel::onlineservices::framework::core {

enum SubscriptionIndex : std::uint32_t {
    RESOURCE = 1,  // the whole resource (service/resource)
    ELEMENT = 2,   // one element (service/resource/element)
};

}  // namespace qel::onlineservices::framework::core
