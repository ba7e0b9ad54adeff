#include "commonapi/Types.h"

#include <map>

namespace CommonAPI {
namespace {

std::map<CallStatus, std::string> const& names() {
    static std::map<CallStatus, std::string> const table{
        {CallStatus::SUCCESS, "SUCCESS"},
        {CallStatus::OUT_OF_MEMORY, "OUT_OF_MEMORY"},
        {CallStatus::NOT_AVAILABLE, "NOT_AVAILABLE"},
        {CallStatus::CONNECTION_FAILED, "CONNECTION_FAILED"},
        {CallStatus::REMOTE_ERROR, "REMOTE_ERROR"},
        {CallStatus::UNKNOWN, "UNKNOWN"},
        {CallStatus::INVALID_VALUE, "INVALID_VALUE"},
        {CallStatus::SUBSCRIPTION_REFUSED, "SUBSCRIPTION_REFUSED"},
        {CallStatus::SERIALIZATION_ERROR, "SERIALIZATION_ERROR"},
    };
    return table;
}

}  // namespace

std::string toString(CallStatus status) {
    auto const found = names().find(status);
    return found != names().end() ? found->second : "UNKNOWN";
}

bool callStatusFromString(std::string const& name, CallStatus& status) {
    for (auto const& [candidate, text] : names()) {
        if (text == name) {
            status = candidate;
            return true;
        }
    }
    return false;
}

}  // namespace CommonAPI
