// The service side: what a binding hands to a registered service implementation.
#pragma once

#include "commonapi/Types.h"

#include <functional>
#include <memory>

namespace CommonAPI {

// Who called; the subset carries nothing more than the fact of a call.
class ClientId {
public:
    virtual ~ClientId() = default;
};

class StubBase {
public:
    virtual ~StubBase() = default;
};

// A service may fail a call with a transport status instead of answering it (a simulator plays
// a broken link this way); the proxy then sees that status and no out arguments.
using CallFailure = std::function<void(CallStatus)>;

}  // namespace CommonAPI
