// Fuzz inputs are mostly refused, each with a log line; writing them all would drown the fuzzer.
// Errors are still formatted (their code runs) but go nowhere.
#pragma once

#include "common/Logger.h"

namespace qel::fuzz {

inline void silenceLogging() {
    static bool const silenced = [] {
        common::logging::LogConfig::setThreshold(common::logging::LogLevel::Error);
        common::logging::LogConfig::setSinks({});
        return true;
    }();
    (void)silenced;
}

}  // namespace qel::fuzz
