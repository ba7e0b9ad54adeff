// The outcome of an RSI call or event as the client reports it.
//
// Contract: `value` is `RequestStateSucceeded` when the call or event went through; every other
// value is a failure, explained in `note`. Passed by reference in both directions: the caller may
// preset it and the client overwrites it.
#pragma once

#include <cstdint>
#include <string>
#include <utility>

namespace qel::rsi::client {

inline constexpr std::int32_t RequestStateFailed = 0;
inline constexpr std::int32_t RequestStateSucceeded = 1;

struct RequestState {
    RequestState() = default;
    RequestState(std::int32_t stateValue, std::string stateNote) : value(stateValue), note(std::move(stateNote)) {}

    std::int32_t value = RequestStateFailed;
    std::string note;
};

}  // namespace qel::rsi::client
